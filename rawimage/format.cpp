#include "rawimage/format.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "support/bytes.h"

namespace MUtils {
inline namespace v1 {

namespace {

constexpr RIF_PIXEL_KIND kPixelKinds[] = {
    {RCT_FLOAT, TAG_CHAN_FLOAT, 4}, {RCT_COLOR, TAG_CHAN_FLOAT3, 12},  {RCT_FLOAT2, TAG_CHAN_FLOAT2, 8},
    {RCT_INT, TAG_CHAN_INT, 4},     {RCT_VECTOR, TAG_CHAN_FLOAT3, 12}, {RCT_FLOAT4, TAG_CHAN_FLOAT4, 16},
};

// Walks over a record field by field.
class FieldWriter {
  public:
    explicit FieldWriter(unsigned char* bytes) : at_(bytes) {}
    void u32(std::uint32_t value) { storeU32(advance(4), value); }
    void i32(std::int32_t value) { storeI32(advance(4), value); }
    void u64(std::uint64_t value) { storeU64(advance(8), value); }
    void f32(float value) { storeF32(advance(4), value); }

  private:
    unsigned char* advance(int bytes) {
        unsigned char* field = at_;
        at_ += bytes;
        return field;
    }
    unsigned char* at_;
};

class FieldReader {
  public:
    explicit FieldReader(const unsigned char* bytes) : at_(bytes) {}
    void u32(std::uint32_t& value) { value = loadU32(advance(4)); }
    void i32(std::int32_t& value) { value = loadI32(advance(4)); }
    void u64(std::uint64_t& value) { value = loadU64(advance(8)); }
    void f32(float& value) { value = loadF32(advance(4)); }

  private:
    const unsigned char* advance(int bytes) {
        const unsigned char* field = at_;
        at_ += bytes;
        return field;
    }
    const unsigned char* at_;
};

// Each record's fields in file order, for encoding (with const records) and decoding alike.
template <class Fields, class Header>
void headerFields(Fields fields, Header& header) {
    fields.u32(header.magic);
    fields.u32(header.formatFirst);
    fields.u32(header.formatSecond);
    fields.u64(header.infoTagsOffset);
    fields.u32(header.flags);
    fields.u64(header.reserved);
}

template <class Fields, class Tag>
void tagFields(Fields& fields, Tag& tag) {
    fields.u32(tag.id);
    fields.u32(tag.size);
    for (auto* parameter : {&tag.p1, &tag.p2, &tag.p3, &tag.p4, &tag.p5, &tag.p6, &tag.p7, &tag.p8}) {
        fields.i32(*parameter);
    }
}

template <class Fields, class Channel>
void channelFields(Fields fields, Channel& channel) {
    fields.i32(channel.index);
    fields.i32(channel.type);
    fields.i32(channel.alias);
    fields.i32(channel.flags);
}
constexpr int kChannelNameOffset = 16;

template <class Fields, class Camera>
void cameraFields(Fields fields, Camera& camera) {
    for (auto& element : camera.transform)
        fields.f32(element);
    fields.i32(camera.projection);
    for (auto* field :
         {&camera.aperture, &camera.fov, &camera.targetDistance, &camera.nearRange, &camera.farRange,
          &camera.nearClip, &camera.farClip, &camera.focalLength, &camera.fNumber}) {
        fields.f32(*field);
    }
}

template <class Fields, class Region>
void regionFields(Fields fields, Region& region) {
    for (auto* field : {&region.kind, &region.left, &region.top, &region.width, &region.height})
        fields.i32(*field);
}

}  // namespace

const RIF_PIXEL_KIND* findChannelKind(int type) {
    const auto* row = std::find_if(std::begin(kPixelKinds), std::end(kPixelKinds),
                                   [type](const RIF_PIXEL_KIND& kind) { return kind.type == type; });
    return row != std::end(kPixelKinds) ? row : nullptr;
}

const RIF_PIXEL_KIND* findPixelKind(std::uint32_t tagId) {
    const auto* row = std::find_if(std::begin(kPixelKinds), std::end(kPixelKinds),
                                   [tagId](const RIF_PIXEL_KIND& kind) { return kind.tagId == tagId; });
    return row != std::end(kPixelKinds) ? row : nullptr;
}

std::int64_t valuesBytes(std::int32_t width, std::int32_t height, int valueSize) {
    if (width < 0 || height < 0) return -1;
    const std::int64_t count = std::int64_t{width} * height;
    return count <= std::numeric_limits<std::int32_t>::max() / valueSize ? count * valueSize : -1;
}

std::int64_t pixelBytes(const RIF_TAG& tag) {
    const RIF_PIXEL_KIND* kind = findPixelKind(tag.id);
    return kind != nullptr ? valuesBytes(tag.p4, tag.p5, kind->valueSize) : 0;
}

void encodeHeader(const RIF_HEADER& header, unsigned char bytes[kFileHeaderBytes]) {
    headerFields(FieldWriter(bytes), header);
}

RIF_HEADER decodeHeader(const unsigned char bytes[kFileHeaderBytes]) {
    RIF_HEADER header;
    headerFields(FieldReader(bytes), header);
    return header;
}

void encodeTag(const RIF_TAG& tag, unsigned char bytes[kTagHeaderBytes]) {
    FieldWriter fields(bytes);
    tagFields(fields, tag);
}

RIF_TAG decodeTag(const unsigned char bytes[kTagHeaderBytes]) {
    RIF_TAG tag;
    FieldReader fields(bytes);
    tagFields(fields, tag);
    return tag;
}

void encodeInfoTag(const INFOTAG& entry, unsigned char bytes[kInfoTagBytes]) {
    FieldWriter fields(bytes);
    tagFields(fields, entry);
    fields.u64(entry.offset);
}

INFOTAG decodeInfoTag(const unsigned char bytes[kInfoTagBytes]) {
    INFOTAG entry;
    FieldReader fields(bytes);
    tagFields(fields, entry);
    fields.u64(entry.offset);
    return entry;
}

RIF_CHANNEL makeChannel(int index, int type, int alias, int flags, const char* name) {
    RIF_CHANNEL channel;
    channel.index = index;
    channel.type = type;
    channel.alias = alias;
    channel.flags = flags;
    if (name != nullptr) std::memcpy(channel.name, name, strnlen(name, kChannelNameBytes - 1));
    return channel;
}

void encodeChannel(const RIF_CHANNEL& channel, unsigned char bytes[kChannelRecordBytes]) {
    std::memset(bytes, 0, kChannelRecordBytes);
    channelFields(FieldWriter(bytes), channel);
    std::memcpy(bytes + kChannelNameOffset, channel.name, strnlen(channel.name, kChannelNameBytes - 1));
}

RIF_CHANNEL decodeChannel(const unsigned char bytes[kChannelRecordBytes]) {
    RIF_CHANNEL channel;
    channelFields(FieldReader(bytes), channel);
    std::memcpy(channel.name, bytes + kChannelNameOffset, kChannelNameBytes);
    return channel;
}

void encodeCamera(const RICameraInfo& camera, unsigned char bytes[kCameraRecordBytes]) {
    cameraFields(FieldWriter(bytes), camera);
}

RICameraInfo decodeCamera(const unsigned char bytes[kCameraRecordBytes]) {
    RICameraInfo camera;
    cameraFields(FieldReader(bytes), camera);
    return camera;
}

void encodeRegion(const RIRegionInfo& region, unsigned char bytes[kRegionRecordBytes]) {
    regionFields(FieldWriter(bytes), region);
}

RIRegionInfo decodeRegion(const unsigned char bytes[kRegionRecordBytes]) {
    RIRegionInfo region;
    regionFields(FieldReader(bytes), region);
    return region;
}

}  // namespace v1
}  // namespace MUtils
