#include "convert/from_exr/diff_files.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <system_error>

#include "convert/from_exr/from_exr.h"
#include "convert/image_format.h"

namespace MUtils {
inline namespace v1 {

namespace {

std::string systemText(int code) {
    return std::generic_category().message(code);
}

// A file without a name, gone when it is closed.
class NamelessFile {
  public:
    NamelessFile() = default;
    ~NamelessFile() {
        if (file_ >= 0) ::close(file_);
    }
    NamelessFile(const NamelessFile&) = delete;
    NamelessFile& operator=(const NamelessFile&) = delete;

    // Returns 0, or the system's code.
    int create() {
        std::error_code error;
        const std::filesystem::path folder = std::filesystem::temp_directory_path(error);
        if (error) return error.value();
        file_ = ::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
        if (file_ >= 0) return 0;
        // Not every file system has files that never had a name.
        std::string name = (folder / "rawimage_XXXXXX").string();
        file_ = ::mkostemp(name.data(), O_CLOEXEC);
        if (file_ < 0) return errno;
        ::unlink(name.c_str());
        return 0;
    }
    // By which it can be opened once more.
    std::string path() const { return "/proc/self/fd/" + std::to_string(file_); }

  private:
    int file_ = -1;
};

struct Buckets {
    int width = 64;
    int height = 64;
};

// One of the files, as a frame.
class Input {
  public:
    Input(std::string path, ImageFormat format) : path_(std::move(path)), format_(format) {}

    // False leaves state, cause and offset in the report.
    bool open(const DiffOptions& options, const Buckets& buckets, FileDiffReport& report);

    bool isExr() const { return format_ == ImageFormat::kExr; }
    const RawFrame& frame() const { return *frame_; }
    const std::string& incomplete() const { return incomplete_; }
    std::string originText() const {
        return "(" + std::to_string(originX_) + ", " + std::to_string(originY_) + ")";
    }
    // Of the announced buckets, within what a conversion is good with.
    Buckets buckets() const {
        const std::optional<BucketSize> announced = frame_->info()->buckets;
        if (!announced) return {};
        return {std::clamp(announced->width, 16, 1024), std::clamp(announced->height, 16, 1024)};
    }

  private:
    // Null leaves state, cause and offset in the report.
    std::unique_ptr<Conversion> prepare(FromExrOptions options, FileDiffReport& report) const;
    bool convert(const DiffOptions& options, const Buckets& buckets, FileDiffReport& report);

    const std::string path_;
    const ImageFormat format_;
    NamelessFile converted_;
    std::int64_t originX_ = 0;
    std::int64_t originY_ = 0;
    std::string incomplete_;
    std::unique_ptr<RawFrame> frame_;
};

bool fail(FileDiffReport& report, DiffState state, const std::string& cause,
          const std::optional<std::int64_t>& offset = {}) {
    report.state = state;
    report.cause = cause;
    report.causeOffset = offset.value_or(-1);
    return false;
}

bool failTemporary(FileDiffReport& report, const std::string& cause) {
    report.side = -1;
    return fail(report, DiffState::kUnreadable, "temporary file: " + cause);
}

// Of a conversion without an output, or with one that lacks damaged pixels.
bool failConversion(FileDiffReport& report, const ConvertReport& converted) {
    if (converted.state == ConvertState::kStopped) return fail(report, DiffState::kStopped, "stopped");
    if (converted.state == ConvertState::kWriteFailed) return failTemporary(report, converted.cause);
    if (!converted.written) return fail(report, DiffState::kUnreadable, converted.cause, converted.offset);
    for (const ConvertNote& loss : converted.losses) {
        if (loss.kind == "damage") return fail(report, DiffState::kDamaged, loss.text, loss.offset);
    }
    return fail(report, DiffState::kDamaged, "pixels are lost");
}

std::unique_ptr<Conversion> Input::prepare(FromExrOptions options, FileDiffReport& report) const {
    std::unique_ptr<Conversion> conversion = makeFromExr(path_, options);
    if (conversion->prepare()) return conversion;
    const ConvertState state = conversion->report().state;
    if (state == ConvertState::kOverscan || state == ConvertState::kOutsideFrame) {
        options.frame = FrameChoice::kUnion;
        conversion = makeFromExr(path_, options);
        if (conversion->prepare()) return conversion;
    }
    failConversion(report, conversion->report());
    return nullptr;
}

bool Input::convert(const DiffOptions& options, const Buckets& buckets, FileDiffReport& report) {
    FromExrOptions converting;
    converting.bucketWidth = buckets.width;
    converting.bucketHeight = buckets.height;
    converting.compression = Compression::kFast;
    converting.threads = options.threads;
    converting.progress = options.progress;
    const std::unique_ptr<Conversion> conversion = prepare(converting, report);
    if (conversion == nullptr) return false;
    if (const int code = converted_.create(); code != 0) return failTemporary(report, systemText(code));
    const bool written = conversion->run(converted_.path());
    const ConvertReport& converted = conversion->report();
    if (!written || converted.state == ConvertState::kDamaged) return failConversion(report, converted);
    originX_ = converted.originX;
    originY_ = converted.originY;
    for (const ConvertNote& loss : converted.losses)
        if (loss.kind == "missing") incomplete_ = loss.text;
    return true;
}

bool Input::open(const DiffOptions& options, const Buckets& buckets, FileDiffReport& report) {
    if (isExr() && !convert(options, buckets, report)) return false;
    RawFrameOptions opening;
    opening.inspect = InspectDepth::kRecords;
    opening.threads = options.threads;
    bool stopped = false;
    opening.progress = [&](std::int64_t done, std::int64_t total) {
        stopped = options.progress && !options.progress(done, total);
        return !stopped;
    };
    frame_ = std::make_unique<RawFrame>((isExr() ? converted_.path() : path_).c_str(), opening);
    if (stopped) return fail(report, DiffState::kStopped, "stopped");
    if (!isExr() && frame_->state() != FileState::kGood) incomplete_ = frame_->cause();
    return true;
}

void compareOrigins(const Input& a, const Input& b, DiffReport& report) {
    if (!a.isExr() || !b.isExr() || a.originText() == b.originText()) return;
    report.state = DiffState::kMismatch;
    report.cause = "the frames begin at " + a.originText() + " and " + b.originText();
}

}  // namespace

FileDiffReport diffFiles(const std::string& a, const std::string& b, const DiffOptions& options) {
    FileDiffReport report;
    std::array<std::optional<Input>, 2> inputs;
    for (const int side : {0, 1}) {
        const std::string& path = side == 0 ? a : b;
        int error = 0;
        const ImageFormat format = imageFormatOf(path, error);
        report.side = side;
        FileState& state = report.fileStates[static_cast<std::size_t>(side)];
        if (error != 0) {
            state = FileState::kCannotOpen;
            fail(report, DiffState::kUnreadable, systemText(error));
            return report;
        }
        if (format == ImageFormat::kOther) {
            state = FileState::kNotThisFormat;
            fail(report, DiffState::kUnreadable, "neither an OpenEXR file nor a raw image");
            return report;
        }
        inputs[static_cast<std::size_t>(side)].emplace(path, format);
        report.isExr[static_cast<std::size_t>(side)] = format == ImageFormat::kExr;
    }
    // An OpenEXR file is cut into the buckets of a raw image, so that both are read in the same bands.
    const std::size_t first = inputs[0]->isExr() ? 1 : 0;
    Buckets buckets;
    for (const std::size_t side : {first, 1 - first}) {
        report.side = static_cast<int>(side);
        if (!inputs[side]->open(options, buckets, report)) return report;
        report.incomplete[side] = inputs[side]->incomplete();
        buckets = inputs[side]->buckets();
    }
    DiffOptions comparing = options;
    comparing.throughExr = options.throughExr || inputs[0]->isExr() != inputs[1]->isExr();
    static_cast<DiffReport&>(report) = diffFrames(inputs[0]->frame(), inputs[1]->frame(), comparing);
    if (report.state <= DiffState::kMismatch) compareOrigins(*inputs[0], *inputs[1], report);
    return report;
}

}  // namespace v1
}  // namespace MUtils
