#include "rawimage/tools/verify.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "support/files.h"

namespace MUtils {
inline namespace v1 {

namespace {

// Moves what there is room for, and returns how many faults are left behind.
std::int64_t moveFaults(std::vector<FileFault>& from, std::vector<FileFault>& to) {
    const std::size_t room = std::min(from.size(), kMaxVerifyFaults - to.size());
    std::move(from.begin(), from.begin() + static_cast<std::ptrdiff_t>(room), std::back_inserter(to));
    return static_cast<std::int64_t>(from.size() - room);
}

void listFaults(const Inspection& file, VerifyReport& report) {
    FileFaults found = faultsOf(file);
    report.furtherFaults = file.furtherFaults;
    report.furtherFaults += moveFaults(found.lost, report.faults);
    report.furtherFaults += moveFaults(found.doubts, report.faults);
    report.furtherFaults += moveFaults(found.repaired, report.repaired);
    std::stable_sort(report.faults.begin(), report.faults.end(),
                     [](const FileFault& a, const FileFault& b) { return a.offset < b.offset; });
}

VerifyReport reportOf(Inspection file) {
    VerifyReport report;
    report.state = file.state;
    report.cause = file.cause;
    report.causeOffset = file.causeOffset;
    report.fileBytes = std::max<std::int64_t>(file.fileBytes, 0);
    report.stopped = file.stopped;
    report.tags = static_cast<std::int64_t>(file.tags.size());
    const bool inspected = file.state != FileState::kNotThisFormat && file.state != FileState::kCannotOpen;
    if (!inspected || file.stopped) return report;
    report.lacksChannels = file.facts.channels.empty();
    listFaults(file, report);
    report.area = file.area;
    report.grid = announcedGrid(file);
    report.buckets = countBuckets(file);
    report.missing = std::move(file.missing);
    report.missingInAny = std::move(file.missingInAny);
    return report;
}

InspectOptions inspectionFor(const VerifyOptions& options) {
    InspectOptions inspecting;
    inspecting.depth = options.quick ? InspectDepth::kRecords : InspectDepth::kPayloads;
    inspecting.threads = options.threads;
    inspecting.progress = options.progress;
    return inspecting;
}

}  // namespace

VerifyReport verifyStream(PStream& stream, const VerifyOptions& options) {
    return reportOf(inspectStream(stream, inspectionFor(options)));
}

VerifyReport verifyFile(const char* fileName, const VerifyOptions& options) {
    // Asked first: a writer that is done in between leaves a finished file, and not one that looks abandoned.
    const bool beingWritten = isBeingWritten(fileName);
    VerifyReport report = reportOf(inspectFile(fileName, inspectionFor(options)));
    report.beingWritten = beingWritten;
    return report;
}

VerifyReport missingPixels(const char* fileName, const MissingOptions& options) {
    InspectOptions inspecting;
    inspecting.depth = options.deep ? InspectDepth::kPayloads : InspectDepth::kRecords;
    inspecting.threads = options.deep ? options.threads : 1;
    inspecting.progress = options.progress;
    inspecting.repairedIsMissing = true;
    return reportOf(inspectFile(fileName, inspecting));
}

}  // namespace v1
}  // namespace MUtils
