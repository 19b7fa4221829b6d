#include "rawimage/inspect/tag_scan.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "rawimage/inspect/cross_check.h"
#include "rawimage/inspect/payload_pool.h"
#include "rawimage/inspect/pixel_storage.h"
#include "rawimage/inspect/tag_check.h"

namespace MUtils {
inline namespace v1 {

namespace {

constexpr int kFlagsPosition = 20;
// How far into a file that does not look like one of this format its tags are looked for.
constexpr std::int64_t kForeignBytes = 16 << 20;
constexpr std::int64_t kSector = 512;  // what a disk writes at a time, at the least

class Scanner {
  public:
    Scanner(PStream& stream, const InspectOptions& options, TagScan& scan)
        : stream_(stream), options_(options), scan_(scan), storage_(stream, scan, options) {}

    // False when the stream does not hold a raw image.
    bool begin();
    void run();

  private:
    using Place = TagSearch::Place;

    TagSearch& search() { return storage_.search(); }
    const TagRules& rules() { return search().rules(); }

    void checkFlags(std::int64_t first);
    std::int64_t beginOfTags();
    bool isSound(Place& place, std::int64_t offset, std::int64_t end, bool thorough, Place& there,
                 std::optional<TagSearch::Resume>& resume);
    void walk(std::int64_t from, std::int64_t end, bool thorough, std::vector<INFOTAG>& tags);
    std::optional<TagSearch::OtherFile> otherFile(const Place& place, std::int64_t offset,
                                                  const TagSearch::Resume& resume);
    void endAt(std::int64_t other, std::int64_t offset, const Place& place);
    void addGap(std::int64_t offset, std::int64_t end, const Place& place, bool torn);
    bool isTorn(std::int64_t offset, std::int64_t end, const Place& place);
    bool isDamaged(const Place& place, std::int64_t offset);
    bool endsInZeros(std::int64_t offset, std::int64_t end);
    void checkPayloads();
    void replaceBadTags(const std::vector<PayloadPool::Bad>& bad);

    PStream& stream_;
    const InspectOptions& options_;
    TagScan& scan_;
    PixelStorage storage_;
};

bool Scanner::begin() {
    if (scan_.header.magic == RIF_MAGIC) {
        checkFlags(kFileHeaderBytes);
        return true;
    }
    scan_.faults.push_back({0, "the file does not begin with the format's magic", {}});
    unsigned char bytes[kFileHeaderBytes];
    encodeHeader(scan_.header, bytes);
    const bool wiped = std::all_of(bytes, std::end(bytes), [](unsigned char byte) { return byte == 0; });
    const std::int64_t end = wiped ? scan_.fileBytes : std::min(scan_.fileBytes, kForeignBytes);
    const std::int64_t first = storage_.findFirstTag(end);
    if (first < end) checkFlags(first);
    return first < end;
}

void Scanner::checkFlags(std::int64_t first) {
    if (storage_.deniedByTags(first))
        scan_.faults.push_back({kFlagsPosition, "the flags deny how pixels are stored", {}});
    scan_.compressed = search().rules().compressed();
}

// Where bytes of the file header are missing, the first tag begins inside it.
std::int64_t Scanner::beginOfTags() {
    if (search().look(kFileHeaderBytes, scan_.fileBytes).fault == nullptr) return kFileHeaderBytes;
    const std::int64_t first = search().findTag(1, kFileHeaderBytes, scan_.fileBytes);
    if (first < kFileHeaderBytes) scan_.faults.push_back({0, "the file header lacks bytes", {}});
    return first;
}

void Scanner::run() {
    std::vector<INFOTAG> tags;
    walk(beginOfTags(), scan_.fileBytes, false, tags);
    scan_.tags.swap(tags);
    if (!storage_.stopped()) checkPayloads();
    scan_.stopped = scan_.stopped || storage_.stopped();
    if (!scan_.stopped) crossCheck(stream_, scan_);
}

// Whether the walk takes the tag at `offset`, whose header has no fault. A sound header or the end of the
// file behind it, which is looked up in `there`, is enough; without one, or when it is to be `thorough`, the
// payload is checked as well. When the result is false, the fault is in `place`, and `resume` is set if the
// next tag is known already.
bool Scanner::isSound(Place& place, std::int64_t offset, std::int64_t end, bool thorough, Place& there,
                      std::optional<TagSearch::Resume>& resume) {
    const std::int64_t next = offset + place.tag.size;
    there = search().look(next, end);
    const bool goesOn = there.fault == nullptr || next == scan_.fileBytes;
    if (thorough || !goesOn) place.fault = search().payloadFault(place.tag, offset);
    if (place.fault == nullptr && next < scan_.fileBytes)
        place.fault = search().tableFault(place.tag, offset);
    if (place.fault != nullptr || goesOn || rules().provesItself(place.tag)) return place.fault == nullptr;
    const std::int64_t across = search().findTagInside(place.tag, offset, end);
    const bool cut = !isOpaque(place.tag.id) && search().findOtherFile(offset + 1, next);
    if (across == next && !cut) return true;
    place.fault = "payload that lacks bytes";
    resume = {across, false};
    return false;
}

void Scanner::walk(std::int64_t from, std::int64_t end, bool thorough, std::vector<INFOTAG>& tags) {
    constexpr std::size_t kTagsBetweenCalls = 4096;
    Place place = search().look(from, end);
    for (std::int64_t offset = from; offset < end && !storage_.stopped();) {
        if (tags.size() % kTagsBetweenCalls == 0 && !search().going(0)) break;
        Place there;
        std::optional<TagSearch::Resume> resume;
        if (place.fault == nullptr && isSound(place, offset, end, thorough, there, resume)) {
            INFOTAG entry;
            static_cast<RIF_TAG&>(entry) = place.tag;
            entry.offset = static_cast<std::uint64_t>(offset);
            tags.push_back(entry);
            place = there;
            offset += entry.size;
            continue;
        }
        if (!resume) resume = search().resumeAfter(offset, place, end);
        std::int64_t next = resume->offset;
        const bool mayEnd = !thorough && (scan_.header.magic == RIF_MAGIC || !tags.empty());
        if (const auto other = mayEnd ? otherFile(place, offset, *resume) : std::nullopt) {
            if (other->end == scan_.fileBytes) return endAt(other->offset, offset, place);
            next = std::max(next, other->end);
        }
        addGap(offset, next, place, next == scan_.fileBytes && isTorn(offset, next, place));
        offset = next;
        place = search().look(offset, end);
    }
}

// Another file between the tag at `offset`, which is not sound, and the next one.
std::optional<TagSearch::OtherFile> Scanner::otherFile(const Place& place, std::int64_t offset,
                                                       const TagSearch::Resume& resume) {
    if (resume.byPointer) return std::nullopt;
    // When the file breaks off in a blob, a file right behind the header is the content.
    const bool isContent = isOpaque(place.tag.id) && rules().cutInPayload(place.tag, offset, scan_.fileBytes);
    return search().findOtherFile(isContent ? offset + kTagHeaderBytes + 1 : offset, resume.offset);
}

// Another file begins at `other`, behind or inside the tag at `offset`, which is not sound.
void Scanner::endAt(std::int64_t other, std::int64_t offset, const Place& place) {
    scan_.ownBytes = other;
    if (offset < other) {
        Place cut = search().look(offset, other);
        if (cut.fault == nullptr) cut.fault = place.fault;
        addGap(offset, other, cut, isTorn(offset, other, cut));
    }
    Place begins;
    begins.fault = "another file begins here";
    addGap(other, scan_.fileBytes, begins, false);
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
    return place.whole && rules().cutInPayload(place.tag, offset, end) &&
           !search().hasWholePayload(place.tag, offset);
}

// Whether the header is damaged: neither as a writer writes it nor as a power cut leaves it, which is whole,
// zeros, or cut at the end of a sector.
bool Scanner::isDamaged(const Place& place, std::int64_t offset) {
    if (!place.whole || place.tag.id == 0) return false;
    const std::int64_t there = kSector - offset % kSector;
    if (there < headerBytesOfSize(place.tag)) {
        unsigned char header[kTagHeaderBytes];
        encodeTag(place.tag, header);
        if (std::all_of(header + there, std::end(header), [](unsigned char byte) { return byte == 0; }))
            return false;
    }
    return !rules().cutInPayload(place.tag, offset, offset);
}

bool Scanner::endsInZeros(std::int64_t offset, std::int64_t end) {
    const std::int64_t tail = std::min(kSector, end - offset);
    ByteBuffer bytes;
    return readPayloadAt(stream_, end - tail, tail, bytes) &&
           std::all_of(bytes.data(), bytes.data() + tail, [](unsigned char byte) { return byte == 0; });
}

void Scanner::checkPayloads() {
    std::vector<PayloadPool::Bad> bad;
    if (options_.depth == InspectDepth::kHeaders) return;
    const bool pixels = options_.depth == InspectDepth::kPayloads;
    PayloadPool pool(stream_, pixels ? options_.threads : 1, rules());
    const auto wanted = [this, pixels](const RIF_TAG& tag) {
        return pixels || (!isPixelTag(tag.id) && PayloadCheck::looksAt(tag, rules()));
    };
    scan_.stopped = !pool.check(scan_.tags, wanted, options_.progress, bad);
    if (!bad.empty()) replaceBadTags(bad);
}

// A tag whose payload contradicts its header becomes a gap. Sound tags inside it stay: its size was
// damaged so that it reached over them. Bytes behind the end of the pixels that contain no tag are no damage:
// writers may leave them.
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
        const std::int64_t inner = search().resumeAfter(offset, place, end).offset;
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
    scan.fileBytes = scan.ownBytes = stream.Length();
    ByteBuffer bytes;
    if (scan.fileBytes < kFileHeaderBytes || !readPayloadAt(stream, 0, kFileHeaderBytes, bytes)) return false;
    scan.header = decodeHeader(bytes.data());
    Scanner scanner(stream, options, scan);
    if (!scanner.begin()) return false;
    scanner.run();
    return true;
}

}  // namespace v1
}  // namespace MUtils
