#include "rawimage/tools/summary.h"

#include <algorithm>
#include <cstring>
#include <system_error>
#include <utility>

#include "rawimage/inspect/payload_pool.h"
#include "rawimage/tag_rules.h"
#include "rawimage/tools/channel_stats.h"
#include "support/bytes.h"

namespace MUtils {
inline namespace v1 {

namespace {

// Reads the records that a summary shows of the sound tags of a file.
class SummaryReader {
  public:
    SummaryReader(PStream& stream, FileSummary& summary) : stream_(stream), summary_(summary) {}

    void take(const INFOTAG& tag);

  private:
    bool read(const INFOTAG& tag, std::int64_t start, std::int64_t size);
    StoredText readText(const INFOTAG& tag, std::int64_t start);
    void readCamera(const INFOTAG& tag);
    void readScene(const INFOTAG& tag);

    PStream& stream_;
    FileSummary& summary_;
    ByteBuffer bytes_;
};

void SummaryReader::take(const INFOTAG& tag) {
    switch (tag.id) {
        case TAG_RESOLUTION: {
            const float aspect = floatFromBits(static_cast<std::uint32_t>(tag.p3));
            summary_.resolution = FrameResolution{{tag.p1, tag.p2}, tag.p3 != 0 ? aspect : 1.0f};
            break;
        }
        case TAG_REGIONS_INFO: summary_.buckets = BucketSize{{tag.p1, tag.p2}, tag.p3 != 0}; break;
        case TAG_PREVIEW: summary_.preview = FrameSize{tag.p1, tag.p2}; break;
        case TAG_STAMP: summary_.stampBytes = tag.p1; break;
        case TAG_OVERLAY_TEXTS: summary_.overlayBytes = tag.p1; break;
        case TAG_SETTINGS: summary_.settingsBytes = tag.p1; break;
        case TAG_NOTE: summary_.note = readText(tag, 0); break;
        case TAG_STAMP_TEXT: summary_.stampText = readText(tag, 0); break;
        case TAG_SCENE_INFO: readScene(tag); break;
        case TAG_CAMERA_INFO: readCamera(tag); break;
        default: break;
    }
}

// A payload's bytes, or damage where they cannot be read.
bool SummaryReader::read(const INFOTAG& tag, std::int64_t start, std::int64_t size) {
    const auto offset = static_cast<std::int64_t>(tag.offset);
    if (readPayloadAt(stream_, offset + kTagHeaderBytes + start, size, bytes_)) return true;
    if (summary_.state == FileState::kDamaged) return false;
    summary_.state = FileState::kDamaged;
    summary_.cause = "payload cannot be read";
    summary_.faultOffset = offset;
    return false;
}

// The text of a payload from its byte `start` on, up to its NUL.
StoredText SummaryReader::readText(const INFOTAG& tag, std::int64_t start) {
    StoredText text{tag.payloadBytes() - start, {}};
    if (text.bytes > kMaxSummaryText || text.bytes < 1) return text;
    if (!read(tag, start, text.bytes)) return text;
    const auto* letters = reinterpret_cast<const char*>(bytes_.data());
    text.text.assign(letters, strnlen(letters, static_cast<std::size_t>(text.bytes)));
    return text;
}

void SummaryReader::readCamera(const INFOTAG& tag) {
    if (read(tag, 0, kCameraRecordBytes)) summary_.camera = decodeCamera(bytes_.data());
}

void SummaryReader::readScene(const INFOTAG& tag) {
    constexpr int kValueBytes = 4;
    if (!read(tag, 0, kValueBytes)) return;
    const int value = loadI32(bytes_.data());
    summary_.scene = SceneSummary{value, readText(tag, kValueBytes)};
}

FileSummary failed(int code) {
    FileSummary summary;
    summary.state = FileState::kCannotOpen;
    summary.cause = std::generic_category().message(code);
    return summary;
}

}  // namespace

std::int64_t framePixels(const FileSummary& summary) {
    if (!summary.resolution || summary.resolution->width < 1 || summary.resolution->height < 1) return 0;
    return std::int64_t{summary.resolution->width} * summary.resolution->height;
}

FileSummary summarise(PStream& stream, const Inspection& file) {
    FileSummary summary;
    summary.state = file.state;
    summary.cause = file.cause;
    summary.faultOffset = file.causeOffset;
    summary.fileBytes = std::max<std::int64_t>(file.fileBytes, 0);
    summary.header = file.header;
    if (file.state == FileState::kNotThisFormat || file.state == FileState::kCannotOpen) return summary;
    summary.finished = file.tableOffset != 0;
    summary.tagCount = static_cast<std::int64_t>(file.tags.size());
    summary.region = file.facts.region;
    SummaryReader reader(stream, summary);
    ChannelStats stats;
    for (const INFOTAG& tag : file.tags) {
        const bool foreign =
            file.foreignFrom > 0 && static_cast<std::int64_t>(tag.offset) >= file.foreignFrom;
        if (!foreign) reader.take(tag);
        if (isPixelTag(tag.id)) stats.add(tag, pixelBytes(tag));
    }
    stats.summarise(file, summary);
    return summary;
}

FileSummary summariseStream(PStream& stream, bool keepTags) {
    InspectOptions options;
    options.depth = InspectDepth::kRecords;
    options.threads = 1;
    Inspection file = inspectStream(stream, options);
    FileSummary summary = summarise(stream, file);
    if (keepTags) summary.tags = std::move(file.tags);
    return summary;
}

FileSummary summariseFile(const char* fileName, bool keepTags) {
    PFileStream file;
    const int code = file.Open(fileName, PFileStream::kRead, 1, PFileStream::kOpenExisting);
    return code == 0 ? summariseStream(file, keepTags) : failed(code);
}

}  // namespace v1
}  // namespace MUtils
