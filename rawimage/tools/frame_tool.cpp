#include "rawimage/tools/frame_tool.h"

#include <algorithm>

#include "support/name_globs.h"

namespace MUtils {
inline namespace v1 {

FrameTool::FrameTool(const FrameToolOptions& options, FrameReport& report)
    : options_(options), report_(report) {}

RawFrameOptions FrameTool::opening() {
    RawFrameOptions opening;
    opening.inspect = InspectDepth::kRecords;
    // Headers and records are read quickly: what is shown is the progress of the pixels.
    if (options_.progress) {
        opening.progress = [this](std::int64_t, std::int64_t) {
            stopped_ = stopped_ || !options_.progress(0, 0);
            return !stopped_;
        };
    }
    return opening;
}

bool FrameTool::begin(const RawFrame& frame, std::vector<FrameChannel>& channels) {
    const std::shared_ptr<const FrameInfo> info = frame.info();
    report_.stopped = stopped_;
    report_.state = frame.state();
    report_.cause = frame.cause();
    report_.causeOffset = frame.causeOffset();
    const bool readable =
        report_.state != FileState::kCannotOpen && report_.state != FileState::kNotThisFormat;
    if (!readable || stopped_) return false;
    report_.frame = info->frame;
    report_.area = info->area;
    if (info->area.empty()) return false;
    if (info->furtherChannels) {
        report_.refused = "more than " + std::to_string(kMaxUnlistedFrameChannels) +
                          " channels have pixels and are not listed";
        return false;
    }
    return choose(*info, channels);
}

bool FrameTool::choose(const FrameInfo& info, std::vector<FrameChannel>& channels) {
    const auto fits = [](const std::string& pattern, const FrameChannel& channel) {
        return fitsGlob(pattern, channel.name);
    };
    for (const std::string& pattern : options_.channels) {
        if (std::none_of(info.channels.begin(), info.channels.end(),
                         [&](const FrameChannel& channel) { return fits(pattern, channel); })) {
            report_.unmatched = pattern;
            return false;
        }
    }
    channels = info.channels;
    keepFitting(options_.channels, channels, fits);
    std::stable_sort(channels.begin(), channels.end(),
                     [](const FrameChannel& a, const FrameChannel& b) { return a.index < b.index; });
    return true;
}

bool FrameTool::readRows(const RawFrame& frame, const std::vector<FrameChannel>& channels, bool integersAlone,
                         RowSink& sink) {
    FrameRowsOptions reading;
    reading.threads = options_.threads;
    reading.progress = options_.progress;
    reading.integersAlone = integersAlone;
    FrameRows rows(frame, report_.area, channels, reading);
    const bool read = rows.read(sink);
    report_.stopped = rows.stopped;
    report_.refused = rows.refused;
    if (!read) return false;
    report_.damaged = std::move(rows.damaged);
    if (!report_.damaged.empty()) setDamaged(report_.damaged.front());
    return true;
}

void FrameTool::setDamaged(const FileFault& fault) {
    if (report_.state == FileState::kDamaged) return;
    report_.state = FileState::kDamaged;
    report_.cause = fault.cause;
    report_.causeOffset = fault.offset;
}

}  // namespace v1
}  // namespace MUtils
