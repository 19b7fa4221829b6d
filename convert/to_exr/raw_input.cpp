#include "convert/to_exr/raw_input.h"

#include <algorithm>

#include "cli/interrupt.h"
#include "cli/report.h"

namespace rimg {

namespace {

// Where the file header keeps the flags: a fault there means that they tell the opposite of what is stored.
constexpr std::int64_t kFlagsPosition = 20;

// The records that a conversion looks at. All are small.
bool isRecord(std::uint32_t tagId) {
    switch (tagId) {
        case TAG_RESOLUTION:
        case TAG_REGIONS_INFO:
        case TAG_CHANNEL_INFO:
        case TAG_CAMERA_INFO:
        case TAG_RENDER_REGION:
        case TAG_SCENE_INFO:
        case TAG_NOTE:
        case TAG_STAMP_TEXT: return true;
        default: return false;
    }
}

bool readAt(PStream& file, std::int64_t offset, void* bytes, int size) {
    int got = 0;
    return file.Seek(offset) == 0 && file.Read(bytes, size, got) == 0 && got == size;
}

void append(PMemStream& stream, const void* bytes, int size) {
    int written = 0;
    if (stream.Write(bytes, size, written) != 0) throw std::bad_alloc();
}

}  // namespace

RawInput::RawInput(const std::string& path, int threads) : path_(path) {
    PFileStream file;
    const int code = file.Open(path.c_str(), PFileStream::kRead, 1, PFileStream::kOpenExisting);
    if (code != 0) throw Failure(ExitCode::kUnreadable, path, systemMessage(code));
    MUtils::VerifyOptions headersOnly;
    headersOnly.quick = true;
    headersOnly.threads = threads;
    headersOnly.progress = [](std::int64_t, std::int64_t) { return !stopRequested(); };
    state_ = MUtils::verifyStream(file, headersOnly);
    if (state_.stopped) throw Failure(ExitCode::kStopped, path, "stopped; nothing was written");
    if (state_.state == MUtils::FileState::kNotThisFormat)
        throw Failure(ExitCode::kUnreadable, path, state_.cause);
    PMemStream records;
    records.Open();
    listTags(file, records);
    records_ = MUtils::summariseStream(records, false);
}

// Walks from tag to tag. Where there is none, the check of the headers knows where the next one is. `records`
// becomes a file without pixels and without damage.
void RawInput::listTags(PStream& file, PMemStream& records) {
    unsigned char bytes[kFileHeaderBytes];
    if (!readAt(file, 0, bytes, kFileHeaderBytes))
        throw Failure(ExitCode::kUnreadable, path_, "the file header cannot be read");
    header_ = decodeHeader(bytes);
    append(records, bytes, kFileHeaderBytes);
    auto fault = state_.faults.begin();
    std::int64_t offset = kFileHeaderBytes;
    // Behind the last fault that was listed nobody knows where tags begin, if there are more.
    while (state_.furtherFaults == 0 || fault != state_.faults.end()) {
        for (; fault != state_.faults.end() && fault->offset <= offset; ++fault) {
            offset = std::max(offset, fault->end);
            if (fault->offset == kFlagsPosition) header_.flags ^= RIF_COMPRESSED;
        }
        unsigned char tagBytes[kTagHeaderBytes];
        if (offset > state_.fileBytes - kTagHeaderBytes || !readAt(file, offset, tagBytes, kTagHeaderBytes))
            return;
        INFOTAG tag;
        static_cast<RIF_TAG&>(tag) = decodeTag(tagBytes);
        tag.offset = static_cast<std::uint64_t>(offset);
        if (tag.size < kTagHeaderBytes || tag.size > state_.fileBytes - offset) return;
        take(file, tag, records);
        offset += tag.size;
    }
}

std::string RawInput::whyNot() const {
    const bool sound =
        state_.state == MUtils::FileState::kGood || state_.state == MUtils::FileState::kIncomplete;
    return sound ? "" : ": " + state_.cause;
}

// A render that has only begun has nothing wrong with it.
ExitCode RawInput::codeOfLack() const {
    return state_.state == MUtils::FileState::kDamaged ? ExitCode::kDamaged : ExitCode::kIncomplete;
}

void RawInput::take(PStream& file, const INFOTAG& tag, PMemStream& records) {
    if (isPixelTag(tag.id)) pixels_.push_back(tag);
    if (!isRecord(tag.id)) {
        if (!isPixelTag(tag.id) && tag.id != TAG_INFO_TAGS) otherTags_.insert(tag.id);
        return;
    }
    if (tag.id != TAG_CHANNEL_INFO && tag.payloadBytes() > MUtils::kMaxSummaryText) {
        longTexts_.push_back(tag);
        return;
    }
    std::vector<unsigned char> bytes(tag.size);
    const auto size = static_cast<int>(std::min<std::uint32_t>(tag.size, INT32_MAX));
    if (readAt(file, static_cast<std::int64_t>(tag.offset), bytes.data(), size))
        append(records, bytes.data(), size);
}

PixelDecoder::PixelDecoder(const RawInput& input) {
    if (const ErrorCode error = RIFile::Open(input.path().c_str(), nullptr); !error.empty())
        throw Failure(ExitCode::kUnreadable, input.path(), error.describe());
    header = input.header();
}

namespace {

constexpr const char* kCutShort = "the compressed values are cut short";
constexpr const char* kNotInflatable = "the values do not decompress";
constexpr const char* kOtherLength = "the values decompress to another length";

// A payload that is read and inflated piece by piece.
class LargePayload final : public MUtils::InflateFlow {
  public:
    LargePayload(PStream& stream, std::int64_t size, PixelRooms& rooms)
        : stream_(stream), left_(size), rooms_(rooms) {}

