#include "rawimage/tools/summary.h"

#include <algorithm>
#include <cstring>
#include <system_error>
#include <utility>

#include "rawimage/payload_range.h"
#include "rawimage/read/accepting_callback.h"
#include "rawimage/tools/channel_stats.h"
#include "rawimage/writer.h"
#include "support/bytes.h"

namespace MUtils {

namespace {

enum TagVerdict : int { kStop = 0, kDecode = 1, kSkip = 2 };

std::string number(std::int64_t value) {
    return std::to_string(value);
}

bool isKnown(std::uint32_t tagId) {
    return tagId >= kFirstTagId && tagId <= kLastTagId;
}

std::string describe(const RIF_TAG& tag) {
    return std::string(tagName(tag.id)) + " tag";
}

// The reader, with the file header that it has read.
class WalkedFile : public RIFile {
  public:
    const RIF_HEADER& fileHeader() const { return header; }
    int readTagAt(std::int64_t offset, RIF_TAG& tag) {
        int got = 0;
        const int code = stream->Seek(offset);
        return code == 0 && readTagHeader(tag, got) == 0 && got == kTagHeaderBytes ? 0 : -1;
    }
};

// Sees every tag header before its payload is touched, so the tags of a broken file are told up to where it
// breaks. What the reader can decode it decodes; the rest (flags of channels, stamp text) is read here.
class SummaryWalk final : public AcceptingCallback {
  public:
    SummaryWalk(PStream& stream, FileSummary& summary, bool keepTags)
        : stream_(stream), summary_(summary), keepTags_(keepTags), length_(stream.Length()) {
        file_.SetStream(&stream);
    }

    void run();

    int parseTag(RIF_TAG& tag) override;
    bool setResolution(int width, int height, float aspect) override;
    bool setCameraInfo(const RICameraInfo& info) override;
    bool setRenderRegion(const RIRegionInfo& region) override;
    bool setSceneInfo(RISceneInfo info) override;
    bool setNote(const char* text) override;

  private:
    struct Table {
        std::int64_t offset = -1;
        std::int64_t entries = 0;
        std::int64_t mostEntries = 0;   // tags before it
        std::int64_t leastEntries = 0;  // of these, the ones that every writer lists
    };

    void fault(FileVerdict verdict, std::int64_t offset, std::string cause);
    void enter(const RIF_TAG& tag);
    bool isTooSmall(const RIF_TAG& tag);
    bool isCut(const RIF_TAG& tag, const PayloadRange& range);
    bool isDecodable(const RIF_TAG& tag, const PayloadRange& range);
    int take(const RIF_TAG& tag);
    int takeNote(const RIF_TAG& tag);
    int takeScene(const RIF_TAG& tag);
    void takeChannels(const RIF_TAG& tag);
    void takeStampText(const RIF_TAG& tag);
    bool checkStart(int code);
    void checkEnd(int code);
    void checkTable();
    void checkOffset(std::int64_t offset);
    void checkEntries();

    PStream& stream_;
    FileSummary& summary_;
    const bool keepTags_;
    WalkedFile file_;
    ChannelStats stats_;
    std::vector<RIF_CHANNEL> listed_;
    SceneSummary scene_;
    StoredText note_;

