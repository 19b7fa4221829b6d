#include "rawimage/frame/box_reader.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

#include "rawimage/area/tag_box.h"
#include "rawimage/frame/overlap_groups.h"
#include "rawimage/frame/parallel_jobs.h"
#include "rawimage/read/tag_decoder.h"
#include "support/positioned_stream.h"
#include "support/scratch_buffer.h"

namespace MUtils {
inline namespace v1 {

namespace {

constexpr const char* kHeaderChanged = "header that differs from the listed one";
constexpr const char* kOtherType = "values of another type than the channel's";
// Null, by its address: the tag is not what the snapshot lists.
constexpr const char kStale[] = "";
constexpr std::int64_t kTagsBetweenCalls = 16;  // of the progress

constexpr std::int64_t kPieceBytes = 1 << 18;

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

// One room for all values of a tag, made when it is known that the payload may fill it.
class WholeTag final : public ValueRooms {
  public:
    WholeTag(const INFOTAG& tag, ByteBuffer& room) : left_(pixelBytes(tag)), room_(room) {}

    Room next() override {
        const auto size = static_cast<std::size_t>(std::exchange(left_, 0));
        return {size > 0 ? reserve(room_, size) : nullptr, size};
    }

  private:
    std::int64_t left_;
    ByteBuffer& room_;
};

}  // namespace

// The working memory of a thread.
struct BoxReader::Worker {
    bool callsProgress = false;
    std::int64_t doneAtCall = 0;
    ByteBuffer packed;
    ByteBuffer room;
    Inflater inflater;
    // For values in pieces.
    std::unique_ptr<PositionedStream> stream;
    std::unique_ptr<TagReader> reader;
};

// Takes the values of a tag piece by piece, each some rows or a part of one, and hands them to a sink; to
// none for a rehearsal.
class BoxReader::Pieces final : public ValueRooms {
  public:
    Pieces(const Wanted& wanted, ByteBuffer& room, BoxSink* sink)
        : wanted_(wanted),
          box_(boxOf(*wanted.tag)),
          valueSize_(findPixelKind(wanted.tag->id)->valueSize),
          room_(room),
          sink_(sink) {
        reserve(room_, static_cast<std::size_t>(std::max<std::int64_t>(kPieceBytes, valueSize_)));
        piece_ = {box_.x1, box_.y0, box_.x1, box_.y0};
    }

    Room next() override {
        handOver();
        const std::int64_t values = kPieceBytes / valueSize_;
        const bool rowIsDone = piece_.x1 == box_.x1;
        const std::int64_t x = rowIsDone ? box_.x0 : piece_.x1;
        const std::int64_t y = rowIsDone ? piece_.y1 : piece_.y0;
        if (y == box_.y1) return {};
        const std::int64_t rows =
            x > box_.x0 ? 1 : std::clamp(values / box_.width(), std::int64_t{1}, box_.y1 - y);
        piece_ = {x, y, rows > 1 ? box_.x1 : std::min(x + values, box_.x1), y + rows};
        full_ = true;
        return {room_.data(), static_cast<std::size_t>(piece_.area() * valueSize_)};
    }

    // Hands over the last piece, which is full.
    void handOver() {
        if (sink_ != nullptr && full_) (void)sink_->take(wanted_.request, *wanted_.tag, piece_, room_.data());
        full_ = false;
    }

  private:
    const Wanted& wanted_;
    const PixelBox box_;
    const std::int64_t valueSize_;
    ByteBuffer& room_;
    BoxSink* const sink_;
    PixelBox piece_;
    bool full_ = false;  // piece_ is to be handed over
};

bool BoxReader::run(const std::vector<Request>& requests, BoxSink& sink, FrameRead& result) {
    result = FrameRead();
    if (box_.empty()) return true;
    for (std::size_t i = 0; i < requests.size(); ++i)
        plan(i, requests[i], sink, result);
    std::stable_sort(steps_.begin(), steps_.end(), [this](const Step& a, const Step& b) {
        return wanted_[a.first].tag->offset < wanted_[b.first].tag->offset;
    });
    runJobs(jobsFor(options_, steps_.size()), options_, [&](int number) {
        Worker worker;
        worker.callsProgress = number == 0;
        work(requests, sink, worker, result);
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
        if (cause == kStale) {
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
    if (kind != nullptr && kind->tagId != tag.id) return kOtherType;
    if (request.inPieces && pixelBytes(tag) > kMaxHeldValues)
        return loadInPieces(wanted, overlaps, sink, worker);
    const unsigned char* values = nullptr;
    const char* cause = decode(tag, worker, values);
    if (options_.inOrder && !awaitTurn(step)) return nullptr;
    if (cause == nullptr && !sink.take(wanted.request, tag, boxOf(tag), values)) stopped_ = true;
    return cause;
}

// Where a tag lies over others, it is decoded twice: what they have must stay if it is damaged.
const char* BoxReader::loadInPieces(const Wanted& wanted, bool overlaps, BoxSink& sink,
                                    Worker& worker) const {
    if (overlaps) {
        Pieces rehearsal(wanted, worker.room, nullptr);
        if (const char* cause = readInto(*wanted.tag, rehearsal, worker)) return cause;
    }
    Pieces pieces(wanted, worker.room, &sink);
    const char* cause = readInto(*wanted.tag, pieces, worker);
    if (cause == nullptr) pieces.handOver();
    return cause;
}

// Reads the values without holding the payload.
const char* BoxReader::readInto(const INFOTAG& tag, ValueRooms& rooms, Worker& worker) const {
    unsigned char header[kTagHeaderBytes];
    if (!snapshot_.source().read(static_cast<std::int64_t>(tag.offset), header, kTagHeaderBytes))
        return pixelCodeText(kPixelsCutShort);
    if (const char* cause = checkHeader(tag, header)) return cause;
    if (worker.reader == nullptr) {
        worker.stream = std::make_unique<PositionedStream>(snapshot_.source(), snapshot_.fileBytes());
        worker.reader = std::make_unique<TagReader>(*worker.stream, snapshot_.compressed());
    }
    return causeOf(tag, worker.reader->readPixels(tag, rooms));
}

// Reads header and payload at once, but the payload of large values in pieces: one of noise would double what
// they take. Returns null, or why there are no values.
const char* BoxReader::decode(const INFOTAG& tag, Worker& worker, const unsigned char*& values) const {
    if (pixelBytes(tag) > kMaxBlockBytes) {
        WholeTag whole(tag, worker.room);
        const char* cause = readInto(tag, whole, worker);
        values = worker.room.data();
        return cause;
    }
    reserve(worker.packed, tag.size);
    if (!snapshot_.source().read(static_cast<std::int64_t>(tag.offset), worker.packed.data(), tag.size))
        return pixelCodeText(kPixelsCutShort);
    if (const char* cause = checkHeader(tag, worker.packed.data())) return cause;
    return causeOf(tag, decodeValues(tag, snapshot_.compressed(), worker.packed.data() + kTagHeaderBytes,
                                     worker.inflater, worker.room, values));
}

const char* BoxReader::checkHeader(const INFOTAG& tag, const unsigned char* bytes) const {
    unsigned char header[kTagHeaderBytes];
    encodeTag(snapshot_.storedHeader(tag), header);
    if (std::memcmp(header, bytes, kTagHeaderBytes) == 0) return nullptr;
    return mayBeStale_ ? kStale : kHeaderChanged;
}

const char* BoxReader::causeOf(const INFOTAG& tag, int code) const {
    // A file whose header is wrong about how pixels are stored.
    const bool maybeRaw = snapshot_.compressed() && tag.payloadBytes() == pixelBytes(tag);
    if (code == kPixelsNotInflatable && maybeRaw && mayBeStale_) return kStale;
    return pixelCodeText(code);
}

}  // namespace v1
}  // namespace MUtils
