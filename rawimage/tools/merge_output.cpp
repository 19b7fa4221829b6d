#include "rawimage/tools/merge_output.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "support/byte_buffer.h"
#include "support/scratch_buffer.h"

namespace MUtils {
inline namespace v1 {

namespace {

constexpr std::size_t kComparedAtOnce = 1 << 20;

// Compares `size` bytes of two files.
bool sameBytes(const PFileStream& a, std::int64_t atA, const PFileStream& b, std::int64_t atB,
               std::int64_t size, ByteBuffer& buffer) {
    unsigned char* bytes = reserve(buffer, 2 * kComparedAtOnce);
    while (size > 0) {
        const auto piece = static_cast<std::size_t>(std::min<std::int64_t>(size, kComparedAtOnce));
        std::size_t gotA = 0, gotB = 0;
        if (a.ReadAt(atA, bytes, piece, gotA) != 0 || b.ReadAt(atB, bytes + piece, piece, gotB) != 0)
            return false;
        if (gotA != piece || gotB != piece || std::memcmp(bytes, bytes + piece, piece) != 0) return false;
        atA += static_cast<std::int64_t>(piece);
        atB += static_cast<std::int64_t>(piece);
        size -= static_cast<std::int64_t>(piece);
    }
    return true;
}

// Of a place or a size within the area.
std::int32_t word(std::int64_t value) {
    return static_cast<std::int32_t>(value);
}

}  // namespace

MergeOutput::MergeOutput(std::vector<MergeInput>& inputs, const MergeOptions& options, bool compressed,
                         MergeReport& report)
    : inputs_(inputs),
      options_(options),
      compressed_(compressed),
      report_(report),
      copier_([this](std::int64_t copied) { return going(copied); }) {
    for (const MergeInput& input : inputs_)
        total_ += input.bytes();
    if (options_.verify) total_ *= 3;
}

bool MergeOutput::going(std::int64_t done) {
    return !options_.progress || options_.progress(before_ + done, std::max(before_ + done, total_));
}

void MergeOutput::fail(MergeState state, const std::string& file, std::string cause) {
    report_.state = state;
    report_.file = file;
    report_.cause = std::move(cause);
}

ErrorCode MergeOutput::writeWindows(const std::vector<MergeWindow>& windows) {
    constexpr unsigned char kNothingDeflated[] = {0x78, 0xda, 0x03, 0, 0, 0, 0, 1};
    for (const MergeWindow& window : windows) {
        RIF_TAG tag = window.tag;
        tag.size = kTagHeaderBytes + (compressed_ ? sizeof kNothingDeflated : 0);
        tag.p2 = word(window.box.x0);
        tag.p3 = word(window.box.y0);
        tag.p4 = word(window.box.width());
        tag.p6 = word(window.box.height());
        if (ErrorCode error = copier_.add(tag, kNothingDeflated); !error.empty()) return error;
    }
    return {};
}

ErrorCode MergeOutput::openAgain(const MergeInput& input, PFileStream& stream, std::vector<INFOTAG>& pixels) {
    const std::string cause = input.list(stream, pixels);
    if (cause.empty()) return {};
    failedInput_ = input.name();
    return ErrorCode("copy", -1, "%s", cause.c_str());
}

// In the order of the file that has each kind first.
ErrorCode MergeOutput::writeMetadata(const RIRegionInfo* region) {
    for (const MergeInput& input : inputs_) {
        if (input.metadata.empty()) continue;
        PFileStream stream;
        std::vector<INFOTAG> pixels;
        if (ErrorCode error = openAgain(input, stream, pixels); !error.empty()) return error;
        for (const INFOTAG& tag : input.metadata) {
            unsigned char bytes[kRegionRecordBytes];
            const bool replaced = tag.id == TAG_RENDER_REGION && region != nullptr;
            if (replaced) encodeRegion(*region, bytes);
            ErrorCode error = replaced ? copier_.add(tag, bytes) : copier_.copy(stream, {tag});
            if (!error.empty()) return error;
        }
    }
    return {};
}

ErrorCode MergeOutput::copyPixelsOf(MergeInput& input) {
    PFileStream stream;
    std::vector<INFOTAG> pixels;
    if (ErrorCode error = openAgain(input, stream, pixels); !error.empty()) return error;
    input.copiedTo = copier_.file().Tell();
    report_.tags += static_cast<std::int64_t>(pixels.size());
    return copier_.copy(stream, pixels);
}

// Readers draw later tags over earlier ones, so the file that counts goes last.
ErrorCode MergeOutput::copyPixels() {
    const std::size_t count = inputs_.size();
    for (std::size_t i = 0; i < count && !copier_.stopped(); ++i) {
        const bool reversed = options_.overlap == MergeOverlap::kFirst;
        if (ErrorCode error = copyPixelsOf(inputs_[reversed ? count - 1 - i : i]); !error.empty())
            return error;
    }
    return {};
}

void MergeOutput::write(const std::string& output, const std::vector<MergeWindow>& windows,
                        const RIRegionInfo* region) {
    copier_.setSyncOnClose(options_.sync);
    auto tags = static_cast<std::int64_t>(windows.size());
    for (const MergeInput& input : inputs_)
        tags += input.tags() + static_cast<std::int64_t>(input.metadata.size());
    ErrorCode error = copier_.begin(output.c_str(), compressed_);
    if (error.empty()) copier_.expectTags(tags);
    if (error.empty()) error = writeMetadata(region);
    if (error.empty()) error = writeWindows(windows);
    if (error.empty()) error = copyPixels();
    const bool whole = error.empty() && !copier_.stopped();
    ErrorCode closing = whole ? copier_.close() : copier_.leaveOpenEnded();
    if (error.empty()) error = std::move(closing);
    if (!failedInput_.empty()) {
        fail(MergeState::kWriteFailed, failedInput_, error.message());
    } else if (!error.empty()) {
        fail(MergeState::kWriteFailed, output, error.describe());
        report_.error = std::move(error);
    } else if (!whole) {
        fail(MergeState::kStopped, output, "stopped");
    }
}

// Lacks nothing but the holes that were allowed.
bool MergeOutput::isSound(const std::string& output) {
    InspectOptions options;
    options.threads = options_.threads;
    options.progress = [this](std::int64_t done, std::int64_t) { return going(done); };
    const Inspection found = inspectFile(output.c_str(), options);
    if (found.stopped) {
        fail(MergeState::kStopped, output, "stopped");
        return false;
    }
    const bool asAllowed = found.state == FileState::kIncomplete && options_.allowHoles &&
                           found.missingInAny.boxes == report_.holes.boxes;
    const bool sound = found.state == FileState::kGood || asAllowed;
    if (!sound) fail(MergeState::kNotVerified, output, "is not as it was written: " + found.cause);
    return sound;
}

// Whether the output has all pixel tags of the input that were to be copied, byte for byte.
bool MergeOutput::contains(const PFileStream& output, const MergeInput& input) {
    PFileStream stream;
    std::vector<INFOTAG> pixels;
    if (!input.list(stream, pixels).empty()) return false;
    ByteBuffer buffer;
    std::int64_t at = input.copiedTo;
    for (std::size_t i = 0; i < pixels.size();) {
        const auto start = static_cast<std::int64_t>(pixels[i].offset);
        std::int64_t end = start;
        for (; i < pixels.size() && static_cast<std::int64_t>(pixels[i].offset) == end; ++i)
            end += pixels[i].size;
        if (!sameBytes(stream, start, output, at, end - start, buffer)) return false;
        at += end - start;
    }
    return true;
}

void MergeOutput::verify(const std::string& output) {
    const std::int64_t copied = total_ / 3;
    before_ = copied;
    if (!isSound(output)) return;
    before_ = 2 * copied;
    PFileStream written;
    const int code = written.Open(output.c_str(), PFileStream::kRead, 1, PFileStream::kOpenExisting);
    if (code != 0) return fail(MergeState::kNotVerified, output, openErrorText(code));
    std::int64_t compared = 0;
    for (const MergeInput& input : inputs_) {
        if (!going(compared)) return fail(MergeState::kStopped, output, "stopped");
        if (!contains(written, input))
            return fail(MergeState::kNotVerified, input.name(), "is not what the merged file has of it");
        if (input.leftOut().empty()) report_.contained.push_back(input.name());
        compared += input.bytes();
    }
}

}  // namespace v1
}  // namespace MUtils
