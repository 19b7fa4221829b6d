#include "rawimage/tools/verify.h"

#include <algorithm>
#include <system_error>
#include <utility>

#include "rawimage/inspect/channel_cover.h"
#include "rawimage/inspect/frame_facts.h"
#include "rawimage/inspect/tag_check.h"
#include "rawimage/inspect/tag_scan.h"

namespace MUtils {

namespace {

VerifyFault faultOf(const RIF_TAG& tag, std::int64_t offset, std::int64_t end, std::string cause,
                    const FrameFacts& facts) {
    VerifyFault fault;
    fault.offset = offset;
    fault.end = end;
    fault.tagId = tag.id;
    fault.cause = std::move(cause);
    if (isPixelTag(tag.id)) {
        fault.box = boxOf(tag);
        fault.channel = tag.p8;
        fault.channelName = facts.channelName(tag.p8);
    }
    return fault;
}

void listFaults(TagScan& scan, const FrameFacts& facts, VerifyReport& report) {
    for (TagScan::Fault& found : scan.faults)
        report.faults.push_back(
            faultOf(found.tag, found.offset, found.offset, std::move(found.cause), facts));
    for (const TagGap& gap : scan.gaps) {
        if (gap.torn) continue;
        if (report.faults.size() < kMaxVerifyFaults) {
            report.faults.push_back(faultOf(gap.tag, gap.offset, gap.end, gap.cause, facts));
        } else {
            ++report.furtherFaults;
        }
    }
    report.furtherFaults += scan.furtherFaults;
    std::stable_sort(report.faults.begin(), report.faults.end(),
                     [](const VerifyFault& a, const VerifyFault& b) { return a.offset < b.offset; });
}

// The header leads to a table, and the file goes on behind it.
void listTail(const TagScan& scan, VerifyReport& report) {
    const auto table = std::find_if(scan.tags.begin(), scan.tags.end(), [&scan](const INFOTAG& tag) {
        return tag.id == TAG_INFO_TAGS && tag.offset == scan.header.infoTagsOffset;
    });
    if (table == scan.tags.end()) return;
    VerifyFault fault;
    fault.offset = static_cast<std::int64_t>(table->offset) + table->size;
    fault.end = scan.fileBytes;
    fault.cause = "something follows the tag table";
    if (fault.offset < fault.end) report.faults.push_back(fault);
}

void listMissing(const TagScan& scan, const FrameFacts& facts, VerifyReport& report) {
    ChannelCover cover;
    cover.addChannels(facts.channels);
    cover.addPixels(scan.tags);
    cover.addWindows(scan.tags, facts.frame());
    ChannelCover::Missing missing = cover.missing(report.area);
    for (auto& [channel, boxes] : missing.channels)
        report.missing.push_back({channel, facts.channelName(channel), std::move(boxes)});
    report.missingInAny = std::move(missing.inAny);
}

void decide(const TagScan& scan, const FrameFacts& facts, VerifyReport& report) {
    const auto torn =
        std::find_if(scan.gaps.begin(), scan.gaps.end(), [](const TagGap& gap) { return gap.torn; });
    if (!report.faults.empty()) {
        report.verdict = VerifyVerdict::kDamaged;
        report.cause = report.faults.front().cause;
    } else if (torn != scan.gaps.end()) {
        report.verdict = VerifyVerdict::kUnfinished;
        report.cause = "cut at " + std::to_string(torn->offset) + ": " + torn->cause;
    } else if (scan.tableOffset == 0) {
        report.verdict = VerifyVerdict::kUnfinished;
        report.cause = "never closed: no tag table";
    } else if (facts.frame().width < 1 || facts.frame().height < 1) {
        report.verdict = VerifyVerdict::kIncomplete;
        report.cause = "the resolution is missing";
    } else if (facts.channels.empty()) {
        report.verdict = VerifyVerdict::kIncomplete;
        report.cause = "the channel list is missing";
    } else if (!report.missingInAny.boxes.empty() || report.missingInAny.truncated) {
        report.verdict = VerifyVerdict::kIncomplete;
        report.cause = "pixels are missing";
    }
}

}  // namespace

const char* verdictName(VerifyVerdict verdict) {
    switch (verdict) {
        case VerifyVerdict::kGood: return "good";
        case VerifyVerdict::kUnfinished: return "unfinished";
        case VerifyVerdict::kIncomplete: return "incomplete";
        case VerifyVerdict::kDamaged: return "damaged";
        case VerifyVerdict::kNotThisFormat: return "not this format";
        case VerifyVerdict::kCannotOpen: break;
    }
    return "cannot open";
}

VerifyReport verifyStream(PStream& stream, const VerifyOptions& options) {
    VerifyReport report;
    TagScan scan;
    TagScanOptions scanOptions;
    scanOptions.pixels = !options.quick;
    scanOptions.threads = options.threads;
    scanOptions.progress = options.progress;
    const bool isRawImage = scanTags(stream, scanOptions, scan);
    report.fileBytes = std::max<std::int64_t>(scan.fileBytes, 0);
    if (!isRawImage || scan.header.magic != RIF_MAGIC) {
        report.verdict = VerifyVerdict::kNotThisFormat;
        report.cause = isRawImage ? "not a raw image file by its header, but recovery finds tags of one"
                       : scan.fileBytes < kFileHeaderBytes
                           ? "shorter than the file header of a raw image file"
                           : "not a raw image file";
        return report;
    }
    report.stopped = scan.stopped;
    if (scan.stopped) return report;
    report.tags = static_cast<std::int64_t>(scan.tags.size());
    const FrameFacts facts = readFrameFacts(stream, scan.tags);
    listFaults(scan, facts, report);
    if (report.faults.empty()) listTail(scan, report);
    report.area = facts.area();
    listMissing(scan, facts, report);
    decide(scan, facts, report);
    return report;
}

VerifyReport verifyFile(const char* fileName, const VerifyOptions& options) {
    PFileStream file;
    const int code = file.Open(fileName, PFileStream::kRead, 1, PFileStream::kOpenExisting);
    if (code == 0) return verifyStream(file, options);
    VerifyReport report;
    report.verdict = VerifyVerdict::kCannotOpen;
    report.cause = std::generic_category().message(code);
    return report;
}

VerifyReport missingPixels(const char* fileName) {
    VerifyOptions options;
    options.quick = true;
    options.threads = 1;
    return verifyFile(fileName, options);
}

}  // namespace MUtils
