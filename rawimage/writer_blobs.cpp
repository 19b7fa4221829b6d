#include <climits>
#include <cstring>
#include <utility>

#include "rawimage/writer.h"
#include "support/bytes.h"

using namespace MUtils;

// The writers of frame metadata: text and opaque data, which go into the table, and the three fixed records,
// which do not.

struct RIFile::Blob {
    const char* operation;
    std::uint32_t id;
    const void* data;
    std::int64_t size;  // of the payload; out of range when the caller's numbers are
    int p1;
    int p2;
    const char* missing;  // message when `data` is null
    const char* failed;   // message when the payload is not written
};

struct RIFile::Record {
    const char* operation;
    std::uint32_t id;
    const unsigned char* bytes;
    int size;
    int firstWrite;  // bytes of the first write; the rest goes in fields of four
    const char* failed;
};

ErrorCode RIFile::writeBlob(const Blob& blob) {
    ErrorCode result;
    if (stream == nullptr) {
        result = ErrorCode(blob.operation, -1, "No file stream");
    } else if (blob.data == nullptr) {
        result = ErrorCode(blob.operation, -1, "%s", blob.missing);
    } else if (blob.size < 0 || blob.size > INT_MAX - kTagHeaderBytes) {
        result = ErrorCode(blob.operation, -1, blob.failed, 0);
    } else {
        const int size = static_cast<int>(blob.size);
        ErrorCode headerError = WriteTagHeader(static_cast<int>(blob.id), size, blob.p1, blob.p2);
        int written = 0;
        if (!headerError.empty()) {
            result = chained(std::move(headerError), blob.operation, "Error writing tag header.");
        } else if (const int code = stream->Write(blob.data, size, written); code == 0 && written < size) {
            // The number in the message is what Write returned, so always 0. A real error passes here,
            // deliberately: the next tag header or Close reports it.
            result = ErrorCode(blob.operation, -1, blob.failed, code);
        }
    }
    lastError = result.getError();
    return result;
}

ErrorCode RIFile::WTStamp(void* data, int size) {
    return writeBlob(
        {"WTStamp", TAG_STAMP, data, size, size, 0, "No stamp", "Error writing stamp buffer (%i)."});
}

ErrorCode RIFile::WTOverlayTexts(void* data, int size) {
    return writeBlob({"WTOverlayTexts", TAG_OVERLAY_TEXTS, data, size, size, 0, "No overlay texts",
                      "Error writing overlay texts buffer (%i)."});
}

ErrorCode RIFile::WTMirtSettings(void* data, int size) {
    return writeBlob({"WTMirtSettings", TAG_SETTINGS, data, size, size, 0, "No Mirt Settings buffer",
                      "Error writing Mirt Settings buffer (%i)."});
}

// Unlike the blobs this one has p1 = 0. No reader delivers it.
ErrorCode RIFile::WTStampText(const char* text) {
    const std::int64_t size = text != nullptr ? static_cast<std::int64_t>(std::strlen(text)) + 1 : 0;
    return writeBlob(
        {"WTStampText", TAG_STAMP_TEXT, text, size, 0, 0, "No stamp text", "Error writing stamp text (%i)."});
}

ErrorCode RIFile::WTPreview(MUtils::RGB24* pixels, int width, int height) {
    constexpr std::int64_t kPixelBytes = sizeof(MUtils::RGB24);
    const std::int64_t count = std::int64_t{width} * height;
    const bool sound = width >= 0 && height >= 0 && count <= INT_MAX / kPixelBytes;
    return writeBlob({"WTPreview", TAG_PREVIEW, pixels, sound ? count * kPixelBytes : -1, width, height,
                      "No data buffer.", "Error writing preview buffer (%i)."});
}

