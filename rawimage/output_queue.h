#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "../support/job_queue.h"
#include "export.h"
#include "output_file.h"

// A file behind a queue, so that whoever renders does not wait for packing and disk. WTRegion copies the
// region's values, which costs as much as a memcpy, and returns; a thread of the queue's own writes the
// regions to the file, a raw image or an OpenEXR file, in the order in which the calls have returned. A raw
// image packs the channels of all waiting regions on what RIFile::setCompressionThreads has given it, that
// thread among them; a tiled OpenEXR file packs waiting tiles beside each other together, on OpenEXR's
// threads.
//
// Every other operation takes its place behind the regions that were handed over before, runs on the queue's
// thread and returns when it is done. So does run(), for what the file has beside RIFileBase. Between the
// first call and the last, nobody else uses the file.
//
// WTRegion may be called from any number of threads at once; so may everything else, but a file wants its
// calls in an order that somebody has to keep.
//
// Errors: the first region that fails ends the file. Nothing after it is written, and from then on every
// operation fails with "Error writing region (...)", which has the region's box in its text and the file's
// error as its cause. Close, too, gives it, and closes the file; then the queue can be used for another one.
// What the file throws comes out of the operation that it belongs to; out of a region it becomes an error.
//
// When the process is killed, a raw image has every region that was handed over before the last flush() that
// returned without an error. Regions in flight may be lost, and the last one may be cut short, which readers
// take for the end of an unfinished file, as they do without a queue. An OpenEXR file is whole after Close
// and not before.
class RAWIMAGE_EXPORT OutputQueue : public RIFileBase {
  public:
    static constexpr std::int64_t kMaxPending = std::int64_t{256} << 20;

    // Borrows the file, which must live longer, and the manager, whose thread it uses; null for a thread of
    // its own. When the system gives no thread, each call does its work itself.
    explicit OutputQueue(RIFileBase& file, ThreadManager* manager = nullptr);
    // Writes what waits, but does not close the file. An error that nobody has asked for is lost.
    ~OutputQueue() override;
    OutputQueue(const OutputQueue&) = delete;
    OutputQueue& operator=(const OutputQueue&) = delete;

    // Bytes of values that may wait, 256 MiB when never called: a WTRegion that would go over waits until
    // there is room, in turn with others. A region that is larger on its own passes when it is alone.
    void setMaxPending(std::int64_t bytes);
    // Regions that were handed over and are not written yet.
    int pending() const;

    // Copies the region. Fails when an earlier one has failed, or when there is no memory; a region's own
    // failure is not known yet. After a failure, or for a null region, nothing is handed over.
    ErrorCode WTRegion(MRRegionData* region, int a, int b, int c) override;
    // Returns when all that was handed over before is written: in the kernel, so that it outlives the
    // process. Of an OpenEXR file the library may still hold back tiles whose turn it is not.
    ErrorCode flush() override;
    // Runs an operation of the file itself, such as RIFile::WTNote, in its turn.
    ErrorCode run(const std::function<ErrorCode()>& operation);

    // Those of the file, each in its turn.
    ErrorCode Create(const char* fileName, PStream* stream) override;
    ErrorCode Open(const char* fileName, PStream* stream) override;
    ErrorCode Close() override;
    // After a failed region -1.
    int ParseFile(RIFileCallback& callback) override;
    ErrorCode WriteHeader(int bitsPerChannel) override;
    ErrorCode WTResolution(int width, int height, float pixelAspect) override;
    ErrorCode WTRegionsInfo(int bucketWidth, int bucketHeight, int variableSize) override;
    ErrorCode WTChannelInfo(MRRegionData* region) override;
    ErrorCode WTChannelInfo(MUtils::Table<MUtils::RegionChannelCallback*, 100>* channels) override;
    ErrorCode WTCameraInfo(const RICameraInfo& camera) override;
    ErrorCode WTRenderRegion(const RIRegionInfo& region) override;
    ErrorCode WTExtraAttributes(const char* text) override;
    ErrorCode WTSceneInfo(RISceneInfo& scene) override;
    ErrorCode WTStampText(const char* text) override;

  private:
    class Worker;

    RIFileBase& file_;
    std::unique_ptr<Worker> worker_;
};
