#include "rawimage/inspect/tag_scan.h"

#include <algorithm>
#include <utility>

#include "rawimage/inspect/cross_check.h"
#include "rawimage/inspect/payload_pool.h"
#include "rawimage/inspect/tag_check.h"
#include "rawimage/inspect/tag_search.h"

namespace MUtils {

namespace {

constexpr int kFlagsPosition = 20;
// How far into a file that does not look like one of this format its tags are looked for.
constexpr std::int64_t kForeignBytes = 16 << 20;
constexpr std::int64_t kSector = 512;  // what a disk writes at a time, at the least

// How much of a header tells how large its payload is.
int bytesThatSaySize(const RIF_TAG& tag) {
    constexpr int kFirst = 8, kField = 4;  // behind id and size; each parameter
    switch (tag.id) {
        case TAG_CHANNEL_INFO:
        case TAG_PREVIEW: return kFirst + 2 * kField;
        case TAG_INFO_TAGS:
        case TAG_STAMP:
        case TAG_OVERLAY_TEXTS:
        case TAG_SETTINGS: return kFirst + kField;
        default: return isPixelTag(tag.id) ? kFirst + 5 * kField : kFirst;
    }
}

class Scanner {
  public:
    Scanner(PStream& stream, const InspectOptions& options, TagScan& scan)
        : stream_(stream), options_(options), scan_(scan), search_(stream, scan, options) {}

    bool begin();
    void run();

  private:
    using Place = TagSearch::Place;

    bool findFirst(std::int64_t end);
    std::pair<std::int64_t, bool> searchEither(std::int64_t from, std::int64_t end);
    void checkFlags(std::int64_t first);
    bool fits(const RIF_TAG& tag, std::int64_t offset, bool compressed);
    bool isSound(Place& place, std::int64_t offset, std::int64_t end, bool thorough, Place& there,
                 std::int64_t& resume);
    void walk(std::int64_t from, std::int64_t end, bool thorough, std::vector<INFOTAG>& tags);
    void addGap(std::int64_t offset, std::int64_t end, const Place& place, bool torn);
    bool isTorn(std::int64_t offset, std::int64_t end, const Place& place);
    bool isDamaged(const Place& place, std::int64_t offset);
    bool endsInZeros(std::int64_t offset, std::int64_t end);
    void checkPayloads();
    void replaceBadTags(const std::vector<PayloadPool::Bad>& bad);