ErrorCode RIFile::WTNote(const char* note) {
    constexpr const char* kName = "WTNote";
    constexpr const char* kFailed = "Error writing note (%i).";
    const std::size_t length = note != nullptr ? std::strlen(note) : 0;
    ErrorCode result;
    if (stream == nullptr) {
        result = ErrorCode(kName, -1, "No file stream");
    } else if (note == nullptr) {
        result = ErrorCode(kName, -1, "No note");
    } else if (length >= kNoteBytes) {
        result = ErrorCode(kName, -1, kFailed, 0);
    } else if (ErrorCode headerError = WriteTagHeader(TAG_NOTE, kNoteBytes); !headerError.empty()) {
        result = chained(std::move(headerError), kName, "Error writing tag header.");
    } else {
        const int text = static_cast<int>(length) + 1;
        const unsigned char zeros[kNoteBytes] = {};
        int written = 0;
        stream->Write(note, text, written);
        const int code = stream->Write(zeros, kNoteBytes - text, written);
        // The fill is held against the text's length, deliberately: a note of 512 characters or more is
        // written whole and answered with an error.
        if (code == 0 && written < text) result = ErrorCode(kName, -1, kFailed, code);
    }
    lastError = result.getError();
    return result;
}

ErrorCode RIFile::addNote(const char* note) {
    const std::size_t length = note != nullptr ? std::strlen(note) : 0;
    char bytes[kNoteBytes] = {};
    std::int64_t size = -1;
    if (length < kNoteBytes) {
        if (note != nullptr) std::memcpy(bytes, note, length);
        size = kNoteBytes;
    }
    return writeBlob({"addNote", TAG_NOTE, note != nullptr ? bytes : nullptr, size, 0, 0, "No note",
                      "Error writing note (%i)."});
}

// The three records below write their own header, without an entry in the table, and leave the last error
// alone: readers find them by walking.

ErrorCode RIFile::WTCameraInfo(const RICameraInfo& camera) {
    unsigned char bytes[kCameraRecordBytes];
    encodeCamera(camera, bytes);
    constexpr int kTransformBytes = 64;
    return writeRecord({"WTCameraInfo", TAG_CAMERA_INFO, bytes, kCameraRecordBytes, kTransformBytes,
                        "Error writing camera information"});
}

// The camera's message is meant: tools know it for both.
ErrorCode RIFile::WTRenderRegion(const RIRegionInfo& region) {
    unsigned char bytes[kRegionRecordBytes];
    encodeRegion(region, bytes);
    return writeRecord({"WTRenderRegion", TAG_RENDER_REGION, bytes, kRegionRecordBytes, 4,
                        "Error writing camera information"});
}

ErrorCode RIFile::writeRecord(const Record& record) {
    if (stream == nullptr) return ErrorCode(record.operation, -1, "No file stream");
    RIF_TAG tag;
    tag.id = record.id;
    tag.size = static_cast<std::uint32_t>(record.size) + kTagHeaderBytes;
    if (!writeBareHeader(tag)) return ErrorCode(record.operation, -1, "Error writing tag header.");
    for (int at = 0, size = record.firstWrite; at < record.size; at += std::exchange(size, 4)) {
        if (!writeField(record.bytes + at, size)) return ErrorCode(record.operation, -1, "%s", record.failed);
    }
    return {};
}

// A scene without a name is stored with an empty one, so its payload is never under five bytes.
ErrorCode RIFile::WTSceneInfo(RISceneInfo& scene) {
    constexpr const char* kName = "WTSceneInfo";
    if (stream == nullptr) return ErrorCode(kName, -1, "No file stream");
    const char* name = scene.name != nullptr ? scene.name : "";
    const std::size_t nameBytes = std::strlen(name) + 1;
    if (nameBytes > INT_MAX - kTagHeaderBytes - 4) return ErrorCode(kName, -1, "Error writing scene info");
    RIF_TAG tag;
    tag.id = TAG_SCENE_INFO;
    tag.size = static_cast<std::uint32_t>(kTagHeaderBytes + 4 + nameBytes);
    if (!writeBareHeader(tag)) return ErrorCode(kName, -1, "Error writing tag header.");
    unsigned char value[4];
    MUtils::storeI32(value, scene.value);
    if (!writeField(value, 4) || !writeField(name, static_cast<int>(nameBytes))) {
        return ErrorCode(kName, -1, "Error writing scene info");
    }
    return {};
}
