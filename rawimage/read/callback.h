#pragma once

#include "../../support/pstream.h"
#include "../export.h"
#include "../format.h"
#include "../records.h"

// The sink that the readers deliver a file to. The reader walks the tags; for each it first asks parseTag,
// then decodes the payload and calls the one operation of the tag's kind. Only the four pure operations must
// be implemented; by default everything else is accepted and dropped.
//
// Threads: the sequential reader calls everything on the thread that parses. The multi-threaded reader calls
// parseTag and setImageData of pixel tags on its workers, several at once and in any order between two other
// tags; everything else comes on the parsing thread, in file order, while no worker is in the callback.
//
// What a call is handed belongs to the reader and lives until the call returns. A false result ends the parse
// with the code given at the operation.
class RAWIMAGE_EXPORT RIFileCallback {
  public:
    // Asked for every tag, unknown ones too, before its payload is read. 0 stops the parse (-9), 2 skips the
    // tag; every other value decodes it, negative ones too. The tag may be edited: the reader goes on with
    // the edited one.
    virtual int parseTag(RIF_TAG& tag);

    // Width and height in pixels, width of a pixel over its height (1 when the file has 0). False: -12.
    virtual bool setResolution(int width, int height, float aspect) = 0;
    // Called before setChannel, which then comes once for each complete record. False: -10.
    virtual bool setNumChannels(int count) = 0;
    // `index` is 0-based, -1 when the file does not have it. False: -11.
    virtual bool setChannel(int index, RegionChannelType type, RegionChannelAlias alias,
                            const char* name) = 0;
    // The `count` values of one channel of one bucket of width x height pixels, the first at (x, y); `w28`
    // and `w32` are the two integers that the writer was given. False: -17.
    virtual bool setImageData(const MBVTable& data, int count, int channel, int x, int y, int width,
                              int height, int w28, int w32) = 0;
    // False: -18.
    virtual bool setCameraInfo(const RICameraInfo& info);
    // False: -19.
    virtual bool setRenderRegion(const RIRegionInfo& region);
    // The stored thumbnail: count = width x height RGB24 values in row order. False: -21.
    virtual bool setPreview(MBVTable& pixels, int count, int width, int height);
    // False: -1.
    virtual bool setSceneInfo(RISceneInfo info);
    // Not called by the readers: where a preview maker's caller finds the finished picture. May be null.
    virtual MUtils::RGB24* getPreviewBuffer();
    // An opened stream over the stored bytes. False: -23, as for the two other streams below.
    virtual bool setStampData(PBufStream* data);
    // Called with null first, as a question: true has the note read and setNote called again with its text,
    // that result being ignored; false has getNote's text written over the stored note, in place.
    virtual bool setNote(const char* text);
    // The text to store. Its first 1023 characters are taken. Null leaves the file as it is.
    virtual const char* getNote();
    virtual bool setOverlayTextData(PBufStream* data);
    virtual bool setMirtSettings(PBufStream* data);

  protected:
    // Not virtual, deliberately: parseTag is the first virtual operation, and callbacks are destroyed by
    // their own type.
    ~RIFileCallback() = default;
};
