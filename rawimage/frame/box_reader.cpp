#include "rawimage/frame/box_reader.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

#include "rawimage/area/tag_box.h"
#include "rawimage/frame/overlap_groups.h"
#include "rawimage/frame/parallel_jobs.h"
#include "rawimage/read/tag_decoder.h"
#include "support/scratch_buffer.h"

namespace MUtils {
inline namespace v1 {

namespace {

constexpr const char* kHeaderChanged = "header that differs from the listed one";
constexpr const char* kOtherType = "values of another type than the channel's";
// Null, by its address: the tag is not what the snapshot lists.
constexpr const char kStale[] = "";
constexpr std::int64_t kTagsBetweenCalls = 16;  // of the progress

bool fitsCoordinates(const PixelBox& box) {
    constexpr std::int64_t kLeast = std::numeric_limits<std::int32_t>::min();
    constexpr std::int64_t kMost = std::numeric_limits<std::int32_t>::max();
    return contains({kLeast, kLeast, kMost, kMost}, box);
}

}  // namespace

// The working memory of a thread.
struct BoxReader::Worker {
    ByteBuffer packed;
    ByteBuffer room;
    Inflater inflater;
};

bool BoxReader::run(const std::vector<Request>& requests, BoxSink& sink, FrameRead& result) {
    result = FrameRead();
    if (box_.empty()) return true;
    for (std::size_t i = 0; i < requests.size(); ++i)
        plan(i, requests[i], sink, result);
    std::stable_sort(steps_.begin(), steps_.end(), [this](const Step& a, const Step& b) {
        return wanted_[a.first].tag->offset < wanted_[b.first].tag->offset;
    });
    runJobs(jobsFor(options_, steps_.size()), options_, [&](int) { work(requests, sink, result); });
    std::sort(result.damaged.begin(), result.damaged.end(),
              [](const FileFault& a, const FileFault& b) { return a.offset < b.offset; });
    result.stopped = stopped_;
    return !stale_;
}

PixelBox BoxReader::partOf(const INFOTAG& tag) const {
    return intersect(boxOf(tag), box_);
}

void BoxReader::plan(std::size_t request, const Request& of, BoxSink& sink, FrameRead& result) {
    const std::vector<const INFOTAG*> tags = snapshot_.find(of.channel, box_, options_.takeDoubted);
    std::vector<PixelBox> boxes;
    boxes.reserve(tags.size());
    for (const INFOTAG* tag : tags)
        boxes.push_back(boxOf(*tag));
    const std::vector<std::size_t> groups = groupOverlapping(boxes);
    bool mayOverlap = false;
    for (std::size_t i = 0; i < groups.size(); ++i)
        mayOverlap = mayOverlap || groups[i] != i;
    fillUncovered(request, of.channel, boxes, mayOverlap, sink, result);
    addSteps(request, tags, groups);
}

// Groups are named by their first tag. The others follow it in the order of the file.
void BoxReader::addSteps(std::size_t request, const std::vector<const INFOTAG*>& tags,
                         const std::vector<std::size_t>& groups) {
    std::vector<std::size_t> order(tags.size());
    for (std::size_t i = 0; i < order.size(); ++i)
        order[i] = i;
    std::stable_sort(order.begin(), order.end(),
                     [&groups](std::size_t a, std::size_t b) { return groups[a] < groups[b]; });
    for (std::size_t i = 0; i < order.size(); ++i) {
        const bool begins = i == 0 || groups[order[i]] != groups[order[i - 1]];
        if (begins) steps_.push_back({wanted_.size(), 0});
        ++steps_.back().count;
        wanted_.push_back({tags[order[i]], static_cast<std::uint32_t>(request)});
    }
}

void BoxReader::fillUncovered(std::size_t request, std::int32_t channel, const std::vector<PixelBox>& covered,
                              bool mayOverlap, BoxSink& sink, FrameRead& result) {
    std::int64_t pixels = 0;
    for (const PixelBox& box : covered)
        pixels += intersect(box, box_).area();
    if (!mayOverlap && pixels == box_.area()) return;
    const MissingBoxes uncovered = missingBoxes(covered, box_);
    if (uncovered.truncated || !fitsCoordinates(box_)) {
        sink.fill(request, box_);
    } else {
        for (const PixelBox& part : uncovered.boxes)
            sink.fill(request, part);
    }
    if (!uncovered.boxes.empty() || uncovered.truncated) reportMissing(channel, covered, result);
}

// What lies outside of the area or of the channel's windows counts as covered.
void BoxReader::reportMissing(std::int32_t channel, std::vector<PixelBox> covered, FrameRead& result) const {
    const PixelBox& area = snapshot_.facts().area();
    const PixelBox expected = area.empty() ? box_ : intersect(area, box_);
    if (expected.empty()) return;
    if (const std::vector<PixelBox>* windows = snapshot_.windowsOf(channel)) {
        const MissingBoxes outside = missingBoxes(*windows, expected);
        covered.insert(covered.end(), outside.boxes.begin(), outside.boxes.end());
    }
    MissingBoxes missing = missingBoxes(covered, expected);
    if (missing.boxes.empty() && !missing.truncated) return;
    result.missing.push_back({channel, snapshot_.facts().channelName(channel), std::move(missing)});
}

void BoxReader::work(const std::vector<Request>& requests, BoxSink& sink, FrameRead& result) {
    Worker worker;
    try {
        while (!stale_ && !stopped_) {
            const std::size_t step = next_++;
            if (step >= steps_.size()) return;
            process(steps_[step], requests, sink, worker, result);
        }
    } catch (...) {
        stopped_ = true;
        throw;
    }
}

void BoxReader::process(const Step& step, const std::vector<Request>& requests, BoxSink& sink, Worker& worker,
                        FrameRead& result) {
    for (std::size_t i = step.first; step.count > 1 && i < step.first + step.count; ++i)
        sink.fill(wanted_[i].request, partOf(*wanted_[i].tag));
    for (std::size_t i = step.first; i < step.first + step.count && !stopped_; ++i) {
        const INFOTAG& tag = *wanted_[i].tag;
        const std::uint32_t request = wanted_[i].request;
        const unsigned char* values = nullptr;
        const char* cause = decode(tag, requests[request].type, worker, values);
        if (cause == kStale) {
            stale_ = true;
            return;
        }
        if (cause == nullptr) {
            if (!sink.take(request, tag, partOf(tag), values)) stopped_ = true;
        } else {
            if (step.count == 1) sink.fill(request, partOf(tag));
            TagGap gap;
            gap.offset = static_cast<std::int64_t>(tag.offset);
            gap.end = gap.offset + tag.size;
            gap.cause = cause;
            gap.tag = tag;
            const std::lock_guard<std::mutex> lock(resultMutex_);
            result.damaged.push_back(faultOf(gap, snapshot_.facts()));
        }
        if (++done_ % kTagsBetweenCalls == 0 && options_.progress) callProgress();
    }
}

void BoxReader::callProgress() {
    const std::unique_lock<std::mutex> lock(progressMutex_, std::try_to_lock);
    if (lock.owns_lock() && !options_.progress(done_, static_cast<std::int64_t>(wanted_.size())))
        stopped_ = true;
}

// Reads header and payload at once. Returns null, or why there are no values.
const char* BoxReader::decode(const INFOTAG& tag, RegionChannelType type, Worker& worker,
                              const unsigned char*& values) {
    const RIF_PIXEL_KIND* kind = findChannelKind(type);
    if (kind != nullptr && kind->tagId != tag.id) return kOtherType;
    reserve(worker.packed, tag.size);
    if (!snapshot_.source().read(static_cast<std::int64_t>(tag.offset), worker.packed.data(), tag.size))
        return pixelCodeText(kPixelsCutShort);
    unsigned char header[kTagHeaderBytes];
    encodeTag(snapshot_.storedHeader(tag), header);
    if (std::memcmp(header, worker.packed.data(), kTagHeaderBytes) != 0)
        return mayBeStale_ ? kStale : kHeaderChanged;
    const int code = decodeValues(tag, snapshot_.compressed(), worker.packed.data() + kTagHeaderBytes,
                                  worker.inflater, worker.room, values);
    // A file whose header is wrong about how pixels are stored.
    const bool maybeRaw = snapshot_.compressed() && tag.payloadBytes() == pixelBytes(tag);
    if (code == kPixelsNotInflatable && maybeRaw && mayBeStale_) return kStale;
    return pixelCodeText(code);
}

}  // namespace v1
}  // namespace MUtils
