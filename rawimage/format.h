#pragma once

#include <cstdint>

#include "export.h"
#include "records.h"

// The facts of the raw image file: a 32-byte file header, then tags of a 40-byte header and a payload each,
// at the end of a finished file the table of its tags. docs/raw_format.md describes all of it. Encoders and
// decoders are side by side in format.cpp; on disk everything is little-endian, without gaps.

namespace MUtils {
inline namespace v1 {

constexpr std::uint32_t RIF_MAGIC = 0x474D4952;  // "RIMG"
constexpr std::uint32_t RIF_FORMAT_FIRST = 1;    // written, never tested
constexpr std::uint32_t RIF_FORMAT_SECOND = 3;   // written, never tested

constexpr int kFileHeaderBytes = 32;
constexpr int kTagHeaderBytes = 40;
constexpr int kInfoTagBytes = 48;
constexpr int kChannelRecordBytes = 80;
constexpr int kChannelNameBytes = 64;
constexpr int kCameraRecordBytes = 104;
constexpr int kRegionRecordBytes = 20;
constexpr int kNoteBytes = 1024;
constexpr int kTableOffsetPosition = 12;   // where the file header keeps the table's offset
constexpr int kMaxBlockBytes = 0x2000000;  // a reader's blocks: a bucket's values lie in one
constexpr int kCompressionLevel = 9;
// "WIND". In p7 of a pixel tag of height 0 it states a channel's window, outside which the channel was not
// rendered: p2 x, p3 y, p4 width, p6 height. WTRegion writes it of a region of height 0.
constexpr std::int32_t kChannelWindowMark = 0x444E4957;

}  // namespace v1
}  // namespace MUtils

constexpr std::uint32_t RIF_COMPRESSED = 1;  // flag: the region writer's pixel payloads are zlib streams

enum RIF_TAG_ID : std::uint32_t {
    TAG_RESOLUTION = 256,
    TAG_REGIONS_INFO = 257,
    TAG_CHAN_FLOAT3 = 258,
    TAG_CHAN_FLOAT2 = 259,
    TAG_CHAN_FLOAT = 260,
    TAG_CHAN_INT = 261,
    TAG_CHANNEL_INFO = 262,
    TAG_INFO_TAGS = 263,
    TAG_CAMERA_INFO = 264,
    TAG_RENDER_REGION = 265,
    TAG_PREVIEW = 266,
    TAG_SCENE_INFO = 267,
    TAG_STAMP = 268,
    TAG_NOTE = 269,
    TAG_CHAN_FLOAT4 = 270,
    TAG_STAMP_TEXT = 271,
    TAG_OVERLAY_TEXTS = 272,
    TAG_SETTINGS = 273
};

// A tag header. `size` counts these 40 bytes and the payload. What p1 to p8 mean depends on the id; for a
// pixel tag: channel type, x, y, width, height, two integers of the caller's, channel index.
struct RIF_TAG {
    std::uint32_t id = 0;
    std::uint32_t size = 0;
    std::int32_t p1 = 0;
    std::int32_t p2 = 0;
    std::int32_t p3 = 0;
    std::int32_t p4 = 0;
    std::int32_t p5 = 0;
    std::int32_t p6 = 0;
    std::int32_t p7 = 0;
    std::int32_t p8 = 0;

    // Bytes after the header; negative when the size field is less than the header's own 40.
    std::int64_t payloadBytes() const { return std::int64_t{size} - MUtils::kTagHeaderBytes; }
};
static_assert(sizeof(RIF_TAG) == MUtils::kTagHeaderBytes, "callers index its words by their byte offset");

// A tag and the file offset of its header.
struct INFOTAG : RIF_TAG {
    std::uint64_t offset = 0;
};
static_assert(sizeof(INFOTAG) == MUtils::kInfoTagBytes, "callers size the list by it");

