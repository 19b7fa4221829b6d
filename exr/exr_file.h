#pragma once

#include <functional>
#include <memory>

#include "../rawimage/area/pixel_box.h"
#include "../rawimage/export.h"
#include "../rawimage/output_file.h"

namespace MUtils {
inline namespace v1 {
class ExrHeaderEditor;
}  // namespace v1
}  // namespace MUtils

class ExrFileDataBase;

// An OpenEXR file behind the renderer's output interface: tiled, or scan-line with one part or with a part
// for each render layer. It is driven in this order (Create, WriteHeader, WTResolution, WTChannelInfo,
// WTRegion and Close are required; WTRegion repeats):
//
//     Create; WriteHeader; WTResolution; WTRegionsInfo; WTRenderRegion; setCompressionType,
//     setAutoDataWindow; WTChannelInfo; WTCameraInfo, WTStampText, WTExtraAttributes; WTRegion; Close.
//
// Nothing is on disk before the first WTRegion that is written. A tiled file takes buckets, each exactly one
// tile. A scan-line file takes the whole frame as one region and lets smaller regions pass by.
//
// Every operation but ParseFile returns an empty ErrorCode on success. WTChannelInfo, WTCameraInfo,
// WTStampText and WTExtraAttributes let OpenEXR's exceptions through (a name that holds an attribute of
// another type; for a tiled file an empty channel name); no other operation throws. One thread at a time uses
// an object; OpenEXR compresses on the threads of its own global pool.
class RAWIMAGE_EXPORT ExrFile : public RIFileBase {
  public:
    enum Kind {
        kScanline = 0,  // and every number not named here: one part
        kTiled = 1,
        kMultiPart = 2
    };

    // When there is no memory for it, the object stays empty: Create reports it, everything else succeeds and
    // does nothing.
    explicit ExrFile(int kind);
    // Finishes a file that was not closed; what fails then is lost.
    ~ExrFile() override;
    ExrFile(const ExrFile&) = delete;
    ExrFile& operator=(const ExrFile&) = delete;

    // Keeps the name for the first region; the stream is not used. An existing file is replaced then, not
    // now.
    ErrorCode Create(const char* fileName, PStream* stream) override;
    // "Operation not supported": these files are only written.
    ErrorCode Open(const char* fileName, PStream* stream) override;
    // Finishes the file. Any write that failed since it was opened gives "Error closing OpenExr file" with
    // the reason as its cause; the file is not whole then. Channels and a tiled file's attributes are
    // forgotten, all other settings stay, and after a new WTChannelInfo the next region starts a new file.
    ErrorCode Close() override;
    // -1: nothing is read.
    int ParseFile(RIFileCallback& callback) override;

    // Up to 16 bits: channels other than integers become half floats. More: floats.
    ErrorCode WriteHeader(int bitsPerChannel) override;
    ErrorCode WTResolution(int width, int height, float pixelAspect) override;
    // Tiled files only: the tile size. Buckets of varying size cannot be written.
    ErrorCode WTRegionsInfo(int bucketWidth, int bucketHeight, int variableSize) override;

    // Writes a region; the integers are not used. The file is opened by the first one: a failure to do so is
    // reported once, and until Close every later region fails too. A failure while pixels are written is
    // "Error writing tile to .exr file" or "Error writing .exr file", with OpenEXR's text as its cause.
    //
    // A channel that is flagged 2, has type 0 or a type above 6, or has no buffer, is left out; what the file
    // expects of it reads 0. One of another type than announced, or whose buffer has values of another size
    // or fewer than width x height, is an error; nothing of the region is written then, and it may be given
    // again.
    //
    // Tiled: the box is one tile; width is the length of a row, and like height may be larger than the box.
    // With half floats the region's own values are turned into halves in place: the region is spent.
    // The library holds a tile back until all tiles before it (row by row from the top left) are written; if
    // one is never written, Close drops those behind it.
    ErrorCode WTRegion(MUtils::MRRegionData* region, int a, int b, int c) override;

    // Writes regions as WTRegion does. Of a tiled file, those that wait in the feed and whose tiles lie
    // beside each other in a row or in a column are packed at the same time, on OpenEXR's threads; their
    // values are copied for that.
    ErrorCode WTRegions(RegionFeed& feed) override;
    // As WTRegion, for a box of several tiles in several rows and columns, which are packed at the same time
    // on OpenEXR's threads. Tiled files only; "Operation not supported" otherwise.
    ErrorCode WTTiles(MUtils::MRRegionData* region);
    // Hands the system what is buffered of the open file. The file is not whole before Close all the same.
    ErrorCode flush() override;

    // Does nothing.
    ErrorCode WTChannelInfo(MUtils::MRRegionData* region) override;
    // The resolution must be known, and compression and auto data window be set.
    ErrorCode WTChannelInfo(MUtils::Table<MUtils::RegionChannelCallback*, 100>* channels) override;

    // Header attributes "cameraTransform", "cameraProjection", "cameraAperture" ... "cameraFNumber". Tiled:
    // after WTChannelInfo, else code -3. Scan-line: any time before the frame, and all zero when never
    // called.
    ErrorCode WTCameraInfo(const RICameraInfo& camera) override;
    // Tiled files only: the data window, in pixels of the image. Before WTChannelInfo.
    ErrorCode WTRenderRegion(const RIRegionInfo& region) override;
    // "name=value; name=value": typed header attributes, in the first part of a scan-line file. Tiled: after
    // WTChannelInfo, and texts add up; a faulty text is an error with its position. Scan-line: any time
    // before the frame, the last text counts, and its faults are passed over.
    ErrorCode WTExtraAttributes(const char* text) override;
    // Does nothing: EXR files carry no scene.
    ErrorCode WTSceneInfo(RISceneInfo& scene) override;
    // The header attribute "stampText" of a tiled file, after WTChannelInfo. Scan-line files have no header
    // before the frame, and give "Header not created yet", code -3.
    ErrorCode WTStampText(const char* text) override;

    // 1 none, 2 RLE, 3 ZIPS (when never called), 4 ZIP, 5 PIZ, 6 PXR24, 7 B44, 8 B44A, 9 DWAA, 10 DWAB; every
    // other number ZIP.
    void setCompressionType(int setting);
    // Non-zero: a scan-line file's data window is the box around the pixels whose alpha channel is not zero.
    // Tiled files ignore it.
    void setAutoDataWindow(int on);
    // Where the display window begins, (0, 0) when never called; the data window moves with it. Regions keep
    // to the frame, whose first pixel is (0, 0) for them. Before WTChannelInfo.
    void setOrigin(int x, int y);
    // Scan-line files only: the pixels of the frame that are written, the whole frame where `box` is empty.
    // They are the data window, and the region of a frame has their size. Before the first region.
    void setWindow(const MUtils::PixelBox& box);
    // Has its say on the header of each part before camera and texts do, see attr_parser.h; null for none.
    // Before WTChannelInfo. It must live until the file is closed, and what it throws counts as OpenEXR's.
    void setHeaderEditor(MUtils::ExrHeaderEditor* editor);

  private:
    ErrorCode write(const std::function<ErrorCode()>& writePixels);

    std::unique_ptr<ExrFileDataBase> data_;
    int kind_;
};
