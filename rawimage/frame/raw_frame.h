#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "../../support/job_queue.h"
#include "../../support/pstream.h"
#include "../area/pixel_box.h"
#include "../export.h"
#include "../inspect/inspection.h"
#include "../records.h"
#include "frame_records.h"

// A frame by channel and place: opens a raw image file, finished, unfinished or damaged, and reads boxes of
// its channels into the caller's memory, with what is sound in the file.
//
//     const MUtils::RawFrame file("frame.rimg");
//     const auto info = file.info();
//     if (const MUtils::FrameChannel* colour = info->find(RCA_COLOR)) {
//         std::vector<float> values(64 * 64 * 3);
//         const MUtils::FrameRead read = file.read({0, 0, 64, 64}, {{*colour, values.data()}});
//     }

namespace MUtils {
inline namespace v1 {

// A channel of the file's list or, where the list does not have it, of pixel tags.
struct RAWIMAGE_EXPORT FrameChannel {
    int index = -1;
    RegionChannelType type = RCT_NONE;
    RegionChannelAlias alias = RCA_NONE;
    int flags = 0;
    std::string name;     // "" when it is not listed
    bool listed = false;  // in the file's channel list; else only index and type are known, from its tags

    // Of a value: 1 to 4, of 4 bytes each. 0 for a channel without values (type 0, or one that is unknown).
    int components() const;
    int valueBytes() const { return 4 * components(); }
    bool isInteger() const { return type == RCT_INT; }
    // "R", "G", "B" of a colour, "X", "Y", "Z" of a vector, "X", "Y" of two floats, "R", "G", "B", "A" of
    // four, "" of one. Empty for a component that it does not have.
    const char* componentName(int component) const;
};

// What is known of a frame without its pixels. A value of one moment; refresh() puts a new one in its place.
struct RAWIMAGE_EXPORT FrameInfo {
    std::int64_t fileBytes = 0;
    bool finished = false;    // the file has its table
    bool compressed = false;  // pixel payloads are zlib streams
    bool hasPixels = false;   // there is some pixel tag, whatever the channel
    PixelBox frame;           // [0, width) x [0, height); empty without a resolution
    PixelBox area;            // the pixels to render: the render region, else the frame
    float pixelAspect = 1.0f;
    std::optional<RIRegionInfo> region;
    std::optional<BucketSize> buckets;  // as announced
    // The list in its order, then channels that only pixel tags have, by index: at most
    // kMaxUnlistedFrameChannels of these.
    std::vector<FrameChannel> channels;
    bool furtherChannels = false;  // there are more that are not listed

    // The last listed channel of that name or alias, null when there is none. Valid as long as this object.
    const FrameChannel* find(const std::string& name) const;
    const FrameChannel* find(RegionChannelAlias alias) const;
    // The channel that pixel tags call `index`.
    const FrameChannel* findIndex(int index) const;
};
constexpr std::size_t kMaxUnlistedFrameChannels = 1000;

enum class ValueFormat {
    kStored,  // floats, or int32 of an integer channel
    kHalf     // 16-bit floats: to nearest, ties to even, too large ones to infinity; integers as numbers
};

// Where the values of a channel go.
struct RAWIMAGE_EXPORT ChannelTarget {
    ChannelTarget() = default;
    // Pixels and rows that touch, as wide as the box that is read.
    ChannelTarget(const FrameChannel& of, void* memory, ValueFormat as = ValueFormat::kStored);

    int channel = -1;                   // FrameChannel::index
    RegionChannelType type = RCT_NONE;  // what `data` has room for; pixels of another size are damage
    ValueFormat format = ValueFormat::kStored;
    void* data = nullptr;            // the value of the box's first pixel
    std::ptrdiff_t pixelStride = 0;  // bytes from a pixel to the one right of it; 0: they touch
    std::ptrdiff_t rowStride = 0;    // bytes from a row to the one below; 0: they touch. Negative ones count
    // Bytes from a component to the next one; 0: they touch. With another one, pixelStride is given, too.
    std::ptrdiff_t componentStride = 0;
    // In every component of pixels without values, converted to the target's kind.
    double fill = 0.0;
    // `data` has the fill value already: memory of pixels without values is not touched.
    bool filled = false;

    int components() const;
    int componentBytes() const { return format == ValueFormat::kHalf ? 2 : 4; }
};

// Runs work on the caller's threads: calls job(0) to job(count - 1), each once, in any order, on any threads,
// and returns when all have returned. Jobs throw nothing.
using FrameExecutor = std::function<void(int count, const std::function<void(int)>& job)>;

struct FrameReadOptions {
    int threads = 1;                   // that decode, the calling one among them; below 1: one a processor
    ThreadManager* manager = nullptr;  // whose threads the others are; null: threads of this call
    FrameExecutor executor;            // instead of threads: runs up to `threads` jobs
    // Pixels of tags in doubt (TagScan::doubted) come before all others of their channel. Else they count as
    // missing.
    bool takeDoubted = false;
    // Of a visit: buckets come one at a time, in file order. They are decoded on all threads nevertheless.
    bool inOrder = false;
    // Called now and then, on the calling thread or on that of the executor's job 0, with the tags that are
    // done and all; false stops.
    std::function<bool(std::int64_t done, std::int64_t total)> progress;
};

// What a read could not give.
struct RAWIMAGE_EXPORT FrameRead {
    // Tags whose payload could not be decoded, by offset. Their pixels have what earlier tags of the place
    // have, else the fill value.
    std::vector<FileFault> damaged;
    // By channel, the pixels of the box that should be there and that no sound tag has: of the frame's area,
    // where there is one, and of the channel's window (kChannelWindowMark), where it has one. They have the
    // fill value, as do those outside area and window.
    std::vector<MissingPixels> missing;
    bool stopped = false;  // by progress or a visitor: values and lists are not complete

    // Every pixel that should be there is.
    bool complete() const { return damaged.empty() && missing.empty() && !stopped; }
};

// The decoded values of one pixel tag.
struct FrameBucket {
    INFOTAG tag;
    PixelBox box;                 // of the tag, which may reach beyond the box that is visited
    int components;               // of a value, 4 bytes each
    const unsigned char* values;  // row after row, without gaps; valid during the call
};

// Receives whole buckets as they are decoded.
class RAWIMAGE_EXPORT BucketVisitor {
  public:
    // False: the tag's bucket is not decoded and does not come. Called before all of them, for each tag that
    // the visit has met, on the calling thread.
    virtual bool wants(const INFOTAG& tag);
    // Tags of a channel that overlap come one after another, in file order; others in any order, several at a
    // time on several threads. An exception ends the visit and comes out of it. False stops.
    virtual bool visit(const FrameBucket& bucket) = 0;
    // The file turned out to contradict its table: it has been inspected, and all buckets come again. No
    // other call is under way.
    virtual void restart() {}

  protected:
    ~BucketVisitor() = default;
};

// Of what RawFrame::bands() and uncutBands() return.
constexpr std::size_t kMaxFrameBands = 1 << 16;

// What refresh() found.
struct FrameChange {
    enum Kind {
        kNone,
        kGrown,     // more tags, or the file was finished
        kRestarted  // another file, or one written anew: nothing that was known holds
    };
    Kind kind = kNone;
    PixelBox box;  // around the new pixels; of a restart around the frame
};

struct RawFrameOptions {
    // How the file is looked through before it is used. None: by its table, or by a scan of the headers where
    // it has no table, and inspected to the depth of headers when anything is odd there or comes to light
    // later. Tools that judge a file ask for an inspection.
    std::optional<InspectDepth> inspect;
    int threads = 0;  // as InspectOptions::threads
    // As InspectOptions::progress; when it stops, the frame has what was found so far. Called by the
    // constructor only.
    std::function<bool(std::int64_t done, std::int64_t total)> progress;
};

constexpr std::int64_t kMaxHeldValues = 1 << 22;

// Every bucket has a pixel in it. For visits and lists of tags.
constexpr PixelBox kEverywhere{INT32_MIN, INT32_MIN, std::int64_t{1} << 31, std::int64_t{1} << 31};

// A raw image file that is open for reading.
//
// Opening reads headers only: 48 bytes of memory a tag. The place of tags is indexed when a channel is first
// asked for, in at most 8 bytes a tag. Every read takes header and payload of a tag at once and compares the
// header with the one that is listed; where they differ, the file is inspected and the read begins again. So
// a table that does not fit its file costs time and no pixels.
//
// Threads: all constant functions may be called by any number of threads at a time, also while one thread
// refreshes; a call works on what is known when it begins. A visit needs, for each thread and once more, the
// memory of the largest tag that it meets, payload and values; of values of more than kMaxBlockBytes without
// the payload. So does a read, but of tags with more than kMaxHeldValues bytes it needs less than that: these
// are decoded piece by piece.
//
// Errors: nothing fails but by state, lists of damage and empty results. Any call throws std::bad_alloc.
class RAWIMAGE_EXPORT RawFrame {
  public:
    explicit RawFrame(const char* fileName, const RawFrameOptions& options = {});
    // The stream is open, and the frame's alone as long as it lives. Its operations are called by one thread
    // at a time.
    explicit RawFrame(PStream& stream, const RawFrameOptions& options = {});
    ~RawFrame();
    RawFrame(RawFrame&& other) noexcept;
    RawFrame& operator=(RawFrame&& other) noexcept;

    // Never null; of a file that cannot be opened or is not of this format it has the length at most.
    std::shared_ptr<const FrameInfo> info() const;

    // The state, why it is not kGood, and the file offset where that shows, -1 where it shows nowhere; as of
    // an inspection, which may find more the deeper it looks. To tell kGood from kIncomplete, the first call
    // computes what is missing.
    FileState state() const;
    std::string cause() const;
    std::int64_t causeOffset() const;
    // The channels that lack pixels of the area, and those pixels.
    std::vector<MissingPixels> missing() const;
    // What the inspection found wrong, if there was need of one: its faults, how many more it did not list,
    // and TagScan::doubted.
    FileFaults faults() const;
    std::int64_t furtherFaults() const;
    std::vector<std::int64_t> doubted() const;

    // Read anew by each call: a note may be replaced in place.
    FrameRecords records() const;
    // Single records, read anew as well. They may take as much memory as the file has bytes.
    FrameRecord<std::vector<unsigned char>> blob(FrameBlob which) const;
    FrameRecord<std::string> text(FrameText which) const;  // up to its NUL
    FrameRecord<FrameThumbnail> thumbnail() const;

    // The sound tags without pixels, in file order.
    std::vector<INFOTAG> recordTags() const;
    // Reads the pixels of `box`, which need not lie within the frame, of each target's channel. Where tags
    // overlap, the later one counts. A channel that the file does not have lacks all pixels. Targets must not
    // overlap.
    FrameRead read(const PixelBox& box, const std::vector<ChannelTarget>& targets,
                   const FrameReadOptions& options = {}) const;

    // Decodes all buckets of the channels (FrameChannel::index) that have a pixel in `box`. Tags whose values
    // are of another type than FrameInfo::findIndex() has for the channel are damaged and not visited.
    FrameRead visit(const PixelBox& box, const std::vector<int>& channels, BucketVisitor& visitor,
                    const FrameReadOptions& options = {}) const;

    // The channel's tags that have a pixel in `box`, in file order, but for those in doubt. Damage in their
    // payloads is not known here.
    std::vector<INFOTAG> tags(const PixelBox& box, int channel) const;
    // Their boxes.
    std::vector<PixelBox> buckets(const PixelBox& box, int channel) const;

    // Cuts `box` into bands of rows, from the top down, of at most `maxBytes` of stored values of the
    // channels together, or one row. Of more than kMaxFrameBands / 2 rows bands may have more: there are at
    // most kMaxFrameBands. Bands end where no bucket is cut, as far as that allows: reading them all decodes
    // few buckets twice.
    std::vector<PixelBox> bands(const PixelBox& box, const std::vector<int>& channels,
                                std::int64_t maxBytes) const;

    // Cuts `box` into as many bands as possible, kMaxFrameBands at most, without cutting a bucket, each of a
    // multiple of `rows` rows; the last one may be shorter.
    std::vector<PixelBox> uncutBands(const PixelBox& box, const std::vector<int>& channels, int rows) const;

    // Takes in what has been written since, while the writer runs or behind it: tags that were appended, the
    // table of a file that was finished, or another file in its place. Takes time by what is new. The end of
    // a tag that is not written yet is no damage.
    FrameChange refresh();

  private:
    class Core;
    std::unique_ptr<Core> core_;
};

}  // namespace v1
}  // namespace MUtils
