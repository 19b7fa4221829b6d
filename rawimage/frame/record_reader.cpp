#include "rawimage/frame/record_reader.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "support/bytes.h"

namespace MUtils {
inline namespace v1 {

namespace {

constexpr int kSceneValueBytes = 4;

std::uint32_t tagIdOf(FrameBlob which) {
    switch (which) {
        case FrameBlob::kStamp: return TAG_STAMP;
        case FrameBlob::kOverlayTexts: return TAG_OVERLAY_TEXTS;
        case FrameBlob::kSettings: break;
    }
    return TAG_SETTINGS;
}

// Of the letters in the payload of a tag with text.
std::int64_t startOfText(const INFOTAG& tag) {
    return tag.id == TAG_SCENE_INFO ? kSceneValueBytes : 0;
}

std::uint32_t tagIdOf(FrameText which) {
    switch (which) {
        case FrameText::kSceneName: return TAG_SCENE_INFO;
        case FrameText::kNote: return TAG_NOTE;
        case FrameText::kStampText: break;
    }
    return TAG_STAMP_TEXT;
}

}  // namespace

// The first `size` bytes of the payload; none when they cannot be read or the tag is not the one listed.
RecordReader::Payload RecordReader::readIfListed(const INFOTAG& tag, std::int64_t size) const {
    unsigned char header[kTagHeaderBytes];
    unsigned char expected[kTagHeaderBytes];
    const auto offset = static_cast<std::int64_t>(tag.offset);
    encodeTag(snapshot_.storedHeader(tag), expected);
    if (size < 0 || size > tag.payloadBytes() || !snapshot_.source().read(offset, header, kTagHeaderBytes) ||
        std::memcmp(header, expected, kTagHeaderBytes) != 0) {
        return std::nullopt;
    }
    std::vector<unsigned char> bytes(static_cast<std::size_t>(size));
    if (!snapshot_.source().read(offset + kTagHeaderBytes, bytes.data(), bytes.size())) return std::nullopt;
    return bytes;
}

// The same; reports it when there are none.
RecordReader::Payload RecordReader::read(const INFOTAG& tag, std::int64_t size) {
    Payload bytes = readIfListed(tag, size);
    if (bytes) return bytes;
    TagGap gap;
    gap.offset = static_cast<std::int64_t>(tag.offset);
    gap.end = gap.offset + tag.size;
    gap.cause = "payload cannot be read";
    gap.tag = tag;
    damaged_.push_back(faultOf(gap, snapshot_.facts()));
    return bytes;
}

std::optional<std::string> RecordReader::wholeText(const INFOTAG& tag) {
    const Payload bytes = read(tag, tag.payloadBytes());
    if (!bytes) return std::nullopt;
    const std::int64_t start = startOfText(tag);
    if (tag.payloadBytes() <= start) return std::string();
    const auto* letters = reinterpret_cast<const char*>(bytes->data() + start);
    return std::string(letters, strnlen(letters, static_cast<std::size_t>(tag.payloadBytes() - start)));
}

std::optional<StoredText> RecordReader::shortText(const INFOTAG* tag) {
    if (tag == nullptr) return std::nullopt;
    StoredText text{tag->payloadBytes() - startOfText(*tag), {}};
    if (text.bytes > kMaxSummaryText) return text;
    std::optional<std::string> letters = wholeText(*tag);
    if (!letters) return std::nullopt;
    text.text = std::move(*letters);
    return text;
}

std::optional<std::int64_t> RecordReader::sizeOf(std::uint32_t tagId) const {
    const INFOTAG* tag = snapshot_.lastOf(tagId);
    return tag != nullptr ? std::optional(tag->payloadBytes()) : std::nullopt;
}

FrameRecords RecordReader::records() {
    FrameRecords records;
    records.region = snapshot_.facts().region;
    records.note = shortText(snapshot_.lastOf(TAG_NOTE));
    records.stampText = shortText(snapshot_.lastOf(TAG_STAMP_TEXT));
    if (const INFOTAG* tag = snapshot_.lastOf(TAG_CAMERA_INFO)) {
        if (const Payload bytes = read(*tag, kCameraRecordBytes))
            records.camera = decodeCamera(bytes->data());
    }
    if (const INFOTAG* tag = snapshot_.lastOf(TAG_SCENE_INFO)) {
        const Payload value = read(*tag, kSceneValueBytes);
        std::optional<StoredText> name = value ? shortText(tag) : std::nullopt;
        if (name) records.scene = SceneSummary{loadI32(value->data()), std::move(*name)};
    }
    records.stampBytes = sizeOf(TAG_STAMP);
    records.overlayBytes = sizeOf(TAG_OVERLAY_TEXTS);
    records.settingsBytes = sizeOf(TAG_SETTINGS);
    if (const INFOTAG* tag = snapshot_.lastOf(TAG_PREVIEW)) records.thumbnail = FrameSize{tag->p1, tag->p2};
    std::sort(damaged_.begin(), damaged_.end(),
              [](const FileFault& a, const FileFault& b) { return a.offset < b.offset; });
    records.damaged = std::move(damaged_);
    return records;
}

template <class Value>
FrameRecord<Value> RecordReader::recordOf(std::optional<Value> value) {
    FrameRecord<Value> record{std::move(value), std::nullopt};
    if (!damaged_.empty()) record.damage = std::move(damaged_.front());
    return record;
}

FrameRecord<std::vector<unsigned char>> RecordReader::blob(FrameBlob which) {
    const INFOTAG* tag = snapshot_.lastOf(tagIdOf(which));
    return recordOf(tag != nullptr ? read(*tag, tag->p1) : std::nullopt);
}

FrameRecord<std::string> RecordReader::text(FrameText which) {
    const INFOTAG* tag = snapshot_.lastOf(tagIdOf(which));
    return recordOf(tag != nullptr ? wholeText(*tag) : std::nullopt);
}

FrameRecord<FrameThumbnail> RecordReader::thumbnail() {
    static_assert(sizeof(RGB24) == 3, "stored as it is in memory");
    const INFOTAG* tag = snapshot_.lastOf(TAG_PREVIEW);
    const Payload bytes =
        tag != nullptr ? read(*tag, valuesBytes(tag->p1, tag->p2, sizeof(RGB24))) : std::nullopt;
    if (!bytes) return recordOf(std::optional<FrameThumbnail>());
    FrameThumbnail thumbnail;
    thumbnail.width = tag->p1;
    thumbnail.height = tag->p2;
    thumbnail.pixels.resize(bytes->size() / sizeof(RGB24));
    if (!bytes->empty()) std::memcpy(thumbnail.pixels.data(), bytes->data(), bytes->size());
    return recordOf(std::optional(std::move(thumbnail)));
}

}  // namespace v1
}  // namespace MUtils
