#include "rawimage/tools/verify.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace MUtils {

namespace {

// All of a file's faults by offset, as many as a report has room for.
void listFaults(const Inspection& file, VerifyReport& report) {
    FileFaults found = faultsOf(file);
    report.furtherFaults = file.furtherFaults;
    for (std::vector<FileFault>* kind : {&found.doubts, &found.repaired, &found.lost}) {
        const std::size_t room = std::min(kind->size(), kMaxVerifyFaults - report.faults.size());
        report.furtherFaults += static_cast<std::int64_t>(kind->size() - room);
        std::move(kind->begin(), kind->begin() + static_cast<std::ptrdiff_t>(room),
                  std::back_inserter(report.faults));
    }
    std::stable_sort(report.faults.begin(), report.faults.end(),
                     [](const FileFault& a, const FileFault& b) { return a.offset < b.offset; });
}

VerifyReport reportOf(Inspection file) {
    VerifyReport report;
    report.state = file.state;
    report.cause = file.cause;
    report.fileBytes = std::max<std::int64_t>(file.fileBytes, 0);
    report.stopped = file.stopped;
    const bool inspected = file.state != FileState::kNotThisFormat && file.state != FileState::kCannotOpen;
    if (!inspected || file.stopped) return report;
    report.tags = static_cast<std::int64_t>(file.tags.size());
    listFaults(file, report);
    report.area = file.area;
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
    return reportOf(inspectFile(fileName, inspectionFor(options)));
}

VerifyReport missingPixels(const char* fileName) {
    InspectOptions options;
    options.depth = InspectDepth::kRecords;
    options.threads = 1;
    options.repairedIsMissing = true;
    return reportOf(inspectFile(fileName, options));
}

}  // namespace MUtils
