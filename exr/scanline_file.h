#pragma once

#include <ImfMultiPartOutputFile.h>

#include <memory>

#include "exr/channel_map.h"
#include "exr/file_data.h"
#include "exr/visible_box.h"

// A render channel that is to be written.
struct ExrChanInfo {
    int index = 0;  // in the renderer's channel table, and in a region's
    int type = 0;   // a RegionChannelType
    int alias = 0;  // a RegionChannelAlias
    MUtils::CharString name;
    MUtils::ExrNames exrNames;  // of its EXR channels, in component order
    int part = -1;              // the header it belongs to; -1 when it is not written
};

// Scan-line files of one part, or of a part for each render layer. Waits for a region that covers the whole
// frame, builds the headers for it, opens the file, and writes part after part in chunks of scan lines.
class ExrFileData : public ExrFileDataBase {
  public:
    explicit ExrFileData(bool multiPartFile);
    ~ExrFileData() override;

    // Nothing: the file is opened with the first whole frame.
    ErrorCode create() override;
    ErrorCode close() override;
    // Kept for the headers, which are built later.
    ErrorCode setCameraInfo(const RICameraInfo& camera) override;
    ErrorCode setChannels(MUtils::Table<MUtils::RegionChannelCallback*, 100>* table) override;
    void setAutoDataWindow(int on) override;
    // Kept for the headers; null and "" leave the text that there is.
    ErrorCode setExtraAttributes(const char* text) override;
    // A region of another size than the frame is passed over, deliberately. One whose channels are not what
    // was announced is an error before anything is opened. Throws what OpenEXR throws while pixels are
    // written, and when the open file was made for another frame than this one.
    ErrorCode writeRegion(MUtils::MRRegionData* region) override;

    // The part for the channel `name`, which becomes its name within the part. In a multi-part file that is
    // the name up to its first dot; without one the part "other", or, when `useOther` is false, the whole
    // name.
    int selectPart(const char*& name, bool useOther);
    // Builds the header of every part from the settings and places the channels.
    ErrorCode createHeaders();
    // Describes the staging buffers of a part's channels, `lines` rows each, allocated here.
    void setupFrameBuffer(int part, Imf::FrameBuffer& frameBuffer, MUtils::MRRegionData& region, int lines);

  private:
    ErrorCode createFile();
    void placeChannel(ExrChanInfo& info);
    int addPart(const char* name);
    Imath::Box2i windowBox() const;
    ErrorCode checkChannelsOf(const MUtils::MRRegionData& region) const;
    void trimDataWindow(const MUtils::MRRegionData& region);
    void requireOpenedLayout() const;
    int threadsToAskFor() const;
    int chunkLines(int part, const MUtils::MRRegionData& region) const;
    int partAt(int position) const;
    void writePart(int part, MUtils::MRRegionData& region);
    const MBVTable* dataOf(const ExrChanInfo& info, const MUtils::MRRegionData& region) const;
    void stageRows(int channel, const MBVTable& data, int y, int rows);

    bool multiPart;
    int autoDataWindow = 0;
    MUtils::PixelBox given;       // the pixels of the region
    MUtils::PixelBox dataWindow;  // what of them is written
    int chunkStartY = 0;          // the row that the staging buffers begin with
    RICameraInfo cameraInfo = {};
    MUtils::CharString extraAttributes;
    int headerCount = 0;  // parts
    std::unique_ptr<Imf::MultiPartOutputFile> file;
    MUtils::Table<ExrChanInfo, 100> channels;
    int mainPart = -1;  // the part of main colour, alpha and depth; -1 until one of them is placed
};
