#pragma once

#include <ImathBox.h>
#include <ImfHeader.h>
#include <ImfPixelType.h>

#include <functional>
#include <memory>

#include "rawimage/area/pixel_box.h"
#include "rawimage/output_file.h"
#include "rawimage/records.h"
#include "support/byte_buffer.h"
#include "support/char_string.h"
#include "support/error_code.h"
#include "support/table.h"

namespace MUtils {
inline namespace v1 {
class ExrHeaderEditor;
class ExrOutputStream;
}  // namespace v1
}  // namespace MUtils

// What the scan-line and the tiled EXR writer have in common: the settings of a frame, the OpenEXR header,
// and the attributes that go into it. ExrFile sets the plain members and calls the operations; one thread at
// a time.
//
// Exceptions of OpenEXR pass through the operations that put attributes or channels into a header (a name
// that holds an attribute of another type, an empty channel name) and through writeRegion(). create() and
// close() turn them into errors.
class ExrFileDataBase {
  public:
    int width = 0;
    int height = 0;
    float pixelAspect = 1.0f;
    // The tile size of a tiled file.
    int bucketWidth = 0;
    int bucketHeight = 0;
    int variableBucketSize = 0;
    // More than one channel has the depth alias, so none is "Z".
    int severalDepthChannels = 0;
    // Of all channels but integers: HALF or FLOAT.
    Imf::PixelType pixelType = Imf::HALF;
    // One-based; see exrCompression().
    int compressionSetting = 3;
    // kind is -1 while no render region is set.
    RIRegionInfo renderRegion = {-1, 0, 0, 0, 0};
    // The display window's first pixel. Regions and windows here are counted from it.
    int originX = 0;
    int originY = 0;
    // Of a scan-line file: the pixels that are written; without any, the whole frame is.
    MUtils::PixelBox window;
    // Not owned; null for none.
    MUtils::ExrHeaderEditor* headerEditor = nullptr;
    // Null until the channels are set. An array of one header for each part; attributes go into the first.
    std::unique_ptr<Imf::Header[]> header;
    // One for each channel; pixels are brought into shape there where the caller's memory does not have it.
    MUtils::Table<MUtils::ByteBuffer, 100> stagingBuffers;
    MUtils::CharString fileName;
    // The opening of the output file was tried, whether it worked or not.
    int fileCreated = 0;

    ExrFileDataBase();
    ExrFileDataBase(const ExrFileDataBase&) = delete;
    ExrFileDataBase& operator=(const ExrFileDataBase&) = delete;

    virtual ~ExrFileDataBase();

    // Called before each region; opens the output file when the writer does so this early.
    virtual ErrorCode create() = 0;
    // Finishes the file and forgets headers and buffers; the settings stay.
    virtual ErrorCode close() = 0;

    // Eleven attributes, unconditionally. No header: "Header not created yet", code -3.
    virtual ErrorCode setCameraInfo(const RICameraInfo& camera);
    virtual ErrorCode setChannels(MUtils::Table<MUtils::RegionChannelCallback*, 100>* channels) = 0;

    // With pixel type HALF, turns floats into halves in place, 4 bytes apart; see convertFloatsToHalf().
    virtual void convertToHalf(float* data, int count);
    // Up to 16 bits mean HALF, more FLOAT.
    virtual void setBitsPerChannel(int bits);
    virtual void setCompressionType(int setting);
    virtual void setAutoDataWindow(int on);
    // Null clears the name. An open file keeps the one it has.
    virtual void setFileName(const char* name);

    // "name=value; name=value", see WriteEXRExtraAttributes(). No header: code -3, as above.
    virtual ErrorCode setExtraAttributes(const char* text);
    virtual ErrorCode writeRegion(MUtils::MRRegionData* region) = 0;
    // The attribute "stampText". No header: code -3, as above.
    virtual ErrorCode setStampText(const char* text);

    // Writes the region `call` of `feed`, and what follows it as far as it can be written together. Puts the
    // region that comes then into `call`. False at the end of the feed.
    virtual ErrorCode writeNext(RegionFeed& feed, RegionFeed::Call& call, bool& more);
    // A region of several tiles. "Operation not supported" where there are none.
    virtual ErrorCode writeTiles(MUtils::MRRegionData* region);
    // Hands the system what the stream still buffers.
    ErrorCode flush();

  protected:
    // What both setChannels() refuse: no table, and no resolution.
    ErrorCode checkChannels(const MUtils::Table<MUtils::RegionChannelCallback*, 100>* channels) const;

    // A header of the frame as set: its display window is the whole image.
    Imf::Header makeHeader(const Imath::Box2i& dataWindow) const;
    // A box of the frame where the file has it.
    Imath::Box2i placed(const Imath::Box2i& box) const;
    // Lets the editor, if there is one, at the header of a part.
    void editHeader(int part);

    // Opens the output stream on the file name and lets `open` put an OpenEXR file object on it. Any failure
    // becomes "Error creating OpenExr file" with its cause, and leaves nothing behind on disk. Sets
    // fileCreated either way.
    ErrorCode openFile(const char* operation, const std::function<void(MUtils::ExrOutputStream&)>& open);
    // Lets `release` destroy the OpenEXR file object, then finishes the stream. A failure of either, or of
    // any write before, becomes "Error closing OpenExr file" with its cause.
    ErrorCode closeFile(const std::function<void()>& release);

    // Lets `write` hand pixels to the OpenEXR file object. When that throws, the library's buffers stay
    // locked, and another attempt would wait for them forever: from then on this throws at once, until the
    // file is closed.
    void writePixels(const std::function<void()>& write);

  private:
    bool writeFailed_ = false;
    // What the open file object writes to; outlives it.
    std::unique_ptr<MUtils::ExrOutputStream> stream_;
};

namespace MUtils {
inline namespace v1 {

// start + count - 1, held within the range of int.
int lastPixel(int start, int count);

}  // namespace v1
}  // namespace MUtils
