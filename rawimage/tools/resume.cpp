#include "rawimage/tools/resume.h"

#include <utility>

#include "rawimage/tools/recover_report.h"
#include "rawimage/tools/tag_copier.h"

namespace MUtils {
inline namespace v1 {

RecoverReport prepareResume(const char* fileName) {
    TagCopier file;
    if (const int code = file.open(fileName); code != 0) return cannotOpenForRecovery(code);
    RecoverReport report;
    InspectOptions options;
    options.depth = InspectDepth::kRecords;
    const Inspection found = inspectStream(file.file(), options);
    if (!reportInspection(found, report) || !isSoundButForItsEnd(found, true, report)) return report;
    ErrorCode error = file.resume(found);
    ErrorCode closing = file.leaveOpenEnded();
    if (error.empty()) error = std::move(closing);
    if (!error.empty()) setWriteFailure(report, std::move(error));
    return report;
}

}  // namespace v1
}  // namespace MUtils