namespace MUtils {
inline namespace v1 {

constexpr std::uint32_t kFirstTagId = TAG_RESOLUTION;
constexpr std::uint32_t kLastTagId = TAG_SETTINGS;

struct RIF_HEADER {
    std::uint32_t magic = 0;
    std::uint32_t formatFirst = 0;
    std::uint32_t formatSecond = 0;
    std::uint64_t infoTagsOffset =
        0;  // file offset of the table's tag header; 0 in a file that was never closed
    std::uint32_t flags = 0;
    std::uint64_t reserved = 0;
};

// One channel as the file lists it.
struct RIF_CHANNEL {
    std::int32_t index = -1;
    std::int32_t type = 0;
    std::int32_t alias = 0;
    std::int32_t flags = 0;
    char name[kChannelNameBytes + 1] = {};  // always ends in NUL
};

// A channel type, the pixel tag it is stored under, and the bytes of a value.
struct RIF_PIXEL_KIND {
    int type;
    std::uint32_t tagId;
    int valueSize;
};

// The row of a channel type 1 to 6, or null.
RAWIMAGE_EXPORT const RIF_PIXEL_KIND* findChannelKind(int type);
// A row of the pixel tag `tagId`, or null for any other id; types 2 and 5 share a tag, so only its value size
// counts.
RAWIMAGE_EXPORT const RIF_PIXEL_KIND* findPixelKind(std::uint32_t tagId);
inline bool isPixelTag(std::uint32_t tagId) {
    return findPixelKind(tagId) != nullptr;
}

// Bytes of width x height values; -1 when a side is negative, or for more bytes than 31 bits count.
RAWIMAGE_EXPORT std::int64_t valuesBytes(std::int32_t width, std::int32_t height, int valueSize);
// Bytes of the values of a pixel tag, uncompressed; -1 when its parameters make no sense, 0 for any other
// tag.
RAWIMAGE_EXPORT std::int64_t pixelBytes(const RIF_TAG& tag);

// "note", "camera", "float3 pixels", ...; "unknown" for an id that the format does not have.
RAWIMAGE_EXPORT const char* tagName(std::uint32_t tagId);

RAWIMAGE_EXPORT void encodeHeader(const RIF_HEADER& header, unsigned char bytes[kFileHeaderBytes]);
RAWIMAGE_EXPORT RIF_HEADER decodeHeader(const unsigned char bytes[kFileHeaderBytes]);

RAWIMAGE_EXPORT void encodeTag(const RIF_TAG& tag, unsigned char bytes[kTagHeaderBytes]);
RAWIMAGE_EXPORT RIF_TAG decodeTag(const unsigned char bytes[kTagHeaderBytes]);

RAWIMAGE_EXPORT void encodeInfoTag(const INFOTAG& entry, unsigned char bytes[kInfoTagBytes]);
RAWIMAGE_EXPORT INFOTAG decodeInfoTag(const unsigned char bytes[kInfoTagBytes]);

// Of the name at most 63 characters are stored; the rest of the field is zeros.
RAWIMAGE_EXPORT void encodeChannel(const RIF_CHANNEL& channel, unsigned char bytes[kChannelRecordBytes]);
// A channel record. The name may be null, which counts as "", and need not end within its first 63
// characters, which are all that is taken of it.
RAWIMAGE_EXPORT RIF_CHANNEL makeChannel(int index, int type, int alias, int flags, const char* name);
RAWIMAGE_EXPORT RIF_CHANNEL decodeChannel(const unsigned char bytes[kChannelRecordBytes]);

RAWIMAGE_EXPORT void encodeCamera(const RICameraInfo& camera, unsigned char bytes[kCameraRecordBytes]);
RAWIMAGE_EXPORT RICameraInfo decodeCamera(const unsigned char bytes[kCameraRecordBytes]);

RAWIMAGE_EXPORT void encodeRegion(const RIRegionInfo& region, unsigned char bytes[kRegionRecordBytes]);
RAWIMAGE_EXPORT RIRegionInfo decodeRegion(const unsigned char bytes[kRegionRecordBytes]);

}  // namespace v1
}  // namespace MUtils
