#include "examples/render_frame/resume.h"

#include <algorithm>
#include <climits>
#include <filesystem>
#include <map>
#include <system_error>
#include <utility>

#include "examples/render_frame/settings.h"
#include "rawimage/inspect/bucket_grid.h"
#include "rawimage/tools/resume.h"
#include "rawimage/tools/settings.h"
#include "rawimage/tools/summary.h"
#include "rawimage/tools/verify.h"

namespace render_frame {

namespace {

using MUtils::FileState;
using MUtils::RecoverState;
using MUtils::VerifyReport;

std::string textOf(int number) {
    return std::to_string(number);
}

std::string textOf(uint64_t number) {
    return std::to_string(number);
}

std::string textOf(const Size& size) {
    return textOf(size.width) + 'x' + textOf(size.height);
}

std::string textOf(const Bucket& box) {
    return textOf(box.x0) + ',' + textOf(box.y0) + ',' + textOf(box.x1) + ',' + textOf(box.y1);
}

Bucket bucketOf(const MUtils::PixelBox& box) {
    const auto side = [](int64_t at) { return static_cast<int>(std::clamp<int64_t>(at, INT_MIN, INT_MAX)); };
    return {side(box.x0), side(box.x1), side(box.y0), side(box.y1)};
}

// The pixels are checked too: a damaged bucket is not missing, and would stay as it is.
VerifyReport verify(const Options& options, const std::atomic<bool>& stop) {
    MUtils::VerifyOptions verifying;
    verifying.threads = options.threads;
    verifying.progress = [&stop](int64_t, int64_t) { return !stop; };
    VerifyReport report = MUtils::verifyFile(options.resume.c_str(), verifying);
    const std::string& path = options.resume;
    if (report.stopped) throw Failure(ExitCode::kStopped, path + ": stopped, nothing was changed");
    switch (report.state) {
        case FileState::kCannotOpen:
        case FileState::kNotThisFormat: throw Failure(ExitCode::kUnreadable, path + ": " + report.cause);
        case FileState::kDamaged:
            throw Failure(ExitCode::kDamaged, path + ": damaged at " + std::to_string(report.causeOffset) +
                                                  ": " + report.cause +
                                                  "; resume what \"rimg recover\" makes of it");
        default: return report;
    }
}

// A render that was interrupted while it wrote the frame's metadata.
bool endsBeforeBuckets(const MUtils::FileSummary& summary) {
    return !summary.settingsBytes && !summary.finished &&
           std::none_of(summary.channels.begin(), summary.channels.end(),
                        [](const auto& channel) { return channel.tags > 0; });
}

RenderSettings settingsOf(const std::string& path, const MUtils::FileSummary& summary) {
    constexpr int64_t kMostBytes = 1000;
    if (!summary.settingsBytes) {
        if (endsBeforeBuckets(summary))
            throw Failure(ExitCode::kFailure, path + ": ends before its first bucket; render it anew");
    } else if (*summary.settingsBytes <= kMostBytes) {
        PBufStream blob;
        (void)readMirtSettings(path.c_str(), &blob);
        const std::string text(blob.GetBuf(), blob.GetBuf() + blob.Size());
        if (const auto settings = decodeSettings(text)) return *settings;
    }
    throw Failure(ExitCode::kMismatch, path + ": not begun by this program: no settings of its own");
}

bool sameChannels(const MUtils::FileSummary& summary) {
    const std::vector<MUtils::RIF_CHANNEL> own = channelRecords();
    return summary.furtherChannels == 0 &&
           std::equal(own.begin(), own.end(), summary.channels.begin(), summary.channels.end(),
                      [](const MUtils::RIF_CHANNEL& a, const MUtils::ChannelSummary& summarised) {
                          const MUtils::RIF_CHANNEL& b = summarised.record;
                          return summarised.listed && a.index == b.index && a.type == b.type &&
                                 a.alias == b.alias && a.flags == b.flags && std::string(a.name) == b.name;
                      });
}

// What of the file contradicts that this program has begun it.
std::string foreignIn(const MUtils::FileSummary& summary, const RenderSettings& settings,
                      const Bucket& area) {
    if (!summary.resolution || summary.resolution->width != settings.width ||
        summary.resolution->height != settings.height || summary.resolution->aspect != 1)
        return "its resolution is not its settings'";
    if (!faultOfArea(area, {settings.width, settings.height}).empty())
        return "its render region is not of its frame";
    if (!summary.buckets || summary.buckets->varies) return "its buckets have no size";
    return sameChannels(summary) ? "" : "it has other channels";
}

// What the command line gives of the frame, if anything, must agree with the file.
template <class Value>
void adopt(const Options& options, const char* name, Value& value, const Value& found) {
    if (options.has(name) && textOf(value) != textOf(found)) {
        throw Failure(ExitCode::kMismatch, options.resume + ": the file has " + name + ' ' + textOf(found) +
                                               ", not " + textOf(value));
    }
    value = found;
}

}  // namespace

bool hasBegun(const std::string& path) {
    std::error_code none;
    if (const auto size = std::filesystem::file_size(path, none); none || size == 0) return false;
    const MUtils::FileSummary summary = MUtils::summariseFile(path.c_str(), false);
    const bool readable =
        summary.state != FileState::kCannotOpen && summary.state != FileState::kNotThisFormat;
    return !readable || summary.state == FileState::kDamaged || !endsBeforeBuckets(summary);
}

bool examineFile(Options& options, const std::atomic<bool>& stop) {
    const std::string& path = options.resume;
    const VerifyReport report = verify(options, stop);
    const MUtils::FileSummary summary = MUtils::summariseFile(path.c_str(), false);
    const RenderSettings settings = settingsOf(path, summary);
    const Bucket area = bucketOf(report.area);
    if (const std::string foreign = foreignIn(summary, settings, area); !foreign.empty())
        throw Failure(ExitCode::kMismatch, path + ": not begun by this program: " + foreign);
    adopt(options, "--size", options.size, {settings.width, settings.height});
    adopt(options, "--bucket", options.bucket, {summary.buckets->width, summary.buckets->height});
    adopt(options, "--samples", options.samples, settings.samples);
    adopt(options, "--seed", options.seed, settings.seed);
    adopt(options, "--frame", options.frame, settings.frame);
    Bucket asked = options.area();
    adopt(options, "--region", asked, area);
    options.region = area;
    const std::string fault = faultOfFrame(options.size, options.bucket, options.samples);
    if (!fault.empty()) throw Failure(ExitCode::kMismatch, path + ": " + fault);
    return report.state != FileState::kGood;
}

void cutEnd(const std::string& path) {
    const MUtils::RecoverReport report = MUtils::prepareResume(path.c_str());
    switch (report.state) {
        case RecoverState::kGood: return;
        case RecoverState::kNotThisFormat:
        case RecoverState::kCannotOpen: throw Failure(ExitCode::kUnreadable, path + ": " + report.cause);
        case RecoverState::kNotInPlace: throw Failure(ExitCode::kDamaged, path + ": " + report.cause);
        default: throw Failure(ExitCode::kFailure, path + ": " + report.cause);
    }
}

std::vector<BucketTask> missingTasks(const Options& options, const std::vector<Bucket>& buckets, bool& more) {
    const VerifyReport report = MUtils::missingPixels(options.resume.c_str());
    if (textOf(bucketOf(report.area)) != textOf(options.area()))
        throw Failure(ExitCode::kMismatch, options.resume + ": has become another file");
    const MUtils::BucketGrid grid(report.area, 0, 0, options.bucket.width, options.bucket.height);
    more = report.missingInAny.truncated;
    std::map<std::pair<int64_t, int64_t>, ChannelMask> lacking;  // by the bucket's first pixel
    for (const MUtils::MissingPixels& channel : report.missing) {
        more = more || channel.boxes.truncated;
        for (const MUtils::PixelBox& box :
             grid.bucketsIn(channel.boxes.boxes, static_cast<size_t>(grid.count())))
            lacking[{box.x0, box.y0}] |= ChannelMask{1} << channel.channel;
    }
    std::vector<BucketTask> tasks;
    for (const Bucket& b : buckets) {
        const auto channels = lacking.find({b.x0, b.y0});
        if (channels != lacking.end()) tasks.push_back({b, channels->second});
    }
    return tasks;
}

}  // namespace render_frame
