#include "rawimage/tools/recover_report.h"

#include <utility>

#include "support/pstream.h"

namespace MUtils {
inline namespace v1 {

namespace {

// The table's bytes: what is written has a table of its own.
bool isTable(const TagGap& gap, const Inspection& file) {
    return gap.tag.id == TAG_INFO_TAGS ||
           file.header.infoTagsOffset == static_cast<std::uint64_t>(gap.offset);
}

}  // namespace

const char* stateName(RecoverState state) {
    switch (state) {
        case RecoverState::kGood: return "good";
        case RecoverState::kNotThisFormat: return "not this format";
        case RecoverState::kCannotOpen: return "cannot open";
        case RecoverState::kMismatch: return "mismatch";
        case RecoverState::kNotInPlace: return "not in place";
        case RecoverState::kWriteFailed: return "write failed";
        case RecoverState::kStopped: break;
    }
    return "stopped";
}

RecoverReport recoverFailure(RecoverState state, std::string cause) {
    RecoverReport report;
    report.state = state;
    report.cause = std::move(cause);
    return report;
}

RecoverReport cannotOpenForRecovery(int code) {
    return recoverFailure(RecoverState::kCannotOpen, openErrorText(code));
}

void setWriteFailure(RecoverReport& report, ErrorCode error) {
    report.state = RecoverState::kWriteFailed;
    report.cause = error.describe();
    report.error = std::move(error);
}

bool reportInspection(const Inspection& file, RecoverReport& report) {
    if (file.state == FileState::kCannotOpen) {
        report = recoverFailure(RecoverState::kCannotOpen, file.cause);
    } else if (file.state == FileState::kNotThisFormat && file.tags.empty()) {
        report = recoverFailure(RecoverState::kNotThisFormat, "not a raw image file");
    } else if (file.stopped) {
        report = recoverFailure(RecoverState::kStopped, "stopped");
    }
    if (report.state != RecoverState::kGood) return false;
    for (const TagGap& gap : file.gaps) {
        report.lost.push_back(faultOf(gap, file.facts));
        if (gap.torn) report.cutFrom = gap.offset;
        report.lacks = report.lacks || (!isTable(gap, file) && (!gap.torn || gap.tag.id != 0));
    }
    report.lacks = report.lacks || !file.doubted.empty();
    report.lacksResolution = file.facts.frame().empty();
    report.lacksChannels = file.facts.channels.empty();
    report.lacksPixels = !file.missingInAny.boxes.empty() || file.missingInAny.truncated;
    FileFaults faults = faultsOf(file);
    report.repaired = std::move(faults.repaired);
    report.doubts = std::move(faults.doubts);
    for (const INFOTAG& tag : file.tags) {
        if (tag.id == TAG_INFO_TAGS) continue;
        ++report.tagsKept;
        report.tagsOfPixels += isPixelTag(tag.id) ? 1 : 0;
        report.bytesKept += tag.size;
    }
    return true;
}

bool isSoundButForItsEnd(const Inspection& file, bool renderedAgain, RecoverReport& report) {
    const bool tolerant = renderedAgain && file.tableOffset == 0;
    const auto refuse = [&report](const std::string& cause, std::int64_t offset) {
        report.state = RecoverState::kNotInPlace;
        report.cause = cause + " at " + std::to_string(offset);
        return false;
    };
    if (!file.faults.empty()) return refuse(file.faults.front().cause, file.faults.front().offset);
    if (!tolerant && !file.doubted.empty()) return refuse("tag in doubt", file.doubted.front());
    for (const TagGap& gap : file.gaps) {
        if (!gap.torn) return refuse(gap.cause, gap.offset);
    }
    for (const TagScan::Repair& repair : file.repairs) {
        if (!tolerant || !isPixelTag(repair.found.id)) return refuse(repair.cause, repair.offset);
    }
    return true;
}

}  // namespace v1
}  // namespace MUtils
