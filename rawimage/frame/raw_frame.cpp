#include "rawimage/frame/raw_frame.h"

#include <cstring>
#include <mutex>
#include <utility>

#include "rawimage/area/tag_box.h"
#include "rawimage/frame/box_reader.h"
#include "rawimage/frame/frame_bands.h"
#include "rawimage/frame/frame_snapshot.h"
#include "rawimage/frame/record_reader.h"
#include "rawimage/frame/target_memory.h"

namespace MUtils {
inline namespace v1 {

namespace {

class MemorySink final : public BoxSink {
  public:
    MemorySink(const std::vector<ChannelTarget>& targets, const PixelBox& box) : box_(box) {
        memories_.reserve(targets.size());
        for (const ChannelTarget& target : targets)
            memories_.emplace_back(target, box);
    }

    bool take(std::size_t request, const INFOTAG& /*tag*/, const PixelBox& piece,
              const unsigned char* values) override {
        const PixelBox part = intersect(piece, box_);
        if (!part.empty()) memories_[request].copy(part, piece, values);
        return true;
    }
    void fill(std::size_t request, const PixelBox& part) override { memories_[request].fill(part); }

  private:
    const PixelBox box_;
    std::vector<TargetMemory> memories_;
};

class VisitorSink final : public BoxSink {
  public:
    explicit VisitorSink(BucketVisitor& visitor) : visitor_(visitor) {}

    bool take(std::size_t /*request*/, const INFOTAG& tag, const PixelBox& piece,
              const unsigned char* values) override {
        const int components = findPixelKind(tag.id)->valueSize / 4;
        return visitor_.visit({tag, piece, components, values});
    }
    void fill(std::size_t /*request*/, const PixelBox& /*part*/) override {}
    bool wants(const INFOTAG& tag) override { return visitor_.wants(tag); }

  private:
    BucketVisitor& visitor_;
};

}  // namespace

bool BucketVisitor::wants(const INFOTAG& /*tag*/) {
    return true;
}

class RawFrame::Core {
  public:
    Core(const char* fileName, const RawFrameOptions& options)
        : name_(fileName != nullptr ? fileName : ""), options_(options), current_(openByName()) {
        options_.progress = nullptr;
    }
    Core(PStream& stream, const RawFrameOptions& options)
        : byName_(false), options_(options), current_(openAnew(std::make_shared<PositionedReader>(stream))) {
        options_.progress = nullptr;
    }

    FrameSnapshot::Pointer current() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return current_;
    }
    FrameRead readBox(const PixelBox& box, const std::vector<BoxReader::Request>& requests, BoxSink& sink,
                      const FrameReadOptions& options, BucketVisitor* visitor);
    // True when there is another snapshot now than the one that proved stale.
    bool replace(const FrameSnapshot::Pointer& stale);
    FrameChange refresh();

  private:
    FrameSnapshot::Pointer openByName() const;
    FrameSnapshot::Pointer openAnew(const FrameSnapshot::Source& source) const;
    void set(FrameSnapshot::Pointer next);

    const bool byName_ = true;
    const std::string name_;
    RawFrameOptions options_;   // the progress of opening is the caller's until the constructor returns
    std::mutex refreshMutex_;   // held while a new snapshot is made
    mutable std::mutex mutex_;  // of the pointer
    FrameSnapshot::Pointer current_;
};

FrameSnapshot::Pointer RawFrame::Core::openByName() const {
    int code = 0;
    const auto source = std::make_shared<PositionedReader>(name_.c_str(), code);
    return code == 0 ? openAnew(source) : FrameSnapshot::cannotOpen(openErrorText(code));
}

FrameSnapshot::Pointer RawFrame::Core::openAnew(const FrameSnapshot::Source& source) const {
    return options_.inspect
               ? FrameSnapshot::inspect(source, *options_.inspect, options_.threads, options_.progress)
               : FrameSnapshot::open(source, options_.progress);
}

void RawFrame::Core::set(FrameSnapshot::Pointer next) {
    const std::lock_guard<std::mutex> lock(mutex_);
    current_.swap(next);
}

bool RawFrame::Core::replace(const FrameSnapshot::Pointer& stale) {
    const std::lock_guard<std::mutex> lock(refreshMutex_);
    if (current() != stale) return true;
    // A file that was written anew is for refresh() to report.
    if (stale->inspected() || !stale->stillHolds()) return false;
    set(FrameSnapshot::inspect(stale->sharedSource(), InspectDepth::kHeaders, options_.threads, {}));
    return true;
}

FrameRead RawFrame::Core::readBox(const PixelBox& box, const std::vector<BoxReader::Request>& requests,
                                  BoxSink& sink, const FrameReadOptions& options, BucketVisitor* visitor) {
    constexpr int kMostTries = 4;
    FrameRead result;
    for (int tried = 1;; ++tried) {
        const FrameSnapshot::Pointer snapshot = current();
        const bool last = tried == kMostTries || snapshot->inspected();
        if (BoxReader(*snapshot, box, options, !last).run(requests, sink, result)) return result;
        // Without another snapshot the tags that differ are damaged.
        if (!replace(snapshot)) tried = kMostTries - 1;
        if (visitor != nullptr) visitor->restart();
    }
}

FrameChange RawFrame::Core::refresh() {
    const std::lock_guard<std::mutex> lock(refreshMutex_);
    const FrameSnapshot::Pointer known = current();
    const bool holds = known->readable() && known->stillHolds();
    FrameChange change;
    FrameSnapshot::Pointer next;
    if (holds) {
        const FrameSnapshot::Growth growth = known->grow(next, change.box);
        if (growth == FrameSnapshot::Growth::kNone) return {};
        if (growth == FrameSnapshot::Growth::kOpenAnew || options_.inspect)
            next = openAnew(known->sharedSource());
        const FrameInfo &before = *known->info(), &after = *next->info();
        if (after.fileBytes == before.fileBytes && after.finished == before.finished) return {};
        change.kind = FrameChange::kGrown;
    } else {
        next = byName_ ? openByName() : openAnew(known->sharedSource());
        // The name may be without a file for a moment.
        const FileState state = next->verdict().state;
        if (state == FileState::kCannotOpen && known->readable()) return {};
        if (!next->readable() && state == known->verdict().state) return {};
        change = {FrameChange::kRestarted, next->info()->frame};
    }
    set(std::move(next));
    return change;
}

RawFrame::RawFrame(const char* fileName, const RawFrameOptions& options)
    : core_(std::make_unique<Core>(fileName, options)) {}

RawFrame::RawFrame(PStream& stream, const RawFrameOptions& options)
    : core_(std::make_unique<Core>(stream, options)) {}

RawFrame::~RawFrame() = default;
RawFrame::RawFrame(RawFrame&& other) noexcept = default;
RawFrame& RawFrame::operator=(RawFrame&& other) noexcept = default;

std::shared_ptr<const FrameInfo> RawFrame::info() const {
    return core_->current()->info();
}

FileState RawFrame::state() const {
    return core_->current()->verdict().state;
}

std::string RawFrame::cause() const {
    return core_->current()->verdict().cause;
}

std::int64_t RawFrame::causeOffset() const {
    return core_->current()->verdict().causeOffset;
}

std::vector<MissingPixels> RawFrame::missing() const {
    return core_->current()->verdict().missing;
}

FileFaults RawFrame::faults() const {
    return core_->current()->faults();
}

std::int64_t RawFrame::furtherFaults() const {
    return core_->current()->verdict().furtherFaults;
}

std::vector<std::int64_t> RawFrame::doubted() const {
    return core_->current()->verdict().doubted;
}

FrameRecords RawFrame::records() const {
    return RecordReader(*core_->current()).records();
}

FrameRecord<std::vector<unsigned char>> RawFrame::blob(FrameBlob which) const {
    return RecordReader(*core_->current()).blob(which);
}

FrameRecord<std::string> RawFrame::text(FrameText which) const {
    return RecordReader(*core_->current()).text(which);
}

FrameRecord<FrameThumbnail> RawFrame::thumbnail() const {
    return RecordReader(*core_->current()).thumbnail();
}

std::vector<INFOTAG> RawFrame::recordTags() const {
    return core_->current()->recordTags();
}

FrameRead RawFrame::read(const PixelBox& box, const std::vector<ChannelTarget>& targets,
                         const FrameReadOptions& options) const {
    std::vector<ChannelTarget> wanted;
    std::vector<BoxReader::Request> requests;
    for (const ChannelTarget& target : targets) {
        if (target.components() == 0) continue;
        wanted.push_back(target);
        requests.push_back({target.channel, target.type, target.filled, true});
    }
    MemorySink sink(wanted, box);
    return core_->readBox(box, requests, sink, options, nullptr);
}

FrameRead RawFrame::visit(const PixelBox& box, const std::vector<int>& channels, BucketVisitor& visitor,
                          const FrameReadOptions& options) const {
    std::vector<BoxReader::Request> requests;
    for (const int channel : channels)
        requests.push_back({channel, RCT_NONE, true, false});
    VisitorSink sink(visitor);
    return core_->readBox(box, requests, sink, options, &visitor);
}

std::vector<INFOTAG> RawFrame::tags(const PixelBox& box, int channel) const {
    const FrameSnapshot::Pointer snapshot = core_->current();
    std::vector<INFOTAG> found;
    for (const INFOTAG* tag : snapshot->find(channel, box, false))
        found.push_back(*tag);
    return found;
}

std::vector<PixelBox> RawFrame::buckets(const PixelBox& box, int channel) const {
    std::vector<PixelBox> boxes;
    for (const INFOTAG& tag : tags(box, channel))
        boxes.push_back(boxOf(tag));
    return boxes;
}

std::vector<PixelBox> RawFrame::bands(const PixelBox& box, const std::vector<int>& channels,
                                      std::int64_t maxBytes) const {
    return cutIntoBands(*core_->current(), box, channels, maxBytes);
}

std::vector<PixelBox> RawFrame::uncutBands(const PixelBox& box, const std::vector<int>& channels,
                                           int rows) const {
    return cutBetweenTags(*core_->current(), box, channels, rows);
}

FrameChange RawFrame::refresh() {
    return core_->refresh();
}

}  // namespace v1
}  // namespace MUtils
