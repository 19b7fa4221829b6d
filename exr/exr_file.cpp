#include "exr/exr_file.h"

#include <new>
#include <utility>

#include "exr/guarded.h"
#include "exr/scanline_file.h"
#include "exr/tiled_file.h"

namespace {

ExrFileDataBase* makeData(int kind) {
    if (kind == ExrFile::kTiled) return new (std::nothrow) ExrTiledFileData;
    return new (std::nothrow) ExrFileData(kind == ExrFile::kMultiPart);
}

}  // namespace

ExrFile::ExrFile(int kind) : data_(makeData(kind)), kind_(kind) {}

ExrFile::~ExrFile() = default;

ErrorCode ExrFile::Create(const char* fileName, PStream* /*stream*/) {
    if (data_ == nullptr) return ErrorCode("Create", -1, "Cannot create exr file data");
    data_->setFileName(fileName);
    return {};
}

ErrorCode ExrFile::Open(const char* /*fileName*/, PStream* /*stream*/) {
    return ErrorCode("Open", -1, "Operation not supported");
}

ErrorCode ExrFile::Close() {
    if (data_ == nullptr) return {};
    return data_->close();
}

int ExrFile::ParseFile(RIFileCallback& /*callback*/) {
    return -1;
}

ErrorCode ExrFile::WriteHeader(int bitsPerChannel) {
    if (data_ != nullptr) data_->setBitsPerChannel(bitsPerChannel);
    return {};
}

ErrorCode ExrFile::WTResolution(int width, int height, float pixelAspect) {
    if (data_ == nullptr) return {};
    data_->width = width;
    data_->height = height;
    data_->pixelAspect = pixelAspect;
    return {};
}

ErrorCode ExrFile::WTRegionsInfo(int bucketWidth, int bucketHeight, int variableSize) {
    if (data_ == nullptr || kind_ != kTiled) return {};
    data_->bucketWidth = bucketWidth;
    data_->bucketHeight = bucketHeight;
    data_->variableBucketSize = variableSize;
    return {};
}

ErrorCode ExrFile::WTRegion(MUtils::MRRegionData* region, int /*a*/, int /*b*/, int /*c*/) {
    if (region == nullptr || data_ == nullptr) return {};
    return write([this, region] { return data_->writeRegion(region); });
}

ErrorCode ExrFile::WTRegions(RegionFeed& feed) {
    if (data_ == nullptr) return RIFileBase::WTRegions(feed);
    RegionFeed::Call call;
    for (bool more = feed.next(true, call); more;) {
        if (call.region == nullptr) {  // is passed over, as WTRegion does
            feed.written();
            more = feed.next(true, call);
            continue;
        }
        ErrorCode error = write([&] { return data_->writeNext(feed, call, more); });
        if (!error.empty()) return error;
    }
    return {};
}

ErrorCode ExrFile::WTTiles(MUtils::MRRegionData* region) {
    if (region == nullptr || data_ == nullptr) return {};
    return write([this, region] { return data_->writeTiles(region); });
}

ErrorCode ExrFile::flush() {
    return data_ != nullptr ? data_->flush() : ErrorCode();
}

// Opens the file before its first region.
ErrorCode ExrFile::write(const std::function<ErrorCode()>& writePixels) {
    if (ErrorCode cause = data_->create(); !cause.empty()) {
        ErrorCode error("WTRegion", -1, "Error creating OpenExr file");
        error.setCause(std::move(cause));
        return error;
    }
    return MUtils::guarded("WTRegion",
                           kind_ == kTiled ? "Error writing tile to .exr file" : "Error writing .exr file",
                           writePixels);
}

ErrorCode ExrFile::WTChannelInfo(MUtils::MRRegionData* /*region*/) {
    return {};
}

ErrorCode ExrFile::WTChannelInfo(MUtils::Table<MUtils::RegionChannelCallback*, 100>* channels) {
    if (data_ == nullptr) return {};
    return data_->setChannels(channels);
}

ErrorCode ExrFile::WTCameraInfo(const RICameraInfo& camera) {
    if (data_ == nullptr) return {};
    return data_->setCameraInfo(camera);
}

ErrorCode ExrFile::WTRenderRegion(const RIRegionInfo& region) {
    if (data_ != nullptr && kind_ == kTiled) data_->renderRegion = region;
    return {};
}

ErrorCode ExrFile::WTExtraAttributes(const char* text) {
    if (data_ == nullptr || text == nullptr || *text == 0) return {};
    return data_->setExtraAttributes(text);
}

ErrorCode ExrFile::WTSceneInfo(RISceneInfo& /*scene*/) {
    return {};
}

ErrorCode ExrFile::WTStampText(const char* text) {
    if (data_ == nullptr || text == nullptr || *text == 0) return {};
    return data_->setStampText(text);
}

void ExrFile::setCompressionType(int setting) {
    if (data_ != nullptr) data_->setCompressionType(setting);
}

void ExrFile::setAutoDataWindow(int on) {
    if (data_ != nullptr) data_->setAutoDataWindow(on);
}

void ExrFile::setOrigin(int x, int y) {
    if (data_ == nullptr) return;
    data_->originX = x;
    data_->originY = y;
}

void ExrFile::setWindow(const MUtils::PixelBox& box) {
    if (data_ != nullptr) data_->window = box;
}

void ExrFile::setHeaderEditor(MUtils::ExrHeaderEditor* editor) {
    if (data_ != nullptr) data_->headerEditor = editor;
}
