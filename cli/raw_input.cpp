#include "cli/raw_input.h"

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
    if (state_.verdict == MUtils::VerifyVerdict::kNotThisFormat)
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
    const bool sound = state_.verdict == MUtils::VerifyVerdict::kGood ||
                       state_.verdict == MUtils::VerifyVerdict::kIncomplete;
    return sound ? "" : ": " + state_.cause;
}

void RawInput::take(PStream& file, const INFOTAG& tag, PMemStream& records) {
    if (isPixelTag(tag.id)) pixels_.push_back(tag);
    if (!isRecord(tag.id)) return;
    if (tag.id != TAG_CHANNEL_INFO && tag.payloadBytes() > MUtils::kMaxSummaryText) {
        report(path_, std::string("this ") + tagName(tag.id) + " is too long to go along",
               static_cast<std::int64_t>(tag.offset));
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

const char* PixelDecoder::decode(const INFOTAG& tag, const std::function<void(const MBVTable&)>& consume) {
    if (stream->Seek(static_cast<long>(tag.offset) + kTagHeaderBytes) != 0) return "cannot be read";
    consume_ = &consume;
    RIF_TAG copy = tag;
    switch (ParseTag(copy, this)) {
        case 0: return nullptr;
        case -13: return "the compressed values are cut short";
        case -14: return "the values do not decompress";
        case -15: return "the values decompress to another length";
        default: return "the values cannot be read";
    }
}

bool PixelDecoder::setImageData(const MBVTable& data, int, int, int, int, int, int, int, int) {
    (*consume_)(data);
    return true;
}

}  // namespace rimg
