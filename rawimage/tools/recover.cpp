#include "rawimage/tools/recover.h"

#include <cerrno>
#include <system_error>
#include <utility>

#include "rawimage/inspect/tag_scan.h"
#include "rawimage/tools/tag_copier.h"

namespace MUtils {

namespace {

RecoverReport failure(RecoverState state, std::string cause) {
    RecoverReport report;
    report.state = state;
    report.cause = std::move(cause);
    return report;
}

RecoverReport cannotOpen(int code) {
    return failure(RecoverState::kCannotOpen, code == EWOULDBLOCK ? "another writer has the file open"
                                                                  : std::generic_category().message(code));
}

void failed(RecoverReport& report, ErrorCode error) {
    report.state = RecoverState::kWriteFailed;
    report.cause = error.describe();
    report.error = std::move(error);
}

// False when there is nothing to go on with, with the reason in the report.
bool scan(PStream& file, const TagScanOptions& options, TagScan& found, RecoverReport& report) {
    if (!scanTags(file, options, found)) {
        report = failure(RecoverState::kNotThisFormat, "not a raw image file");
    } else if (found.stopped) {
        report = failure(RecoverState::kStopped, "stopped");
    }
    if (report.state != RecoverState::kGood) return false;
    for (const TagGap& gap : found.gaps)
        report.lost.push_back({gap.offset, gap.end, gap.cause});
    for (const TagScan::Fault& fault : found.faults)
        report.doubts.push_back({fault.offset, fault.cause});
    for (const INFOTAG& tag : found.tags) {
        if (tag.id == TAG_INFO_TAGS) continue;
        ++report.tagsKept;
        report.tagsOfPixels += isPixelTag(tag.id) ? 1 : 0;
        report.bytesKept += tag.size;
    }
    return true;
}

// Whether the file is sound but for its end.
bool soundInside(const TagScan& found, RecoverReport& report) {
    std::string damage;
    if (!found.faults.empty()) damage = found.faults.front().cause;
    for (const TagGap& gap : found.gaps) {
        if (!gap.torn && damage.empty()) damage = gap.cause + (" at " + std::to_string(gap.offset));
    }
    if (damage.empty()) return true;
    report.state = RecoverState::kNotInPlace;
    report.cause = damage;
    return false;
}

}  // namespace

RecoverReport recoverFile(const char* input, const char* output, const RecoverOptions& options) {
    PFileStream file;
    if (const int code = file.Open(input, PFileStream::kRead, 1, PFileStream::kOpenExisting); code != 0)
        return cannotOpen(code);
    if (isSameFile(input, output))
        return failure(RecoverState::kWriteFailed, "input and output are the same file");
    RecoverReport report;
    TagScan found;
    TagScanOptions scanning;
    scanning.threads = options.threads;
    TagCopier::Progress copying;
    // Checking is the first half of the work, copying the second.
    if (options.progress) {
        scanning.progress = [&](std::int64_t done, std::int64_t total) {
            return options.progress(done, 2 * total);
        };
        copying = [&](std::int64_t copied) {
            return options.progress(found.fileBytes + copied, 2 * found.fileBytes);
        };
    }
    if (!scan(file, scanning, found, report)) return report;
    TagCopier copier(copying);
    ErrorCode error = copier.begin(output, found.compressed);
    if (error.empty()) error = copier.copy(file, found.tags);
    const bool whole = error.empty() && !copier.stopped();
    ErrorCode closing = whole ? copier.Close() : copier.leaveOpenEnded();
    if (error.empty()) error = std::move(closing);
    if (!error.empty()) {
        failed(report, std::move(error));
    } else if (!whole) {
        report.state = RecoverState::kStopped;
        report.cause = "stopped";
    }
    return report;
}

RecoverReport recoverInPlace(const char* fileName, const RecoverOptions& options) {
    TagCopier file;
    if (const int code = file.open(fileName); code != 0) return cannotOpen(code);
    RecoverReport report;
    TagScan found;
    TagScanOptions scanning;
    scanning.threads = options.threads;
    scanning.progress = options.progress;
    if (!scan(file.file(), scanning, found, report) || !soundInside(found, report)) return report;
    // Finished, and nothing behind the table.
    report.changed = found.tableOffset == 0;
    if (!report.changed) return report;
    ErrorCode error = file.resume(found.tags, found.compressed);
    ErrorCode closing = error.empty() ? file.Close() : file.leaveOpenEnded();
    if (error.empty()) error = std::move(closing);
    if (!error.empty()) failed(report, std::move(error));
    return report;
}

RecoverReport prepareResume(const char* fileName) {
    TagCopier file;
    if (const int code = file.open(fileName); code != 0) return cannotOpen(code);
    RecoverReport report;
    TagScan found;
    TagScanOptions scanning;
    scanning.pixels = false;
    if (!scan(file.file(), scanning, found, report) || !soundInside(found, report)) return report;
    ErrorCode error = file.resume(found.tags, found.compressed);
    ErrorCode closing = file.leaveOpenEnded();
    if (error.empty()) error = std::move(closing);
    if (!error.empty()) failed(report, std::move(error));
    return report;
}

}  // namespace MUtils
