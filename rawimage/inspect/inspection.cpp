#include "rawimage/inspect/inspection.h"

#include <algorithm>
#include <iterator>
#include <system_error>
#include <utility>

#include "rawimage/area/tag_box.h"
#include "rawimage/inspect/channel_cover.h"
#include "rawimage/inspect/frame_facts.h"
#include "rawimage/inspect/judge.h"
#include "rawimage/inspect/payload_pool.h"
#include "rawimage/inspect/tag_check.h"
#include "rawimage/inspect/tag_scan.h"
#include "support/stream_wrapper.h"

namespace MUtils {
inline namespace v1 {

namespace {

constexpr const char* kDoubtCause = "pixels whose place or channel other tags deny";
constexpr const char* kUnsettledCause = "its table entry differs, and nothing shows which is right";
constexpr const char* kForeignCause = "another file seems to have left this tag here";
constexpr const char* kTailCause = "something follows the tag table";

void setState(Inspection& file, FileState state, std::string cause, std::int64_t offset) {
    file.state = state;
    file.cause = std::move(cause);
    file.causeOffset = offset;
}

FileFault makeFault(const RIF_TAG& tag, std::int64_t offset, std::int64_t end, std::string cause,
                    const FrameFacts& facts) {
    FileFault fault;
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

// There is one.
const INFOTAG& tagAt(const Inspection& file, std::int64_t offset) {
    return *std::lower_bound(
        file.tags.begin(), file.tags.end(), offset,
        [](const INFOTAG& tag, std::int64_t from) { return static_cast<std::int64_t>(tag.offset) < from; });
}

// The header's offset leads to a table, and the file goes on behind it.
void checkTail(Inspection& file) {
    const auto table = std::find_if(file.tags.begin(), file.tags.end(), [&file](const INFOTAG& tag) {
        return tag.id == TAG_INFO_TAGS && tag.offset == file.header.infoTagsOffset;
    });
    if (table == file.tags.end()) return;
    const std::int64_t end = static_cast<std::int64_t>(table->offset) + table->size;
    if (end >= file.fileBytes) return;
    file.tailOffset = end;
    setState(file, FileState::kDamaged, kTailCause, end);
}

FileFault doubtAt(const Inspection& file, std::int64_t offset) {
    const INFOTAG& tag = tagAt(file, offset);
    const bool foreign = file.foreignFrom > 0 && offset >= file.foreignFrom;
    const char* cause = foreign ? kForeignCause : isPixelTag(tag.id) ? kDoubtCause : kUnsettledCause;
    return makeFault(tag, offset, offset, cause, file.facts);
}

void readFacts(PStream& stream, Inspection& file) {
    std::vector<INFOTAG> own;
    if (file.foreignFrom > 0) {
        std::copy_if(
            file.tags.begin(), file.tags.end(), std::back_inserter(own),
            [&file](const INFOTAG& tag) { return static_cast<std::int64_t>(tag.offset) < file.foreignFrom; });
    }
    const std::vector<INFOTAG>& tags = file.foreignFrom > 0 ? own : file.tags;
    if (const INFOTAG* tag = readFrameFacts(stream, tags, file.facts))
        file.faults.push_back({static_cast<std::int64_t>(tag->offset), "payload cannot be read", *tag});
    file.area = file.facts.area();
}

void listMissing(Inspection& file, const ChannelCover& cover) {
    ChannelCover::Missing missing = cover.missing(file.area);
    for (auto& [channel, boxes] : missing.channels)
        file.missing.push_back({channel, file.facts.channelName(channel), std::move(boxes)});
    file.missingInAny = std::move(missing.inAny);
}

// True when there is damage; the state is then that of the first one.
bool findDamage(Inspection& file) {
    const auto take = [&file](std::int64_t offset, const std::string& cause) {
        if (file.state == FileState::kDamaged && file.causeOffset <= offset) return;
        setState(file, FileState::kDamaged, cause, offset);
    };
    for (const TagScan::Fault& fault : file.faults)
        take(fault.offset, fault.cause);
    for (const TagGap& gap : file.gaps) {
        if (!gap.torn) take(gap.offset, gap.cause);
    }
    for (const TagScan::Repair& repair : file.repairs)
        take(repair.offset, repair.cause);
    for (const std::int64_t offset : file.doubted)
        take(offset, doubtAt(file, offset).cause);
    return file.state == FileState::kDamaged;
}

void decide(Inspection& file) {
    if (findDamage(file)) return;
    checkTail(file);
    if (file.state == FileState::kDamaged) return;
    const auto torn =
        std::find_if(file.gaps.begin(), file.gaps.end(), [](const TagGap& gap) { return gap.torn; });
    const auto incomplete = [&file](const char* cause) { setState(file, FileState::kIncomplete, cause, -1); };
    if (torn != file.gaps.end()) {
        setState(file, FileState::kUnfinished, "cut at " + std::to_string(torn->offset) + ": " + torn->cause,
                 torn->offset);
    } else if (file.tableOffset == 0) {
        setState(file, FileState::kUnfinished, "never closed: no tag table", file.fileBytes);
    } else if (file.facts.frame().empty()) {
        incomplete("the resolution is missing");
    } else if (file.facts.channels.empty()) {
        incomplete("the channel list is missing");
    } else if (!file.missingInAny.boxes.empty() || file.missingInAny.truncated) {
        incomplete("pixels are missing");
    }
}

ChannelCover coverOf(const Inspection& file, bool repairedIsMissing) {
    ChannelCover cover;
    cover.addChannels(file.facts.channels);
    cover.addPixels(file, repairedIsMissing);
    cover.addWindows(file.tags, file.facts.frame());
    return cover;
}

bool headerCanBeRead(PStream& stream) {
    ByteBuffer bytes;
    return readPayloadAt(stream, 0, kFileHeaderBytes, bytes);
}

// Where the data ends of a stream that does not know its length.
std::int64_t measure(PStream& stream) {
    constexpr int kPiece = 1 << 14;
    unsigned char bytes[kPiece];
    std::int64_t end = 0;
    int got = kPiece;
    for (int code = stream.Seek(0); code == 0 && got == kPiece; end += got)
        code = stream.Read(bytes, kPiece, got);
    return end;
}

// A stream that knows its length, on one that does not.
class MeasuredStream final : public StreamWrapper {
  public:
    explicit MeasuredStream(PStream& stream) : StreamWrapper(stream), length_(measure(stream)) {}

    std::int64_t Length() override { return length_; }

  private:
    const std::int64_t length_;
};

}  // namespace

const char* stateName(FileState state) {
    switch (state) {
        case FileState::kGood: return "good";
        case FileState::kUnfinished: return "unfinished";
        case FileState::kIncomplete: return "incomplete";
        case FileState::kDamaged: return "damaged";
        case FileState::kNotThisFormat: return "not this format";
        case FileState::kCannotOpen: break;
    }
    return "cannot open";
}

FileFault faultOf(const TagGap& gap, const FrameFacts& facts) {
    return makeFault(gap.tag, gap.offset, gap.end, gap.cause, facts);
}

FileFaults faultsOf(const Inspection& file) {
    FileFaults faults;
    for (const TagGap& gap : file.gaps) {
        if (!gap.torn) faults.lost.push_back(faultOf(gap, file.facts));
    }
    for (const TagScan::Repair& repair : file.repairs) {
        faults.repaired.push_back(
            makeFault(tagAt(file, repair.offset), repair.offset, repair.offset, repair.cause, file.facts));
    }
    for (const std::int64_t offset : file.doubted)
        faults.doubts.push_back(doubtAt(file, offset));
    for (const TagScan::Fault& found : file.faults) {
        faults.doubts.push_back(makeFault(found.tag, found.offset, found.offset, found.cause, file.facts));
        faults.doubts.back().count = found.count;
    }
    if (file.tailOffset > 0)
        faults.doubts.push_back(makeFault({}, file.tailOffset, file.tailOffset, kTailCause, file.facts));
    std::stable_sort(faults.doubts.begin(), faults.doubts.end(),
                     [](const FileFault& a, const FileFault& b) { return a.offset < b.offset; });
    return faults;
}

void judge(Inspection& file, const ChannelCover& cover) {
    listMissing(file, cover);
    if (file.state == FileState::kGood) decide(file);
}

Inspection inspectStream(PStream& stream, const InspectOptions& options) {
    Inspection file;
    if (!stream.IsOpen()) {
        setState(file, FileState::kCannotOpen, "not open", -1);
        return file;
    }
    if (stream.Length() < 0) {
        MeasuredStream measured(stream);
        return inspectStream(measured, options);
    }
    const bool isRawImage = scanTags(stream, options, file);
    if (!isRawImage && file.fileBytes >= kFileHeaderBytes && !headerCanBeRead(stream)) {
        setState(file, FileState::kCannotOpen, "the file header cannot be read", 0);
        return file;
    }
    if (!isRawImage || file.header.magic != RIF_MAGIC) {
        setState(file, FileState::kNotThisFormat,
                 isRawImage ? "not a raw image file by its header, but recovery finds tags of one"
                 : file.fileBytes < kFileHeaderBytes ? "shorter than the file header of a raw image file"
                                                     : "not a raw image file",
                 0);
    }
    if (!isRawImage || file.stopped) return file;
    readFacts(stream, file);
    if (options.findMissing) {
        judge(file, coverOf(file, options.repairedIsMissing));
    } else if (file.state == FileState::kGood) {
        decide(file);
    }
    return file;
}

Inspection inspectFile(const char* fileName, const InspectOptions& options) {
    PFileStream stream;
    const int code = stream.Open(fileName, PFileStream::kRead, 1, PFileStream::kOpenExisting);
    if (code == 0) return inspectStream(stream, options);
    Inspection file;
    setState(file, FileState::kCannotOpen, std::generic_category().message(code), -1);
    return file;
}

}  // namespace v1
}  // namespace MUtils
