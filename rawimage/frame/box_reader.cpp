#include "rawimage/frame/box_reader.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "rawimage/area/tag_box.h"
#include "rawimage/frame/overlap_groups.h"
#include "rawimage/frame/parallel_jobs.h"
#include "rawimage/frame/tag_loader.h"

namespace MUtils {
inline namespace v1 {

namespace {

constexpr const char* kOtherType = "values of another type than the channel's";
constexpr std::int64_t kTagsBetweenCalls = 16;  // of the progress

bool fitsCoordinates(const PixelBox& box) {
    constexpr std::int64_t kLeast = std::numeric_limits<std::int32_t>::min();
    constexpr std::int64_t kMost = std::numeric_limits<std::int32_t>::max();
    return contains({kLeast, kLeast, kMost, kMost}, box);
}

// True when the boxes, which do not overlap, cover all of `area`. Of one that is too large to be counted
// false.
bool coverAll(const std::vector<PixelBox>& boxes, const PixelBox& area) {
    constexpr std::int64_t kMost = std::numeric_limits<std::int32_t>::max();
    if (area.width() > kMost || area.height() > kMost) return false;
    std::int64_t pixels = 0;
    for (const PixelBox& box : boxes)
        pixels += intersect(box, area).area();
    return pixels == area.area();
}

}  // namespace

// What belongs to a thread.
struct BoxReader::Worker {
    TagLoader loader;
    bool callsProgress;
    std::int64_t doneAtCall = 0;
};

bool BoxReader::run(const std::vector<Request>& requests, BoxSink& sink, FrameRead& result) {
    result = FrameRead();
    if (box_.empty()) return true;
    std::vector<Request> typed = requests;
    for (std::size_t i = 0; i < typed.size(); ++i) {
        if (typed[i].type == RCT_NONE) typed[i].type = snapshot_.typeOf(typed[i].channel);
        plan(i, typed[i], sink, result);
    }
    std::stable_sort(steps_.begin(), steps_.end(), [this](const Step& a, const Step& b) {
        return wanted_[a.first].tag->offset < wanted_[b.first].tag->offset;
    });
    runJobs(jobsFor(options_, steps_.size()), options_, [&](int number) {
        Worker worker{{snapshot_, mayBeStale_}, number == 0};
        work(typed, sink, worker, result);
    });
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
    std::vector<std::size_t> groups = groupOverlapping(boxes);
    bool mayOverlap = false;
    for (std::size_t i = 0; i < groups.size(); ++i) {
        mayOverlap = mayOverlap || groups[i] != i;
        if (options_.inOrder) groups[i] = i;
    }
    if (!of.filled && (mayOverlap || !coverAll(boxes, box_))) fillUncovered(request, boxes, sink);
    reportMissing(of.channel, std::move(boxes), mayOverlap, result);
    addSteps(request, tags, groups, sink);
}

// Groups are named by their first tag. The others follow it in the order of the file.
void BoxReader::addSteps(std::size_t request, const std::vector<const INFOTAG*>& tags,
                         const std::vector<std::size_t>& groups, BoxSink& sink) {
    std::vector<std::size_t> order;
    order.reserve(tags.size());
    for (std::size_t i = 0; i < tags.size(); ++i) {
        if (sink.wants(*tags[i])) order.push_back(i);
    }
    std::stable_sort(order.begin(), order.end(),
                     [&groups](std::size_t a, std::size_t b) { return groups[a] < groups[b]; });
    for (std::size_t i = 0; i < order.size(); ++i) {
        const bool begins = i == 0 || groups[order[i]] != groups[order[i - 1]];
        if (begins) steps_.push_back({wanted_.size(), 0});
        ++steps_.back().count;
        wanted_.push_back({tags[order[i]], static_cast<std::uint32_t>(request)});
    }
}

void BoxReader::fillUncovered(std::size_t request, const std::vector<PixelBox>& covered,
                              BoxSink& sink) const {
    const MissingBoxes uncovered = missingBoxes(covered, box_);
    if (uncovered.truncated || !fitsCoordinates(box_)) {
        sink.fill(request, box_);
    } else {
        for (const PixelBox& part : uncovered.boxes)
            sink.fill(request, part);
    }
}

// What lies outside of the area or of the channel's windows counts as covered.
void BoxReader::reportMissing(std::int32_t channel, std::vector<PixelBox> covered, bool mayOverlap,
                              FrameRead& result) const {
    const PixelBox& area = snapshot_.facts().area();
    const PixelBox expected = area.empty() ? box_ : intersect(area, box_);
    if (expected.empty() || (!mayOverlap && coverAll(covered, expected))) return;
    if (const std::vector<PixelBox>* windows = snapshot_.windowsOf(channel)) {
        const MissingBoxes outside = missingBoxes(*windows, expected);
        covered.insert(covered.end(), outside.boxes.begin(), outside.boxes.end());
    }
    MissingBoxes missing = missingBoxes(covered, expected);
    if (missing.boxes.empty() && !missing.truncated) return;
    result.missing.push_back({channel, snapshot_.facts().channelName(channel), std::move(missing)});
}

void BoxReader::work(const std::vector<Request>& requests, BoxSink& sink, Worker& worker, FrameRead& result) {
    try {
        while (!stale_ && !stopped_) {
            const std::size_t step = next_++;
            if (step >= steps_.size()) break;
            process(step, requests, sink, worker, result);
        }
    } catch (...) {
        stopped_ = true;
        finishStep();
        throw;
    }
}

void BoxReader::process(std::size_t number, const std::vector<Request>& requests, BoxSink& sink,
                        Worker& worker, FrameRead& result) {
    const Step& step = steps_[number];
    const Request& request = requests[wanted_[step.first].request];
    const bool overlaps = step.count > 1;
    for (std::size_t i = step.first; overlaps && !request.filled && i < step.first + step.count; ++i)
        sink.fill(wanted_[i].request, partOf(*wanted_[i].tag));
    for (std::size_t i = step.first; i < step.first + step.count && !stopped_ && !stale_; ++i) {
        const INFOTAG& tag = *wanted_[i].tag;
        const char* cause = load(wanted_[i], request, overlaps, number, sink, worker);
        if (cause == TagLoader::kStale) {
            stale_ = true;
        } else if (cause != nullptr) {
            if (!overlaps) sink.fill(wanted_[i].request, partOf(tag));
            report(tag, cause, result);
        }
        ++done_;
        callProgress(worker, pixelBytes(tag) > kMaxHeldValues);
    }
    if (!options_.inOrder) return;
    (void)awaitTurn(number);
    finishStep();
}

void BoxReader::report(const INFOTAG& tag, const char* cause, FrameRead& result) {
    TagGap gap;
    gap.offset = static_cast<std::int64_t>(tag.offset);
    gap.end = gap.offset + tag.size;
    gap.cause = cause;
    gap.tag = tag;
    const std::lock_guard<std::mutex> lock(resultMutex_);
    result.damaged.push_back(faultOf(gap, snapshot_.facts()));
}

void BoxReader::callProgress(Worker& worker, bool tookLong) {
    if (!worker.callsProgress || !options_.progress) return;
    const std::int64_t done = done_;
    if (!tookLong && done - worker.doneAtCall < kTagsBetweenCalls) return;
    worker.doneAtCall = done;
    if (!options_.progress(done, static_cast<std::int64_t>(wanted_.size()))) stopped_ = true;
}

// Steps are begun in their order: the thread that has the first unfinished one never waits. False when the
// read ends.
bool BoxReader::awaitTurn(std::size_t step) {
    std::unique_lock<std::mutex> lock(turnMutex_);
    turn_.wait(lock, [&] { return taken_ == step || stopped_ || stale_; });
    return taken_ == step && !stopped_ && !stale_;
}

void BoxReader::finishStep() {
    const std::lock_guard<std::mutex> lock(turnMutex_);
    ++taken_;
    turn_.notify_all();
}

// Decodes a tag and hands its values to the sink. Returns null, or why there are none.
const char* BoxReader::load(const Wanted& wanted, const Request& request, bool overlaps, std::size_t step,
                            BoxSink& sink, Worker& worker) {
    const INFOTAG& tag = *wanted.tag;
    const RIF_PIXEL_KIND* kind = findChannelKind(request.type);
    if (kind == nullptr || kind->tagId != tag.id) return kOtherType;
    if (request.inPieces && pixelBytes(tag) > kMaxHeldValues)
        return loadInPieces(wanted, overlaps, sink, worker.loader);
    const unsigned char* values = nullptr;
    const char* cause = worker.loader.load(tag, values);
    if (options_.inOrder && !awaitTurn(step)) return nullptr;
    if (cause == nullptr && !sink.take(wanted.request, tag, boxOf(tag), values)) stopped_ = true;
    return cause;
}

// Where a tag lies over others, it is decoded twice: what they have must stay if it is damaged.
const char* BoxReader::loadInPieces(const Wanted& wanted, bool overlaps, BoxSink& sink, TagLoader& loader) {
    if (overlaps) {
        if (const char* cause = loader.loadInPieces(*wanted.tag, {})) return cause;
    }
    return loader.loadInPieces(*wanted.tag, [&](const PixelBox& piece, const unsigned char* values) {
        if (!sink.take(wanted.request, *wanted.tag, piece, values)) stopped_ = true;
    });
}

}  // namespace v1
}  // namespace MUtils
