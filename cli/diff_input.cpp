#include "cli/diff_input.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>

#include "cli/diff_codes.h"
#include "cli/image_format.h"
#include "cli/interrupt.h"
#include "cli/report.h"
#include "convert/from_exr/from_exr.h"

namespace rimg {

namespace {

using MUtils::Conversion;
using MUtils::ConvertReport;
using MUtils::ConvertState;

constexpr ExitCode kFileError = exitCodeOf(DiffCode::kFileError);

// A file that is gone when it is closed.
std::FILE* openNameless() {
    std::string name = (std::filesystem::temp_directory_path() / "rimg_diff_XXXXXX").string();
    const SignalsHeld held;
    const int file = ::mkostemp(name.data(), O_CLOEXEC);
    if (file < 0) throw Failure(kFileError, name, "cannot be created: " + systemMessage(errno));
    ::unlink(name.c_str());
    return ::fdopen(file, "r+");
}

// Of a report without an output, or with one that lacks damaged pixels.
Failure failureOf(const std::string& path, const ConvertReport& report) {
    if (report.state == ConvertState::kStopped) return {ExitCode::kStopped, path, "stopped"};
    if (!report.written)
        return {kFileError, report.file.empty() ? "temporary file for " + path : report.file, report.cause,
                report.offset.value_or(Failure::kNoOffset)};
    for (const MUtils::ConvertNote& loss : report.losses) {
        if (loss.kind == "damage")
            return {kFileError, path, loss.text, loss.offset.value_or(Failure::kNoOffset)};
    }
    return {kFileError, path, "is damaged"};
}

std::unique_ptr<Conversion> prepare(const std::string& path, MUtils::FromExrOptions options) {
    std::unique_ptr<Conversion> conversion = MUtils::makeFromExr(path, options);
    if (conversion->prepare()) return conversion;
    const bool outside = conversion->report().state == ConvertState::kOverscan ||
                         conversion->report().state == ConvertState::kOutsideFrame;
    if (outside) {
        options.frame = MUtils::FrameChoice::kUnion;
        conversion = MUtils::makeFromExr(path, options);
        if (conversion->prepare()) return conversion;
    }
    throw failureOf(path, conversion->report());
}

}  // namespace

DiffInput::DiffInput(const std::string& path, const DiffInputOptions& options) {
    const ImageFormat format = formatOf(path);
    if (format == ImageFormat::kOther)
        throw Failure(kFileError, path, "neither an OpenEXR file nor a raw image");
    exr_ = format == ImageFormat::kExr;
    MUtils::RawFrameOptions opening;
    opening.inspect = MUtils::InspectDepth::kRecords;
    opening.progress = [](auto...) { return !stopRequested(); };
    const std::string raw = exr_ ? convert(path, options) : path;
    frame_ = std::make_unique<MUtils::RawFrame>(raw.c_str(), opening);
    if (stopRequested()) throw Failure(ExitCode::kStopped, path, "stopped");
    if (!exr_ && frame_->state() != MUtils::FileState::kGood) incomplete_ = frame_->cause();
}

std::string DiffInput::convert(const std::string& path, const DiffInputOptions& options) {
    MUtils::FromExrOptions converting;
    converting.bucketWidth = options.bucketWidth;
    converting.bucketHeight = options.bucketHeight;
    converting.compression = MUtils::Compression::kFast;
    converting.threads = options.threads;
    converting.progress = options.progress;
    const std::unique_ptr<Conversion> conversion = prepare(path, converting);
    file_.reset(openNameless());
    const std::string raw = "/proc/self/fd/" + std::to_string(::fileno(file_.get()));
    const bool written = conversion->run(raw);
    const ConvertReport& report = conversion->report();
    if (!written || report.state == ConvertState::kDamaged) throw failureOf(path, report);
    originX_ = report.originX;
    originY_ = report.originY;
    for (const MUtils::ConvertNote& loss : report.losses)
        if (loss.kind == "missing") incomplete_ = loss.text;
    return raw;
}

}  // namespace rimg
