#include "rawimage/frame/frame_snapshot.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "rawimage/area/tag_box.h"
#include "rawimage/frame/frame_info.h"
#include "rawimage/inspect/channel_cover.h"
#include "rawimage/inspect/frame_facts.h"
#include "rawimage/inspect/judge.h"
#include "rawimage/inspect/tag_check.h"
#include "support/bounded_read.h"

namespace MUtils {
inline namespace v1 {

namespace {

bool isSound(const Inspection& file) {
    const auto isDamage = [](const TagGap& gap) { return !gap.torn; };
    return file.state != FileState::kCannotOpen && file.state != FileState::kNotThisFormat && !file.stopped &&
           file.faults.empty() && file.repairs.empty() && file.doubted.empty() && file.tailOffset == 0 &&
           std::none_of(file.gaps.begin(), file.gaps.end(), isDamage);
}

bool isForeign(const INFOTAG& tag, const TagScan& file) {
    return file.foreignFrom > 0 && static_cast<std::int64_t>(tag.offset) >= file.foreignFrom;
}

bool sameFileHeader(const RIF_HEADER& a, const RIF_HEADER& b) {
    return a.magic == b.magic && a.formatFirst == b.formatFirst && a.formatSecond == b.formatSecond &&
           a.flags == b.flags && a.reserved == b.reserved;
}

}  // namespace

// What the other one has computed stays behind.
FrameSnapshot::FrameSnapshot(const FrameSnapshot& other)
    : source_(other.source_),
      file_(other.file_),
      faults_(other.faults_),
      sound_(other.sound_),
      info_(other.info_),
      segments_(other.segments_),
      others_(other.others_),
      windows_(other.windows_),
      known_(other.known_),
      last_(other.last_),
      anchor_(other.anchor_),
      factsDigest_(other.factsDigest_) {}

FrameSnapshot::Pointer FrameSnapshot::cannotOpen(std::string cause) {
    const std::shared_ptr<FrameSnapshot> made(new FrameSnapshot);
    Inspection file;
    file.state = FileState::kCannotOpen;
    file.cause = std::move(cause);
    made->takeInspection(std::move(file));
    return made;
}

FrameSnapshot::Pointer FrameSnapshot::open(const Source& source, const Progress& progress) {
    {
        PositionedReader::Locked locked(*source);
        if (locked.stream().IsOpen() && locked.stream().Length() >= 0) {
            QuickScan scan(locked.stream(), progress);
            const std::shared_ptr<FrameSnapshot> made(new FrameSnapshot);
            made->source_ = source;
            if (scan.run() && made->takeScan(locked.stream(), scan)) return made;
        }
    }
    return inspect(source, InspectDepth::kHeaders, 0, progress);
}

FrameSnapshot::Pointer FrameSnapshot::inspect(const Source& source, InspectDepth depth, int threads,
                                              const Progress& progress) {
    const std::shared_ptr<FrameSnapshot> made(new FrameSnapshot);
    made->source_ = source;
    InspectOptions options;
    options.depth = depth;
    options.threads = threads;
    options.progress = progress;
    PositionedReader::Locked locked(*source);
    made->takeInspection(inspectStream(locked.stream(), options));
    made->sound_ = made->readAnchor(locked.stream()) && made->sound_;
    return made;
}

// False when what the scan has listed is odd after all.
bool FrameSnapshot::takeScan(PStream& stream, QuickScan& scan) {
    // An inspection before this one has judged less of the file.
    static_cast<TagScan&>(file_) = TagScan();
    file_.state = FileState::kGood;
    file_.cause.clear();
    file_.causeOffset = -1;
    file_.missing.clear();
    file_.missingInAny = {};
    file_.header = scan.header;
    file_.fileBytes = file_.ownBytes = scan.fileBytes;
    file_.compressed = scan.compressed();
    file_.tableOffset = scan.tableOffset;
    file_.stopped = scan.stopped;
    if (scan.tornEnd) file_.gaps.push_back(*scan.tornEnd);
    others_.insert(others_.end(), scan.others.begin(), scan.others.end());
    const bool isNew = info_ == nullptr || !scan.others.empty();
    if (isNew && readFrameFacts(stream, others_, file_.facts) != nullptr) return false;
    file_.area = file_.facts.area();
    const std::map<std::int32_t, std::int32_t> channels = scan.order.channels();
    if (!listAgrees(file_.facts.channels, channels)) return false;
    info_ = makeFrameInfo(file_, channels);
    if (isNew) listWindows();

    known_.end = scan.end;
    known_.tags += static_cast<std::int64_t>(scan.tags.size());
    known_.pixelTags += scan.pixelTags;
    known_.order = std::move(scan.order);
    if (!scan.tags.empty()) last_ = scan.tags.back();
    addSegment(std::move(scan.tags));
    return readAnchor(stream);
}

void FrameSnapshot::takeInspection(Inspection found) {
    file_ = std::move(found);
    inspected_ = true;
    faults_ = faultsOf(file_);
    sound_ = isSound(file_);
    if (!readable()) forgetContents();
    known_.order.ignorePlaces();
    std::vector<INFOTAG> pixels;
    for (const INFOTAG& tag : file_.tags) {
        const bool doubted = std::binary_search(file_.doubted.begin(), file_.doubted.end(),
                                                static_cast<std::int64_t>(tag.offset));
        if (tag.id != TAG_INFO_TAGS) {
            known_.end = static_cast<std::int64_t>(tag.offset) + tag.size;
            ++known_.tags;
            last_ = tag;
        }
        if (!isPixelTag(tag.id)) {
            if (!isForeign(tag, file_)) others_.push_back(tag);
            continue;
        }
        ++known_.pixelTags;
        // Where the tags of a channel differ in type, the first one counts.
        (void)known_.order.take(tag);
        (doubted ? doubted_ : pixels).push_back(tag);
        if (tag.p5 == 0 && !doubted) others_.push_back(tag);
    }
    file_.tags = {};
    info_ = makeFrameInfo(file_, known_.order.channels());
    listWindows();
    addSegment(std::move(pixels));
}

// What bytes of another format look like.
void FrameSnapshot::forgetContents() {
    file_.facts = {};
    file_.tags = {};
    file_.doubted = {};
    file_.area = {};
    file_.tableOffset = 0;
    file_.compressed = false;
    file_.missing = {};
    file_.missingInAny = {};
}

// Joins segments so that each is at least twice as large as the next one: a tag is moved as many times as
// its segment can double.
void FrameSnapshot::addSegment(std::vector<INFOTAG> tags) {
    while (!segments_.empty() && segments_.back()->tags().size() / 2 < tags.size()) {
        const std::vector<INFOTAG>& before = segments_.back()->tags();
        std::vector<INFOTAG> joined;
        joined.reserve(before.size() + tags.size());
        joined.insert(joined.end(), before.begin(), before.end());
        joined.insert(joined.end(), tags.begin(), tags.end());
        tags.swap(joined);
        segments_.pop_back();
    }
    if (!tags.empty()) segments_.push_back(std::make_shared<const TagSegment>(std::move(tags)));
}

void FrameSnapshot::listWindows() {
    windows_.clear();
    for (const INFOTAG& tag : others_) {
        if (const auto window = windowOf(tag, file_.facts.frame())) windows_[tag.p8].push_back(*window);
    }
}

// Of pixels the payload belongs to it; records may be replaced in place.
std::size_t FrameSnapshot::anchorSize() const {
    if (last_.id == 0) return 0;
    return isPixelTag(last_.id) ? std::min<std::size_t>(last_.size, kAnchorBytes) : kTagHeaderBytes;
}

bool FrameSnapshot::readAnchor(PStream& stream) {
    const auto read = [&stream](std::int64_t offset, unsigned char* bytes, std::size_t size) {
        return stream.Seek(static_cast<long>(offset)) == 0 &&
               readExactly(stream, bytes, static_cast<int>(size));
    };
    return read(static_cast<std::int64_t>(last_.offset), anchor_.data(), anchorSize()) &&
           digestFacts(read, factsDigest_);
}

// Of the first records that info() was taken from, as they are in the file.
template <class Read>
bool FrameSnapshot::digestFacts(const Read& read, Digest& digest) const {
    constexpr int kMostTags = 16;
    constexpr std::int64_t kMostBytes = 1 << 16;  // of a tag
    Digester digester;
    unsigned char bytes[4096];
    int tags = 0;
    for (std::size_t i = 0; i < others_.size() && tags < kMostTags; ++i) {
        const INFOTAG& tag = others_[i];
        if (tag.id != TAG_RESOLUTION && tag.id != TAG_REGIONS_INFO && !isChannelList(tag)) continue;
        ++tags;
        auto at = static_cast<std::int64_t>(tag.offset);
        for (const std::int64_t end = at + std::min<std::int64_t>(tag.size, kMostBytes); at < end;) {
            const auto size = static_cast<std::size_t>(std::min<std::int64_t>(sizeof bytes, end - at));
            if (!read(at, bytes, size)) return false;
            digester.add(bytes, size);
            at += static_cast<std::int64_t>(size);
        }
    }
    digest = digester.result();
    return true;
}

bool FrameSnapshot::stillHolds() const {
    if (source_ == nullptr || !source_->isStillNamed()) return false;
    unsigned char header[kFileHeaderBytes];
    if (!source_->read(0, header, kFileHeaderBytes)) return false;
    if (!sameFileHeader(decodeHeader(header), file_.header)) return false;
    const auto read = [this](std::int64_t offset, unsigned char* to, std::size_t size) {
        return source_->read(offset, to, size);
    };
    unsigned char bytes[kAnchorBytes];
    Digest digest;
    return read(static_cast<std::int64_t>(last_.offset), bytes, anchorSize()) &&
           std::equal(bytes, bytes + anchorSize(), anchor_.data()) && digestFacts(read, digest) &&
           digest.bytes == factsDigest_.bytes;
}

FrameSnapshot::Growth FrameSnapshot::grow(Pointer& next, PixelBox& box) const {
    PositionedReader::Locked locked(*source_);
    PStream& stream = locked.stream();
    ByteBuffer header;
    if (stream.Length() < 0 || !readPayloadAt(stream, 0, kFileHeaderBytes, header)) return Growth::kOpenAnew;
    if (stream.Length() == file_.fileBytes &&
        decodeHeader(header.data()).infoTagsOffset == file_.header.infoTagsOffset)
        return Growth::kNone;
    if (!sound_) return Growth::kOpenAnew;
    const Progress none;
    QuickScan scan(stream, none);
    if (!scan.resume(known_)) return Growth::kOpenAnew;
    PixelBox pixels;
    for (const INFOTAG& tag : scan.tags) {
        if (isPixelTag(tag.id)) pixels = boxAround(pixels, boxOf(tag));
    }
    const std::shared_ptr<FrameSnapshot> grown(new FrameSnapshot(*this));
    if (!grown->takeScan(stream, scan)) return Growth::kOpenAnew;
    next = grown;
    box = pixels;
    return Growth::kMore;
}

const Inspection& FrameSnapshot::verdict() const {
    if (inspected_) return file_;
    std::call_once(judged_, [this] {
        Inspection judged = file_;
        ChannelCover cover;
        cover.addChannels(judged.facts.channels);
        for (const auto& segment : segments_)
            cover.addPixels(segment->tags());
        cover.addWindows(others_, judged.facts.frame());
        if (!judged.stopped) judge(judged, cover);
        verdict_ = std::move(judged);
    });
    return verdict_;
}

std::vector<const INFOTAG*> FrameSnapshot::find(std::int32_t channel, const PixelBox& box,
                                                bool withDoubted) const {
    std::vector<const INFOTAG*> found;
    for (std::size_t i = 0; withDoubted && i < doubted_.size(); ++i) {
        if (doubted_[i].p8 == channel && overlaps(boxOf(doubted_[i]), box)) found.push_back(&doubted_[i]);
    }
    for (const auto& segment : segments_)
        segment->find(channel, box, found);
    return found;
}

RegionChannelType FrameSnapshot::typeOf(std::int32_t channel) const {
    if (const FrameChannel* known = info_->findIndex(channel)) return known->type;
    if (!info_->furtherChannels) return RCT_NONE;
    const std::map<std::int32_t, std::int32_t> types = known_.order.channels();
    const auto found = types.find(channel);
    return found != types.end() ? static_cast<RegionChannelType>(found->second) : RCT_NONE;
}

const std::vector<PixelBox>* FrameSnapshot::windowsOf(std::int32_t channel) const {
    const auto windows = windows_.find(channel);
    return windows != windows_.end() ? &windows->second : nullptr;
}

std::vector<INFOTAG> FrameSnapshot::recordTags() const {
    std::vector<INFOTAG> records;
    std::copy_if(others_.begin(), others_.end(), std::back_inserter(records),
                 [](const INFOTAG& tag) { return !isPixelTag(tag.id); });
    return records;
}

const INFOTAG* FrameSnapshot::lastOf(std::uint32_t tagId) const {
    const auto last = std::find_if(others_.rbegin(), others_.rend(),
                                   [tagId](const INFOTAG& tag) { return tag.id == tagId; });
    return last != others_.rend() ? &*last : nullptr;
}

RIF_TAG FrameSnapshot::storedHeader(const INFOTAG& tag) const {
    const auto offset = static_cast<std::int64_t>(tag.offset);
    const auto repair =
        std::lower_bound(file_.repairs.begin(), file_.repairs.end(), offset,
                         [](const TagScan::Repair& a, std::int64_t at) { return a.offset < at; });
    return repair != file_.repairs.end() && repair->offset == offset ? repair->found : RIF_TAG(tag);
}

}  // namespace v1
}  // namespace MUtils
