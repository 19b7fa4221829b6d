#pragma once

#include "../support/error_code.h"
#include "../support/pstream.h"
#include "../support/table.h"
#include "export.h"
#include "records.h"

class RIFileCallback;

// Regions on their way to RIFileBase::WTRegions. Of one feed, a writer may call the operations from any of
// its threads; they must not throw.
class RAWIMAGE_EXPORT RegionFeed {
  public:
    // What a call of WTRegion takes.
    struct Call {
        MRRegionData* region = nullptr;
        int a = 0;
        int b = 0;
        int c = 0;
    };

    // Takes the next region. It stays as it is, and belongs to the writer, until as many calls of written()
    // have been made or WTRegions has returned. False when there is none: with `wait` for good, else at the
    // moment. One thread at a time calls it.
    virtual bool next(bool wait, Call& call) = 0;
    // The first of the regions that were taken and not yet written is in the file.
    virtual void written() = 0;
    // No region is wanted any more: a next() that waits returns false.
    virtual void end() = 0;

  protected:
    ~RegionFeed() = default;
};

// An output file as the renderer sees it, whichever format is behind it. It is driven in this order (only
// Create, WriteHeader and Close are required, WTRegion repeats):
//
//     Create; WriteHeader; WTResolution; WTRegionsInfo; WTChannelInfo;
//     WTCameraInfo, WTRenderRegion, WTSceneInfo, WTStampText, WTExtraAttributes in any order;
//     WTRegion once for each finished bucket; Close.
//
// Every operation but ParseFile returns an empty ErrorCode on success. One thread at a time uses an object;
// no operation keeps a pointer it was given.
class RAWIMAGE_EXPORT RIFileBase {
  public:
    virtual ~RIFileBase();

    // Starts a new file: on `stream` when one is given, which the caller has opened, else in the file
    // `fileName`.
    virtual ErrorCode Create(const char* fileName, PStream* stream) = 0;
    // Opens an existing file for reading, on `stream` or by name.
    virtual ErrorCode Open(const char* fileName, PStream* stream) = 0;
    // Finishes the file.
    virtual ErrorCode Close() = 0;

    // Walks the file and hands what it holds to `callback`; 0 or a negative code.
    virtual int ParseFile(RIFileCallback& callback) = 0;

    // The number is the bits of a float channel's values in EXR files (16 or 32); raw files ignore it.
    virtual ErrorCode WriteHeader(int bitsPerChannel) = 0;
    // The frame in pixels, and the width of a pixel over its height.
    virtual ErrorCode WTResolution(int width, int height, float pixelAspect) = 0;
    // Bucket width and height in pixels; the flag is non-zero when the sizes vary.
    virtual ErrorCode WTRegionsInfo(int bucketWidth, int bucketHeight, int variableSize) = 0;
    // Writes a finished bucket with the values of all its channels. The integers are stored for the renderer;
    // see the writers.
    virtual ErrorCode WTRegion(MRRegionData* region, int a, int b, int c) = 0;

    // The frame's channels, from a region or from the renderer's descriptions.
    virtual ErrorCode WTChannelInfo(MRRegionData* region) = 0;
    virtual ErrorCode WTChannelInfo(MUtils::Table<MUtils::RegionChannelCallback*, 100>* channels) = 0;

    virtual ErrorCode WTCameraInfo(const RICameraInfo& camera) = 0;
    virtual ErrorCode WTRenderRegion(const RIRegionInfo& region) = 0;
    // Free-form "name=value; name=value" metadata.
    virtual ErrorCode WTExtraAttributes(const char* text) = 0;
    virtual ErrorCode WTSceneInfo(RISceneInfo& scene) = 0;
    virtual ErrorCode WTStampText(const char* text) = 0;

    // Writes the regions of `feed` as WTRegion does, in their order, until it has no more or one fails: the
    // first that is not reported as written is that one, and no later one is in the file. A writer that can
    // pack several regions at a time does so here. The values may be changed.
    virtual ErrorCode WTRegions(RegionFeed& feed);
    // Hands the system what the object still holds back of regions that are written. The error is that of an
    // earlier write.
    virtual ErrorCode flush();
};
