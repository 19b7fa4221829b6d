#include "exr/file_data.h"

#include <ImfCompression.h>
#include <ImfFloatAttribute.h>
#include <ImfIntAttribute.h>
#include <ImfMatrixAttribute.h>
#include <ImfStringAttribute.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>

#include "exr/attr_parser.h"
#include "exr/guarded.h"
#include "exr/half_convert.h"
#include "exr/header_facts.h"
#include "exr/output_stream.h"

using namespace MUtils;

namespace {

constexpr int kNoHeader = -3;

ErrorCode headerMissing(const char* operation) {
    return ErrorCode(operation, kNoHeader, "Header not created yet");
}

// One-based, so that 0 can mean "not chosen": 1 is no compression, 10 DWAB, and every other number ZIP.
Imf::Compression exrCompression(int setting) {
    const unsigned value = static_cast<unsigned>(setting) - 1u;
    return value <= static_cast<unsigned>(Imf::DWAB_COMPRESSION) ? static_cast<Imf::Compression>(value)
                                                                 : Imf::ZIP_COMPRESSION;
}

}  // namespace

namespace MUtils {
inline namespace v1 {

int lastPixel(int start, int count) {
    const std::int64_t last = std::int64_t{start} + count - 1;
    return static_cast<int>(std::clamp<std::int64_t>(last, INT_MIN, INT_MAX));
}

}  // namespace v1
}  // namespace MUtils

ExrFileDataBase::ExrFileDataBase() = default;
ExrFileDataBase::~ExrFileDataBase() = default;

ErrorCode ExrFileDataBase::setCameraInfo(const RICameraInfo& camera) {
    if (header == nullptr) return headerMissing("setCameraInfo");
    Imath::M44f transform;
    static_assert(sizeof transform.x == sizeof camera.transform);
    std::memcpy(transform.x, camera.transform, sizeof transform.x);
    header[0].insert(MUtils::kCameraTransformAttribute, Imf::M44fAttribute(transform));
    header[0].insert(MUtils::kCameraProjectionAttribute, Imf::IntAttribute(camera.projection));
    for (const MUtils::CameraAttribute& attribute : MUtils::kCameraAttributes)
        header[0].insert(attribute.name, Imf::FloatAttribute(camera.*attribute.field));
    return {};
}

void ExrFileDataBase::convertToHalf(float* data, int count) {
    if (pixelType == Imf::HALF && count > 0) convertFloatsToHalf(data, count);
}

void ExrFileDataBase::setBitsPerChannel(int bits) {
    pixelType = bits <= 16 ? Imf::HALF : Imf::FLOAT;
}

void ExrFileDataBase::setCompressionType(int setting) {
    compressionSetting = setting;
}

void ExrFileDataBase::setAutoDataWindow(int /*on*/) {}

void ExrFileDataBase::setFileName(const char* name) {
    fileName = name;
}

ErrorCode ExrFileDataBase::setExtraAttributes(const char* text) {
    if (header == nullptr) return headerMissing("setExtraAttributes");
    if (text == nullptr || *text == 0) return {};
    std::string scratch = text;  // the parser writes into it
    return WriteEXRExtraAttributes(header[0], scratch.data());
}

ErrorCode ExrFileDataBase::setStampText(const char* text) {
    if (header == nullptr) return headerMissing("setStampText");
    if (text != nullptr && *text != 0) header[0].insert("stampText", Imf::StringAttribute(text));
    return {};
}

ErrorCode ExrFileDataBase::checkChannels(
    const MUtils::Table<MUtils::RegionChannelCallback*, 100>* channels) const {
    if (channels == nullptr) return ErrorCode("setChannels", -1, "No channels specified");
    if (width == 0 || height == 0) return ErrorCode("setChannels", -2, "No resolution specified yet");
    return {};
}

ErrorCode ExrFileDataBase::writeNext(RegionFeed& feed, RegionFeed::Call& call, bool& more) {
    if (ErrorCode error = writeRegion(call.region); !error.empty()) return error;
    feed.written();
    more = feed.next(true, call);
    return {};
}

ErrorCode ExrFileDataBase::writeTiles(MUtils::MRRegionData* /*region*/) {
    return ErrorCode("writeTiles", -1, "Operation not supported");
}

ErrorCode ExrFileDataBase::flush() {
    return stream_ != nullptr ? stream_->writeBuffered() : ErrorCode();
}

// The constructor refuses odd sizes and aspects; they are set afterwards and refused when the file is opened.
Imf::Header ExrFileDataBase::makeHeader(const Imath::Box2i& dataWindow) const {
    Imf::Header made(1, 1, 1.0f, Imath::V2f(0.0f, 0.0f), 1.0f, Imf::INCREASING_Y,
                     exrCompression(compressionSetting));
    made.displayWindow() = placed({{0, 0}, {lastPixel(0, width), lastPixel(0, height)}});
    made.dataWindow() = placed(dataWindow);
    made.pixelAspectRatio() = pixelAspect;
    return made;
}

// What leaves the range of int is held within it; OpenEXR refuses such windows when the file is opened.
Imath::Box2i ExrFileDataBase::placed(const Imath::Box2i& box) const {
    const auto moved = [](int pixel, int by) {
        return static_cast<int>(std::clamp<std::int64_t>(std::int64_t{pixel} + by, INT_MIN, INT_MAX));
    };
    return {{moved(box.min.x, originX), moved(box.min.y, originY)},
            {moved(box.max.x, originX), moved(box.max.y, originY)}};
}

void ExrFileDataBase::editHeader(int part) {
    if (headerEditor == nullptr) return;
    // A copy, as the editor may throw half-way.
    Imf::Header& original = header[static_cast<std::size_t>(part)];
    Imf::Header edited = original;
    headerEditor->edit(edited, part);
    edited.displayWindow() = original.displayWindow();
    edited.dataWindow() = original.dataWindow();
    original = edited;
}

ErrorCode ExrFileDataBase::openFile(const char* operation,
                                    const std::function<void(ExrOutputStream&)>& open) {
    constexpr const char* kMessage = "Error creating OpenExr file";
    ErrorCode result = guarded(operation, kMessage, [&]() -> ErrorCode {
        stream_ = std::make_unique<ExrOutputStream>(fileName.c_str());
        if (ErrorCode cause = stream_->open(fileName.c_str()); !cause.empty()) {
            ErrorCode error(operation, -1, kMessage);
            error.setCause(std::move(cause));
            return error;
        }
        open(*stream_);
        return {};
    });
    fileCreated = 1;
    writeFailed_ = false;
    if (!result.empty() && stream_ != nullptr) {
        stream_->abandon();
        stream_.reset();
    }
    return result;
}

void ExrFileDataBase::writePixels(const std::function<void()>& write) {
    if (writeFailed_) throw std::runtime_error("An earlier write to this file failed");
    writeFailed_ = true;
    write();
    writeFailed_ = false;
}

ErrorCode ExrFileDataBase::closeFile(const std::function<void()>& release) {
    constexpr const char* kMessage = "Error closing OpenExr file";
    ErrorCode result = guarded("close", kMessage, [&release]() -> ErrorCode {
        release();
        return {};
    });
    if (stream_ == nullptr) return result;
    if (ErrorCode cause = stream_->finish(); !cause.empty()) {
        if (result.empty()) result.setError("close", -1, kMessage);
        result.setCause(std::move(cause));
    }
    stream_.reset();
    return result;
}