    PStream& stream_;
    const InspectOptions& options_;
    TagScan& scan_;
    TagSearch search_;
};

bool Scanner::begin() {
    ScratchBuffer bytes;
    if (!readPayloadAt(stream_, 0, kFileHeaderBytes, bytes)) return false;
    scan_.header = decodeHeader(bytes.data());
    scan_.compressed = (scan_.header.flags & RIF_COMPRESSED) != 0;
    if (scan_.header.magic == RIF_MAGIC) {
        checkFlags(kFileHeaderBytes);
        return true;
    }
    scan_.faults.push_back({0, "the file does not begin with the format's magic", {}});
    const bool wiped = std::all_of(bytes.data(), bytes.data() + kFileHeaderBytes,
                                   [](unsigned char byte) { return byte == 0; });
    return findFirst(wiped ? scan_.fileBytes : std::min(scan_.fileBytes, kForeignBytes));
}

// Where the file header is gone, what the flags said may be gone with it: the earlier tag tells.
bool Scanner::findFirst(std::int64_t end) {
    const auto [first, compressed] = searchEither(kFileHeaderBytes, end);
    scan_.compressed = compressed;
    if (first < end) checkFlags(first);
    return first < end;
}

// The first tag before `end` that stands, whether pixels are compressed or not, and which of the two; what is
// believed of them where that makes no difference.
std::pair<std::int64_t, bool> Scanner::searchEither(std::int64_t from, std::int64_t end) {
    const bool stated = scan_.compressed;
    std::pair<std::int64_t, bool> first{end, stated};
    for (const bool assumed : {stated, !stated}) {
        scan_.compressed = assumed;
        const std::int64_t found = search_.search(from, first.first, scan_.fileBytes);
        if (found < first.first) first = {found, assumed};
    }
    scan_.compressed = stated;
    return first;
}

bool Scanner::fits(const RIF_TAG& tag, std::int64_t offset, bool compressed) {
    scan_.compressed = compressed;
    return headerFault(tag, offset, scan_.fileBytes, compressed) == nullptr &&
           search_.payloadFault(tag, offset) == nullptr;
}

// A flag that a damaged file header has lost: when none of the first pixel tags is what the flag says, and
// all that can be reached are what it denies, the flag is wrong. In a sound file the first one settles it.
void Scanner::checkFlags(std::int64_t first) {
    constexpr int kTagsAsked = 16;
    constexpr int kTagsPassed = 1000;
    constexpr int kTimesAstray = 4;
    const bool stated = scan_.compressed;
    int asked = 0;
    int denied = 0;
    int astray = 0;
    std::int64_t offset = first;
    for (int i = 0; i < kTagsPassed && asked < kTagsAsked && offset < scan_.fileBytes; ++i) {
        const Place place = search_.look(offset, scan_.fileBytes);
        bool leadsOn = search_.leadsOn(place, offset);
        if (place.whole && isPixelTag(place.tag.id)) {
            ++asked;
            // Most tags settle it by their size alone.
            const bool mayDeny = headerFault(place.tag, offset, scan_.fileBytes, !stated) == nullptr;
            const bool right = mayDeny ? fits(place.tag, offset, stated) : place.fault == nullptr;
            if (!right && mayDeny) denied += fits(place.tag, offset, !stated) ? 1 : 0;
            scan_.compressed = stated;
            // A stream that inflates as it should settles it, too, whatever the size says.
            if (right || (stated && mayDeny && search_.endsEarly(place.tag, offset))) return;
            leadsOn = leadsOn || mayDeny;
        }
        if (!leadsOn && ++astray > kTimesAstray) break;
        offset = leadsOn ? offset + place.tag.size : searchEither(offset + 1, scan_.fileBytes).first;
    }
    // One tag alone that denies the flag may be the one that is damaged: its size leads astray.
    if (denied == 0 || (astray > 0 && denied < 2)) return;
    scan_.compressed = !stated;
    scan_.faults.push_back({kFlagsPosition, "the flags deny how pixels are stored", {}});
}

void Scanner::run() {
    std::vector<INFOTAG> tags;
    walk(kFileHeaderBytes, scan_.fileBytes, false, tags);
    scan_.tags.swap(tags);
    if (!search_.stopped()) checkPayloads();
    scan_.stopped = scan_.stopped || search_.stopped();
    if (!scan_.stopped) crossCheck(stream_, scan_);
}

// Whether the tag at `offset` is one, by its header and by that which follows, `there`; but where no sound
// header and not the end of the file follows, or it is to be `thorough`, its payload decides. Else its fault
// is set, and `resume` is where the next tag is, if that has come out.
bool Scanner::isSound(Place& place, std::int64_t offset, std::int64_t end, bool thorough, Place& there,
                      std::int64_t& resume) {
    const std::int64_t next = offset + place.tag.size;
    there = search_.look(next, end);
    const bool goesOn = there.fault == nullptr || next == scan_.fileBytes;
    if (thorough || !goesOn) place.fault = search_.payloadFault(place.tag, offset);
    if (place.fault == nullptr && next < scan_.fileBytes) place.fault = search_.tableFault(place.tag, offset);
    if (place.fault != nullptr || goesOn || provesItself(place.tag, scan_.compressed))
        return place.fault == nullptr;
    const std::int64_t across = search_.tagsAcross(place.tag, offset, end);
    if (across == next) return true;
    place.fault = "payload that lacks bytes";
    resume = across;
    return false;
}

void Scanner::walk(std::int64_t from, std::int64_t end, bool thorough, std::vector<INFOTAG>& tags) {
    constexpr std::size_t kTagsBetweenCalls = 4096;
    Place place = search_.look(from, end);
    for (std::int64_t offset = from; offset < end && !search_.stopped();) {
        if (tags.size() % kTagsBetweenCalls == 0 && !search_.going(0)) break;
        Place there;
        std::int64_t resume = -1;
        if (place.fault == nullptr && isSound(place, offset, end, thorough, there, resume)) {
            INFOTAG entry;
            static_cast<RIF_TAG&>(entry) = place.tag;
            entry.offset = static_cast<std::uint64_t>(offset);
            tags.push_back(entry);
            place = there;
            offset += entry.size;
            continue;
        }
        const std::int64_t next = resume >= 0 ? resume : search_.nextAfter(offset, place, end);
        addGap(offset, next, place, next == scan_.fileBytes && isTorn(offset, next, place));
        offset = next;
        place = search_.look(offset, end);
    }
}

void Scanner::addGap(std::int64_t offset, std::int64_t end, const Place& place, bool torn) {
    TagGap gap;
    gap.offset = offset;
    gap.end = end;
    gap.cause = place.fault;
    gap.tag = place.tag;
    gap.torn = torn;
    scan_.gaps.push_back(gap);
}

// Whether a gap up to the end of the file is half a tag: half a header, half a payload, or the zeros that a
// power cut leaves where a file had grown and its data had not come.
bool Scanner::isTorn(std::int64_t offset, std::int64_t end, const Place& place) {
    if (end - offset < kTagHeaderBytes) return true;
    if (endsInZeros(offset, end) && !isDamaged(place, offset)) return true;
    return place.whole && cutInPayload(place.tag, offset, end, scan_.compressed) &&
           !search_.endsEarly(place.tag, offset);
}

// Whether the header is neither what a writer writes nor what a power cut leaves of it: whole, nothing, or a
// part up to the border of a sector.
bool Scanner::isDamaged(const Place& place, std::int64_t offset) {
    if (!place.whole || place.tag.id == 0) return false;
    const std::int64_t there = kSector - offset % kSector;
    if (there < bytesThatSaySize(place.tag)) {
        unsigned char header[kTagHeaderBytes];
        encodeTag(place.tag, header);
        if (std::all_of(header + there, std::end(header), [](unsigned char byte) { return byte == 0; }))
            return false;
    }
    return !cutInPayload(place.tag, offset, offset, scan_.compressed);
}

bool Scanner::endsInZeros(std::int64_t offset, std::int64_t end) {
    const std::int64_t tail = std::min(kSector, end - offset);
    ScratchBuffer bytes;
    return readPayloadAt(stream_, end - tail, tail, bytes) &&
           std::all_of(bytes.data(), bytes.data() + tail, [](unsigned char byte) { return byte == 0; });
}

void Scanner::checkPayloads() {
    std::vector<PayloadPool::Bad> bad;
    if (options_.depth == InspectDepth::kHeaders) return;
    const bool pixels = options_.depth == InspectDepth::kPayloads;
    PayloadPool pool(stream_, pixels ? options_.threads : 1, scan_.compressed);
    const auto wanted = [this, pixels](const RIF_TAG& tag) {
        return pixels || (!isPixelTag(tag.id) && PayloadCheck::looksAt(tag, scan_.compressed));
    };
    scan_.stopped = !pool.check(scan_.tags, wanted, options_.progress, bad);
    if (!bad.empty()) replaceBadTags(bad);
}

// A tag whose payload is not what its header says becomes a gap, unless there are sound tags under it: then
// its header was damaged so that it seemed to reach over them. Bytes behind the end of the pixels that are no
// tags are the writer's business.
void Scanner::replaceBadTags(const std::vector<PayloadPool::Bad>& bad) {
    std::vector<INFOTAG> kept;
    std::size_t next = 0;
    for (std::size_t i = 0; i < scan_.tags.size(); ++i) {
        const INFOTAG& tag = scan_.tags[i];
        if (next == bad.size() || bad[next].index != i) {
            kept.push_back(tag);
            continue;
        }
        const auto offset = static_cast<std::int64_t>(tag.offset);
        const std::int64_t end = offset + tag.size;
        const Place place{tag, true, bad[next++].cause};
        const std::int64_t inner = search_.nextAfter(offset, place, end);
        if (inner == end && place.fault == PayloadCheck::kBytesBehindPixels) {
            kept.push_back(tag);
            continue;
        }
        addGap(offset, inner, place, false);
        if (inner < end) walk(inner, end, true, kept);
    }
    scan_.tags.swap(kept);
    std::sort(scan_.gaps.begin(), scan_.gaps.end(),
              [](const TagGap& a, const TagGap& b) { return a.offset < b.offset; });
}

}  // namespace

bool scanTags(PStream& stream, const InspectOptions& options, TagScan& scan) {
    scan = TagScan();
    scan.fileBytes = stream.Length();
    if (scan.fileBytes < kFileHeaderBytes) return false;
    Scanner scanner(stream, options, scan);
    if (!scanner.begin()) return false;
    scanner.run();
    return true;
}

}  // namespace MUtils
