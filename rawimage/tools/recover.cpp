#include "rawimage/tools/recover.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "rawimage/tools/recover_report.h"
#include "rawimage/tools/supplied_facts.h"
#include "rawimage/tools/tag_copier.h"
#include "support/files.h"

namespace MUtils {
inline namespace v1 {

namespace {

// The tags in file order, but those in doubt before all others, pixels behind the records: what comes later
// covers what is before it, or replaces it.
std::vector<INFOTAG> doubtfulFirst(const Inspection& file) {
    std::vector<INFOTAG> tags = file.tags;
    if (file.doubted.empty()) return tags;
    const auto isSure = [&file](const INFOTAG& tag) {
        return !std::binary_search(file.doubted.begin(), file.doubted.end(),
                                   static_cast<std::int64_t>(tag.offset));
    };
    std::stable_partition(tags.begin(), tags.end(),
                          [&isSure](const INFOTAG& tag) { return !isPixelTag(tag.id) && !isSure(tag); });
    const auto pixels =
        std::find_if(tags.begin(), tags.end(), [](const INFOTAG& tag) { return isPixelTag(tag.id); });
    std::stable_partition(pixels, tags.end(), [&isSure](const INFOTAG& tag) { return !isSure(tag); });
    return tags;
}

}  // namespace

RecoverReport recoverFile(const char* input, const char* output, const RecoverOptions& options) {
    PFileStream file;
    if (const int code = file.Open(input, PFileStream::kRead, 1, PFileStream::kOpenExisting); code != 0)
        return cannotOpenForRecovery(code);
    if (isSameFile(input, output))
        return recoverFailure(RecoverState::kWriteFailed, "input and output are the same file");
    RecoverReport report;
    Inspection found;
    InspectOptions inspecting;
    inspecting.threads = options.threads;
    TagCopier::Progress copying;
    // Checking is the first half of the work, copying the second.
    if (options.progress) {
        inspecting.progress = [&](std::int64_t done, std::int64_t total) {
            return options.progress(done, 2 * total);
        };
        copying = [&](std::int64_t copied) {
            return options.progress(found.fileBytes + copied, 2 * found.fileBytes);
        };
    }
    found = inspectStream(file, inspecting);
    SuppliedFacts supplied;
    if (!reportInspection(found, report) || !supplied.load(found, options, report)) return report;
    TagCopier copier(copying);
    ErrorCode error = copier.begin(output, found.compressed);
    if (error.empty()) error = supplied.write(copier);
    if (error.empty()) error = copier.copy(file, doubtfulFirst(found), found.repairs);
    const bool whole = error.empty() && !copier.stopped();
    ErrorCode closing = whole ? copier.close() : copier.leaveOpenEnded();
    if (error.empty()) error = std::move(closing);
    if (!error.empty()) {
        setWriteFailure(report, std::move(error));
    } else if (!whole) {
        report.state = RecoverState::kStopped;
        report.cause = "stopped";
    }
    return report;
}

RecoverReport recoverInPlace(const char* fileName, const RecoverOptions& options) {
    TagCopier file;
    if (const int code = file.open(fileName); code != 0) return cannotOpenForRecovery(code);
    RecoverReport report;
    Inspection found;
    InspectOptions inspecting;
    inspecting.threads = options.threads;
    inspecting.progress = options.progress;
    found = inspectStream(file.file(), inspecting);
    if (!reportInspection(found, report) || !isSoundButForItsEnd(found, false, report)) return report;
    // Finished, and nothing behind the table.
    report.changed = found.tableOffset == 0;
    if (!report.changed) return report;
    ErrorCode error = file.resume(found);
    ErrorCode closing = error.empty() ? file.close() : file.leaveOpenEnded();
    if (error.empty()) error = std::move(closing);
    if (!error.empty()) setWriteFailure(report, std::move(error));
    return report;
}

}  // namespace v1
}  // namespace MUtils