    Input nextInput() override {
        const auto size = static_cast<int>(std::min<std::int64_t>(left_, sizeof piece_));
        left_ -= size;
        int got = 0;
        whole_ = whole_ && stream_.Read(piece_, size, got) == 0 && got == size;
        return {piece_, whole_ ? static_cast<std::size_t>(size) : 0};
    }
    Room nextRoom() override { return rooms_.next(); }
    bool whole() const { return whole_; }

  private:
    PStream& stream_;
    std::int64_t left_;
    PixelRooms& rooms_;
    bool whole_ = true;
    unsigned char piece_[1 << 16];
};

}  // namespace

const char* PixelDecoder::decode(const INFOTAG& tag, PixelRooms& rooms) {
    if (stream->Seek(static_cast<long>(tag.offset) + kTagHeaderBytes) != 0) return "cannot be read";
    const std::int64_t expected = MUtils::pixelBytes(tag);
    if (expected < 0) return kOtherLength;
    if ((header.flags & RIF_COMPRESSED) == 0) {
        if (tag.payloadBytes() < expected) return "the values cannot be read";
        for (PixelRooms::Room room = rooms.next(); room.size > 0; room = rooms.next()) {
            int got = 0;
            const auto size = static_cast<int>(room.size);
            if (stream->Read(room.data, size, got) != 0 || got != size) return "the values cannot be read";
        }
        return nullptr;
    }
    // Nothing is written to for values that cannot be there.
    if (static_cast<std::size_t>(expected) >
        MUtils::inflateLimit(static_cast<std::size_t>(tag.payloadBytes())))
        return kOtherLength;
    LargePayload payload(*stream, tag.payloadBytes(), rooms);
    std::size_t inflated = 0;
    const int code = largeInflater_.uncompress(payload, inflated);
    if (!payload.whole()) return kCutShort;
    if (code != 0) return kNotInflatable;
    return inflated == static_cast<std::size_t>(expected) ? nullptr : kOtherLength;
}

const char* PixelDecoder::decode(const INFOTAG& tag, const std::function<void(const MBVTable&)>& consume) {
    if (stream->Seek(static_cast<long>(tag.offset) + kTagHeaderBytes) != 0) return "cannot be read";
    consume_ = &consume;
    RIF_TAG copy = tag;
    switch (ParseTag(copy, this)) {
        case 0: return nullptr;
        case -13: return kCutShort;
        case -14: return kNotInflatable;
        case -15: return kOtherLength;
        default: return "the values cannot be read";
    }
}

bool PixelDecoder::setImageData(const MBVTable& data, int, int, int, int, int, int, int, int) {
    (*consume_)(data);
    return true;
}

}  // namespace rimg
