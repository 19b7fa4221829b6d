#include "rawimage/read/tag_decoder.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <memory>
#include <new>

#include "rawimage/read/callback.h"
#include "support/bytes.h"
#include "support/scratch_buffer.h"

namespace MUtils {
inline namespace v1 {

namespace {

constexpr std::int64_t kLargestRead = 1 << 30;
constexpr std::int64_t kUnconfirmed = 1 << 20;  // the most that is allocated on a tag's claim alone

}  // namespace

PixelShape pixelShape(const RIF_TAG& tag) {
    PixelShape shape;
    const RIF_PIXEL_KIND* kind = findPixelKind(tag.id);
    if (kind == nullptr) return shape;
    shape.valueSize = kind->valueSize;
    shape.bytes = pixelBytes(tag);
    if (shape.sound()) shape.count = static_cast<int>(shape.bytes / shape.valueSize);
    return shape;
}

namespace {

int decodeResolution(const RIF_TAG& tag, RIFileCallback& callback) {
    // The stored word is tested, not the number: -0.0 passes through.
    const float aspect = tag.p3 == 0 ? 1.0f : floatFromBits(static_cast<std::uint32_t>(tag.p3));
    return callback.setResolution(tag.p1, tag.p2, aspect) ? 0 : -12;
}

// Records that are cut short are passed over silently; a read that fails, or gives no byte, is the last one.
// A record size other than ours is some other writer's list: no calls, no error.
int decodeChannels(PStream& stream, const RIF_TAG& tag, RIFileCallback& callback) {
    if (tag.p2 != kChannelRecordBytes) return 0;
    if (!callback.setNumChannels(tag.p1)) return -10;
    for (int i = 0; i < tag.p1; ++i) {
        unsigned char bytes[kChannelRecordBytes] = {};
        int got = 0;
        const int code = stream.Read(bytes, kChannelRecordBytes, got);
        if (got == kChannelRecordBytes) {
            const RIF_CHANNEL channel = decodeChannel(bytes);
            if (!callback.setChannel(channel.index, static_cast<RegionChannelType>(channel.type),
                                     static_cast<RegionChannelAlias>(channel.alias), channel.name)) {
                return -11;
            }
        }
        if (code != 0 || got <= 0) break;
    }
    return 0;
}

// Reads `count` four-byte fields, one by one.
bool readFields(PStream& stream, unsigned char* bytes, int count) {
    for (int i = 0; i < count; ++i) {
        if (!readExactly(stream, bytes + 4 * i, 4)) return false;
    }
    return true;
}

int decodeCameraTag(PStream& stream, RIFileCallback& callback) {
    constexpr int kTransformBytes = 64;
    unsigned char bytes[kCameraRecordBytes] = {};
    if (!readExactly(stream, bytes, kTransformBytes)) return -1;
    if (!readFields(stream, bytes + kTransformBytes, (kCameraRecordBytes - kTransformBytes) / 4)) return -1;
    return callback.setCameraInfo(decodeCamera(bytes)) ? 0 : -18;
}

int decodeRegionTag(PStream& stream, RIFileCallback& callback) {
    unsigned char bytes[kRegionRecordBytes] = {};
    if (!readFields(stream, bytes, kRegionRecordBytes / 4)) return -1;
    return callback.setRenderRegion(decodeRegion(bytes)) ? 0 : -19;
}

// Reads values that mayHold() has accepted straight into the table, which fails only when fewer come. Where
// only the tag claims that the stream contains as many, `unconfirmed` receives them first, in growing pieces.
bool readValues(PStream& stream, int count, int valueSize, ByteBuffer& unconfirmed, MBVTable& values) {
    const std::int64_t bytes = std::int64_t{count} * valueSize;
    const bool straight = bytes <= kUnconfirmed || stream.Length() >= 0;
    if (!straight && !readPayload(stream, bytes, unconfirmed)) return false;
    values.initReusing(count, valueSize, kMaxBlockBytes);
    if (!straight) {
        values.loadFromBuffer(unconfirmed.data(), count);
        return true;
    }
    int got = 0;
    return values.read(&stream, 0, count, got) == 0 && got == count;
}

// The size comes from width and height, not from the tag's size field.
int decodePreview(PStream& stream, const RIF_TAG& tag, RIFileCallback& callback) {
    constexpr int kPixelBytes = sizeof(RGB24);
    const std::int64_t bytes = valuesBytes(tag.p1, tag.p2, kPixelBytes);
    if (!mayHold(stream, bytes)) return -20;
    const int values = static_cast<int>(bytes / kPixelBytes);
    MBVTable pixels(1, kMaxBlockBytes);
    ByteBuffer unconfirmed;
    if (!readValues(stream, values, kPixelBytes, unconfirmed, pixels)) return -20;
    return callback.setPreview(pixels, values, tag.p1, tag.p2) ? 0 : -21;
}

int decodeScene(PStream& stream, const RIF_TAG& tag, RIFileCallback& callback) {
    constexpr int kValueBytes = 4;
    unsigned char value[kValueBytes] = {};
    if (!readExactly(stream, value, kValueBytes)) return -1;
    const std::int64_t textBytes = tag.payloadBytes() - kValueBytes;
    ByteBuffer text;
    if (!readPayload(stream, textBytes, text)) return -1;
    grow(text, static_cast<std::size_t>(textBytes) + 1, static_cast<std::size_t>(textBytes))[textBytes] = 0;
    const RISceneInfo scene(loadI32(value), reinterpret_cast<const char*>(text.data()));
    return callback.setSceneInfo(scene) ? 0 : -1;
}

// The length comes from p1, not from the tag's size field.
int decodeBlob(PStream& stream, const RIF_TAG& tag, RIFileCallback& callback,
               bool (RIFileCallback::*deliver)(PBufStream*)) {
    if (!mayHold(stream, tag.p1)) return -22;
    PBufStream blob;
    if (stream.Length() >= 0) {
        blob.Alloc(tag.p1);
        if (!readExactly(stream, blob.GetBuf(), tag.p1)) return -22;
    } else {
        ByteBuffer buffer;
        if (!readPayload(stream, tag.p1, buffer)) return -22;
        blob.Alloc(tag.p1);
        if (tag.p1 > 0) std::memcpy(blob.GetBuf(), buffer.data(), static_cast<std::size_t>(tag.p1));
    }
    blob.Open();
    return (callback.*deliver)(&blob) ? 0 : -23;
}

// What cannot be read of the text is left out; a read failure is not an error here.
int readNote(PStream& stream, const RIF_TAG& tag, RIFileCallback& callback) {
    std::int64_t size = std::max<std::int64_t>(tag.payloadBytes(), 0);
    const std::int64_t length = stream.Length();
    if (length >= 0) size = std::clamp<std::int64_t>(length - stream.Tell(), 0, size);
    ByteBuffer text;
    std::int64_t have = 0;
    for (std::int64_t piece = length >= 0 ? kLargestRead : kNoteBytes; have < size;
         piece = std::min(have, kLargestRead)) {
        const auto next = static_cast<int>(std::min(size - have, piece));
        grow(text, static_cast<std::size_t>(have + next), static_cast<std::size_t>(have));
        int got = 0;
        const int code = stream.Read(text.data() + have, next, got);
        have += std::max(got, 0);
        if (code != 0 || got < next) break;
    }
    grow(text, static_cast<std::size_t>(have) + 1, static_cast<std::size_t>(have))[have] = 0;
    callback.setNote(reinterpret_cast<const char*>(text.data()));
    return 0;
}

// Always 1024 bytes, whatever size is stored: every note tag carries as many. Write results do not count.
int overwriteNote(PStream& stream, const char* text) {
    if (text == nullptr) return 0;
    // In one call, so that a writer that is killed leaves the old note or the new one.
    unsigned char payload[kNoteBytes] = {};
    std::memcpy(payload, text, strnlen(text, kNoteBytes - 1));
    int written = 0;
    stream.Write(payload, kNoteBytes, written);
    return 0;
}

}  // namespace

int decodeRecord(PStream& stream, const RIF_TAG& tag, RIFileCallback& callback) {
    switch (tag.id) {
        case TAG_RESOLUTION: return decodeResolution(tag, callback);
        case TAG_CHANNEL_INFO: return decodeChannels(stream, tag, callback);
        case TAG_CAMERA_INFO: return decodeCameraTag(stream, callback);
        case TAG_RENDER_REGION: return decodeRegionTag(stream, callback);
        case TAG_PREVIEW: return decodePreview(stream, tag, callback);
        case TAG_SCENE_INFO: return decodeScene(stream, tag, callback);
        case TAG_STAMP: return decodeBlob(stream, tag, callback, &RIFileCallback::setStampData);
        case TAG_OVERLAY_TEXTS: return decodeBlob(stream, tag, callback, &RIFileCallback::setOverlayTextData);
        case TAG_SETTINGS: return decodeBlob(stream, tag, callback, &RIFileCallback::setMirtSettings);
        case TAG_NOTE:
            return callback.setNote(nullptr) ? readNote(stream, tag, callback)
                                             : overwriteNote(stream, callback.getNote());
        // Bucket sizes, the table and the stamp text have no operation: no reader delivers them.
        default: return 0;
    }
}

namespace {

constexpr int kStopVerdict = 0;
constexpr int kSkipVerdict = 2;

int codeOf(PixelFault fault) {
    switch (fault) {
        case PixelFault::kNotInflatable: return kPixelsNotInflatable;
        case PixelFault::kWrongLength: return kPixelsWrongLength;
        case PixelFault::kNone: break;
    }
    return 0;
}

// False for a payload that is shorter than the values: the next tag's bytes would be read as pixels.
bool holdsRaw(const RIF_TAG& tag, const PixelShape& shape) {
    return tag.size < kTagHeaderBytes || tag.payloadBytes() >= shape.bytes;
}

// What a longer payload has behind the values is not read.
bool mayHoldRaw(PStream& stream, const RIF_TAG& tag, const PixelShape& shape) {
    return holdsRaw(tag, shape) && mayHold(stream, shape.bytes);
}

// Whether a payload can inflate to the values at all: 0 or a PixelCode.
int claimCode(const RIF_TAG& tag, const PixelShape& shape) {
    if (!shape.sound()) return kPixelsNotInflatable;
    const std::size_t most = inflateLimit(static_cast<std::size_t>(tag.payloadBytes()));
    return static_cast<std::size_t>(shape.bytes) > most ? kPixelsWrongLength : 0;
}

bool readRooms(PStream& stream, std::int64_t bytes, ValueRooms& rooms) {
    while (bytes > 0) {
        const ValueRooms::Room room = rooms.next();
        const std::int64_t size = std::min(bytes, static_cast<std::int64_t>(room.size));
        if (size == 0 || !readExactly(stream, room.data, static_cast<int>(size))) return false;
        bytes -= size;
    }
    return true;
}

}  // namespace

int decodeValues(const RIF_TAG& tag, bool compressed, const unsigned char* payload, Inflater& inflater,
                 ByteBuffer& room, const unsigned char*& values) {
    const PixelShape shape = pixelShape(tag);
    if (!compressed) {
        values = payload;
        return shape.sound() && holdsRaw(tag, shape) ? 0 : kPixelsUnreadable;
    }
    if (const int code = claimCode(tag, shape); code != 0) return code;
    auto inflated = static_cast<std::size_t>(shape.bytes);
    values = reserve(room, std::max<std::size_t>(inflated, 1));
    if (inflater.uncompress(room.data(), inflated, payload, static_cast<std::size_t>(tag.payloadBytes())) !=
        0)
        return kPixelsNotInflatable;
    return inflated == static_cast<std::size_t>(shape.bytes) ? 0 : kPixelsWrongLength;
}

int TagDecoder::decode(PStream& stream, RIF_TAG& tag, bool compressed, RIFileCallback& callback) {
    const int verdict = callback.parseTag(tag);
    if (verdict == kStopVerdict) return -9;
    if (verdict == kSkipVerdict) return 0;
    return isPixelTag(tag.id) ? deliverPixels(stream, tag, compressed, callback)
                              : decodeRecord(stream, tag, callback);
}

int TagDecoder::deliverPixels(PStream& stream, const RIF_TAG& tag, bool compressed,
                              RIFileCallback& callback) {
    const PixelShape shape = pixelShape(tag);
    int code;
    try {
        code = compressed ? readZipped(stream, tag, shape) : readRaw(stream, tag, shape);
    } catch (const std::bad_alloc&) {
        code = compressed ? kPixelsNotInflatable : kPixelsUnreadable;
    }
    if (code != 0) return code;
    return callback.setImageData(pixels_, shape.count, tag.p8, tag.p2, tag.p3, tag.p4, tag.p5, tag.p6, tag.p7)
               ? 0
               : kPixelsRefused;
}

int TagDecoder::readZipped(PStream& stream, const RIF_TAG& tag, const PixelShape& shape) {
    PixelFault fault = PixelFault::kNone;
    const bool whole = readInflated(stream, tag.payloadBytes(), shape, zipped_, inflater_, pixels_, fault);
    return whole ? codeOf(fault) : kPixelsCutShort;
}

int TagDecoder::readRaw(PStream& stream, const RIF_TAG& tag, const PixelShape& shape) {
    const bool read =
        mayHoldRaw(stream, tag, shape) && readValues(stream, shape.count, shape.valueSize, raw_, pixels_);
    return read ? 0 : kPixelsUnreadable;
}

int TagDecoder::readPixels(PStream& stream, const RIF_TAG& tag, bool compressed, ValueRooms& rooms) {
    const PixelShape shape = pixelShape(tag);
    if (!compressed) {
        const bool read = mayHoldRaw(stream, tag, shape) && readRooms(stream, shape.bytes, rooms);
        return read ? 0 : kPixelsUnreadable;
    }
    if (!mayHold(stream, tag.payloadBytes())) return kPixelsCutShort;
    if (const int code = claimCode(tag, shape); code != 0) return code;
    PixelFault fault = PixelFault::kNone;
    const bool whole = readInflated(stream, tag.payloadBytes(), shape, zipped_, inflater_, rooms, fault);
    return whole ? codeOf(fault) : kPixelsCutShort;
}

}  // namespace v1
}  // namespace MUtils