    std::int64_t length_;                       // -1 when the stream cannot tell
    std::int64_t tagStart_ = kFileHeaderBytes;  // of the tag met last
    std::int64_t tagEnd_ = kFileHeaderBytes;    // by its size field
    bool stopped_ = false;                      // at that tag, by its own fault
    std::int64_t mustBeListed_ = 0;             // tags met that every writer enters in the table
    std::optional<std::uint32_t> idAtOffset_;   // of the tag that the header's table offset leads to
    Table table_;                               // the last one met
};

// Damage outdoes what is only unfinished; of equals the first stays.
void SummaryWalk::fault(FileVerdict verdict, std::int64_t offset, std::string cause) {
    const bool worse = summary_.verdict == FileVerdict::kGood ||
                       (summary_.verdict == FileVerdict::kUnfinished && verdict != FileVerdict::kUnfinished);
    if (!worse) return;
    summary_.verdict = verdict;
    summary_.faultOffset = offset;
    summary_.cause = std::move(cause);
}

void SummaryWalk::run() {
    const int code = file_.ParseFile(*this);
    summary_.header = file_.fileHeader();
    if (checkStart(code)) {
        if (length_ < 0) length_ = tagEnd_;
        checkEnd(code);
        stats_.summarise(listed_, summary_);
    }
    summary_.fileBytes = std::max<std::int64_t>(length_, 0);
}

bool SummaryWalk::checkStart(int code) {
    if (code == -3) {
        fault(FileVerdict::kNotThisFormat, 0, "not a raw image file");
    } else if (code == -2 && length_ >= kFileHeaderBytes) {
        fault(FileVerdict::kCannotOpen, 0, "the file header cannot be read");
    } else if (code == -2) {
        fault(FileVerdict::kNotThisFormat, 0, "shorter than the file header of a raw image file");
    } else if (!stream_.IsOpen()) {
        fault(FileVerdict::kCannotOpen, 0, "not open");
    }
    return summary_.verdict != FileVerdict::kNotThisFormat && summary_.verdict != FileVerdict::kCannotOpen;
}

int SummaryWalk::parseTag(RIF_TAG& tag) {
    enter(tag);
    const PayloadRange range = payloadRange(tag, (file_.fileHeader().flags & RIF_COMPRESSED) != 0);
    stopped_ = isTooSmall(tag) || isCut(tag, range);
    if (stopped_) return kStop;
    return isDecodable(tag, range) ? take(tag) : kSkip;
}

void SummaryWalk::enter(const RIF_TAG& tag) {
    tagStart_ = tagEnd_;
    tagEnd_ = tagStart_ + tag.size;
    ++summary_.tagCount;
    const auto offset = static_cast<std::uint64_t>(tagStart_);
    if (offset == file_.fileHeader().infoTagsOffset) idAtOffset_ = tag.id;
    if (!keepTags_) return;
    INFOTAG entry;
    static_cast<RIF_TAG&>(entry) = tag;
    entry.offset = offset;
    summary_.tags.push_back(entry);
}

bool SummaryWalk::isTooSmall(const RIF_TAG& tag) {
    if (tag.size >= kTagHeaderBytes) return false;
    fault(FileVerdict::kDamaged, tagStart_,
          describe(tag) + ": its " + number(tag.size) + " bytes are less than a tag header");
    return true;
}

// A tag that goes past the end of the file. Its size is believed when its other fields allow it.
bool SummaryWalk::isCut(const RIF_TAG& tag, const PayloadRange& range) {
    // A render may be writing on.
    if (length_ >= 0 && tagEnd_ > length_) length_ = stream_.Length();
    if (length_ < 0 || tagEnd_ <= length_) return false;
    const std::int64_t payload = tag.payloadBytes();
    if (isKnown(tag.id) && range.possible() && range.least <= payload && payload <= range.most) {
        const std::int64_t there = length_ - tagStart_ - kTagHeaderBytes;
        fault(FileVerdict::kUnfinished, tagStart_,
              describe(tag) + ": cut, " + number(there) + " of " + number(payload) +
                  " payload bytes are there");
    } else {
        fault(FileVerdict::kDamaged, tagStart_,
              describe(tag) + ": its " + number(tag.size) + " bytes go past the end of the file");
    }
    return true;
}

// Whether a whole tag says what its payload is, and has as much.
bool SummaryWalk::isDecodable(const RIF_TAG& tag, const PayloadRange& range) {
    if (!range.possible()) {
        fault(FileVerdict::kDamaged, tagStart_, describe(tag) + ": impossible parameters");
        return false;
    }
    if (tag.payloadBytes() >= range.least) return true;
    fault(FileVerdict::kDamaged, tagStart_,
          describe(tag) + ": " + number(tag.payloadBytes()) + " payload bytes, at least " +
              number(range.least) + " are due");
    return false;
}

int SummaryWalk::take(const RIF_TAG& tag) {
    switch (tag.id) {
        // The four whose writers leave no entry in the table, or not always.
        case TAG_CHANNEL_INFO: takeChannels(tag); return kSkip;
        case TAG_CAMERA_INFO:
        case TAG_RENDER_REGION: return kDecode;
        case TAG_SCENE_INFO: return takeScene(tag);
        case TAG_INFO_TAGS: table_ = {tagStart_, tag.p1, summary_.tagCount - 1, mustBeListed_}; return kSkip;
        default: mustBeListed_ += isKnown(tag.id) ? 1 : 0;
    }
    switch (tag.id) {
        case TAG_RESOLUTION: return kDecode;
        case TAG_REGIONS_INFO: summary_.buckets = BucketSize{{tag.p1, tag.p2}, tag.p3 != 0}; break;
        case TAG_PREVIEW: summary_.preview = FrameSize{tag.p1, tag.p2}; break;
        case TAG_STAMP: summary_.stampBytes = tag.p1; break;
        case TAG_OVERLAY_TEXTS: summary_.overlayBytes = tag.p1; break;
        case TAG_SETTINGS: summary_.settingsBytes = tag.p1; break;
        case TAG_STAMP_TEXT: takeStampText(tag); break;
        case TAG_NOTE: return takeNote(tag);
        default:
            if (isPixelTag(tag.id)) stats_.add(tag, pixelBytes(tag));
    }
    return kSkip;
}

bool SummaryWalk::setResolution(int width, int height, float aspect) {
    summary_.resolution = FrameResolution{{width, height}, aspect};
    return true;
}

bool SummaryWalk::setCameraInfo(const RICameraInfo& info) {
    summary_.camera = info;
    return true;
}

bool SummaryWalk::setRenderRegion(const RIRegionInfo& region) {
    summary_.region = region;
    return true;
}

// Texts are left to the reader, unless they are too long.
int SummaryWalk::takeNote(const RIF_TAG& tag) {
    note_ = {tag.payloadBytes(), {}};
    if (note_.bytes <= kMaxSummaryText) return kDecode;
    summary_.note = note_;
    return kSkip;
}

int SummaryWalk::takeScene(const RIF_TAG& tag) {
    unsigned char value[4] = {};
    scene_ = {0, {tag.payloadBytes() - std::int64_t{sizeof value}, {}}};
    if (scene_.name.bytes <= kMaxSummaryText) return kDecode;
    int got = 0;
    stream_.Read(value, sizeof value, got);
    scene_.value = loadI32(value);
    summary_.scene = scene_;
    return kSkip;
}

bool SummaryWalk::setSceneInfo(RISceneInfo info) {
    scene_.value = info.value;
    if (info.name != nullptr) scene_.name.text = info.name;
    summary_.scene = scene_;
    return true;
}

bool SummaryWalk::setNote(const char* text) {
    if (text == nullptr) return true;
    note_.text = text;
    summary_.note = note_;
    return true;
}

void SummaryWalk::takeStampText(const RIF_TAG& tag) {
    StoredText text{tag.payloadBytes(), {}};
    if (text.bytes <= kMaxSummaryText) {
        text.text.resize(static_cast<std::size_t>(text.bytes));
        int got = 0;
        stream_.Read(text.text.data(), static_cast<int>(text.bytes), got);
        text.text.resize(strnlen(text.text.c_str(), static_cast<std::size_t>(std::max(got, 0))));
    }
    summary_.stampText = std::move(text);
}

// Record by record from the buffered stream: the list is only as long as what the file really holds.
void SummaryWalk::takeChannels(const RIF_TAG& tag) {
    if (tag.p2 != kChannelRecordBytes) return;
    listed_.clear();
    for (std::int32_t i = 0; i < tag.p1; ++i) {
        unsigned char bytes[kChannelRecordBytes] = {};
        int got = 0;
        if (stream_.Read(bytes, kChannelRecordBytes, got) != 0 || got != kChannelRecordBytes) return;
        listed_.push_back(decodeChannel(bytes));
    }
}

void SummaryWalk::checkEnd(int code) {
    if (code == -4) {
        fault(FileVerdict::kDamaged, tagEnd_, "tag header cannot be read");
    } else if (code != 0 && !stopped_) {
        fault(FileVerdict::kDamaged, tagStart_, "tag cannot be read");
    }
    stopped_ = stopped_ || code != 0;
    if (!stopped_ && length_ > tagEnd_) {
        fault(FileVerdict::kUnfinished, tagEnd_,
              "tag header: cut, " + number(length_ - tagEnd_) + " of " + number(kTagHeaderBytes) +
                  " bytes are there");
    }
    checkTable();
}

void SummaryWalk::checkTable() {
    const std::uint64_t stored = summary_.header.infoTagsOffset;
    if (stored == 0) {
        fault(FileVerdict::kUnfinished, std::min(tagEnd_, length_), "never closed: no tag table");
        return;
    }
    const std::int64_t offset = static_cast<std::int64_t>(std::min<std::uint64_t>(stored, INT64_MAX));
    RIF_TAG tag;
    const bool ends = offset < length_ && file_.readTagAt(offset, tag) == 0 && tag.id == TAG_INFO_TAGS &&
                      tag.size >= kTagHeaderBytes && tag.size == length_ - offset;
    if (!ends) return checkOffset(offset);
    if (table_.offset == offset) {
        summary_.finished = true;
        checkEntries();
    } else {
        fault(FileVerdict::kDamaged, tagStart_, "no way from this tag to the tag table at " + number(offset));
    }
}

// The header's offset does not lead to a table that ends the file.
void SummaryWalk::checkOffset(std::int64_t offset) {
    const std::string leads = "the table offset in the file header leads to " + number(offset);
    const bool tableIsLast = !stopped_ && table_.offset == tagStart_;
    if (tableIsLast && table_.offset != offset) {
        fault(FileVerdict::kDamaged, kTableOffsetPosition,
              leads + ", the tag table is at " + number(table_.offset));
    } else if (idAtOffset_ == TAG_INFO_TAGS && table_.offset >= offset) {
        fault(FileVerdict::kDamaged, offset, "something follows the tag table");
    } else if (idAtOffset_.has_value()) {
        // New tags go over the old table, and only closing moves the offset.
        fault(FileVerdict::kUnfinished, std::min(tagEnd_, length_),
              "not closed after tags were appended: no tag table");
    } else if (offset >= tagEnd_) {
        fault(FileVerdict::kUnfinished, length_, "no tag table: it belongs at " + number(offset));
    } else {
        fault(FileVerdict::kDamaged, kTableOffsetPosition, leads + ", where no tag is");
    }
}

// Roughly: the entries themselves are not compared.
void SummaryWalk::checkEntries() {
    if (table_.entries >= table_.leastEntries && table_.entries <= table_.mostEntries) return;
    fault(FileVerdict::kDamaged, table_.offset,
          "the tag table has " + number(table_.entries) + " entries for " + number(table_.mostEntries) +
              " tags");
}

}  // namespace

const char* verdictName(FileVerdict verdict) {
    switch (verdict) {
        case FileVerdict::kGood: return "good";
        case FileVerdict::kUnfinished: return "unfinished";
        case FileVerdict::kDamaged: return "damaged";
        case FileVerdict::kNotThisFormat: return "not this format";
        case FileVerdict::kCannotOpen: break;
    }
    return "cannot open";
}

std::int64_t framePixels(const FileSummary& summary) {
    if (!summary.resolution || summary.resolution->width < 1 || summary.resolution->height < 1) return 0;
    return std::int64_t{summary.resolution->width} * summary.resolution->height;
}

FileSummary summariseStream(PStream& stream, bool keepTags) {
    FileSummary summary;
    SummaryWalk(stream, summary, keepTags).run();
    return summary;
}

FileSummary summariseFile(const char* fileName, bool keepTags) {
    PFileStream file;
    const int code = file.Open(fileName, PFileStream::kRead, 1, PFileStream::kOpenExisting);
    if (code == 0) return summariseStream(file, keepTags);
    FileSummary summary;
    summary.verdict = FileVerdict::kCannotOpen;
    summary.cause = std::generic_category().message(code);
    return summary;
}

}  // namespace MUtils
