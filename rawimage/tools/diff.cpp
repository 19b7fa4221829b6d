#include "rawimage/tools/diff.h"

#include <algorithm>
#include <limits>
#include <memory>

#include "rawimage/tools/diff_channels.h"
#include "rawimage/tools/diff_picture.h"
#include "rawimage/tools/diff_records.h"
#include "rawimage/tools/diff_values.h"
#include "rawimage/tools/picture.h"
#include "support/scratch_buffer.h"

namespace MUtils {
inline namespace v1 {

namespace {

constexpr std::size_t kMaxDiffBoxes = 8192;
constexpr const char* kTooManyBoxes = "the pixels of the two frames form too many boxes to be compared";

using PixelBoxes = std::vector<PixelBox>;

// Ends the comparison; the report has the rest.
struct Ended {
    DiffState state;
    std::string cause;
    int side = -1;
};

std::string sizeText(const PixelBox& frame) {
    return std::to_string(frame.width()) + 'x' + std::to_string(frame.height());
}

class FrameDiff {
  public:
    FrameDiff(const RawFrame& a, const RawFrame& b, const DiffOptions& options)
        : frames_{&a, &b}, infos_{a.info(), b.info()}, options_(options) {}

    DiffReport run();

  private:
    void checkFrame(int side);
    void findPixels();
    PixelBoxes findPixels(ChannelDiff& pair);
    void preparePicture();
    void compareAll();
    void compareBand(const PixelBox& band);
    void comparePart(std::size_t channel, const PixelBox& part, BandMarks& marks);
    const unsigned char* load(int side, const FrameChannel& channel, const PixelBox& part);
    void finish();
    DiffState verdict() const;
    bool exceeds(const DiffLimits& limits, std::int64_t pixels) const;
    void callProgress() const;

    const std::array<const RawFrame*, 2> frames_;
    const std::array<std::shared_ptr<const FrameInfo>, 2> infos_;
    const DiffOptions& options_;
    DiffReport report_;
    // Of each channel of the report: the pixels that both frames have.
    std::vector<PixelBoxes> common_;
    std::vector<ChannelComparison> comparisons_;
    std::size_t drawn_ = std::numeric_limits<std::size_t>::max();
    std::unique_ptr<DiffPicture> picture_;
    std::array<ByteBuffer, 2> values_;
    std::int64_t done_ = 0, total_ = 0;
};

DiffReport FrameDiff::run() {
    try {
        checkFrame(0);
        checkFrame(1);
        const std::string* unmatched = matchChannels(*infos_[0], *infos_[1], options_, report_);
        if (unmatched != nullptr)
            throw Ended{DiffState::kNoChannel, "\"" + *unmatched + "\" fits no channel"};
        if (options_.records && !compareRecords(frames_, options_.throughExr, report_))
            throw Ended{DiffState::kDamaged, "a record cannot be read", report_.side};
        if (infos_[0]->frame != infos_[1]->frame) {
            report_.state = DiffState::kMismatch;
            report_.cause = "the frames are " + sizeText(infos_[0]->frame) + " and " +
                            sizeText(infos_[1]->frame) + " pixels";
            return std::move(report_);
        }
        findPixels();
        preparePicture();
        compareAll();
        finish();
        report_.state = verdict();
    } catch (const Ended& ended) {
        report_.state = ended.state;
        report_.cause = ended.cause;
        report_.side = ended.side;
        // What was counted before is not of whole frames.
        report_.channels.clear();
        report_.pixels = report_.warnings = report_.failures = 0;
    }
    return std::move(report_);
}

void FrameDiff::checkFrame(int side) {
    const auto i = static_cast<std::size_t>(side);
    const RawFrame& frame = *frames_[i];
    const FileState state = frame.state();
    report_.fileStates[i] = state;
    report_.frames[i] = infos_[i]->frame;
    const bool readable = state != FileState::kCannotOpen && state != FileState::kNotThisFormat;
    if (!readable || state == FileState::kDamaged) {
        report_.causeOffset = frame.causeOffset();
        throw Ended{readable ? DiffState::kDamaged : DiffState::kUnreadable, frame.cause(), side};
    }
    if (infos_[i]->frame.empty())
        throw Ended{DiffState::kUnreadable, "has no resolution, so there is nothing to compare", side};
}

// All boxes of `frame` that are in none of `a` and `b`.
PixelBoxes inNeither(const PixelBoxes& a, const PixelBoxes& b, const PixelBox& frame) {
    PixelBoxes all = a;
    all.insert(all.end(), b.begin(), b.end());
    MissingBoxes rest = missingBoxes(all, frame, kMaxDiffBoxes);
    if (rest.truncated) throw Ended{DiffState::kTooLarge, kTooManyBoxes};
    return std::move(rest.boxes);
}

std::int64_t pixelsOf(const PixelBoxes& boxes) {
    std::int64_t pixels = 0;
    for (const PixelBox& box : boxes)
        pixels += box.area();
    return pixels;
}

// Sets what one frame has and the other one lacks, and returns what both have.
PixelBoxes FrameDiff::findPixels(ChannelDiff& pair) {
    const PixelBox& frame = infos_[0]->frame;
    std::array<PixelBoxes, 2> has, lacks;
    for (std::size_t side = 0; side < 2; ++side) {
        MissingBoxes covered =
            unitedBoxes(frames_[side]->buckets(frame, pair.channels[side].index), frame, kMaxDiffBoxes);
        if (covered.truncated) throw Ended{DiffState::kTooLarge, kTooManyBoxes};
        has[side] = std::move(covered.boxes);
        lacks[side] = inNeither(has[side], {}, frame);
    }
    for (std::size_t side = 0; side < 2; ++side) {
        pair.lacks[side].boxes = inNeither(has[side], lacks[1 - side], frame);
        pair.lacksPixels[side] = pixelsOf(pair.lacks[side].boxes);
    }
    return inNeither(lacks[0], lacks[1], frame);
}

void FrameDiff::findPixels() {
    for (ChannelDiff& pair : report_.channels) {
        common_.push_back(pair.comparable ? findPixels(pair) : PixelBoxes());
        total_ += pixelsOf(common_.back());
        comparisons_.emplace_back(pair, options_);
    }
}

void FrameDiff::preparePicture() {
    if (!options_.picture) return;
    const PixelBox& frame = infos_[0]->frame;
    if (std::max(frame.width(), frame.height()) > kMaxPictureSize)
        throw Ended{DiffState::kTooLarge,
                    "a picture has at most " + std::to_string(kMaxPictureSize) + " pixels in each direction"};
    const std::vector<ChannelDiff>& channels = report_.channels;
    const auto shown = [](const ChannelDiff& pair) { return pair.comparable; };
    auto found = std::find_if(channels.begin(), channels.end(), [&](const ChannelDiff& pair) {
        return shown(pair) && pair.channels[0].alias == RCA_COLOR;
    });
    if (found == channels.end()) found = std::find_if(channels.begin(), channels.end(), shown);
    if (found == channels.end()) return;
    drawn_ = static_cast<std::size_t>(found - channels.begin());
    report_.drawn = found->channels[0].name;
    picture_ = std::make_unique<DiffPicture>(frame, *found, options_);
    picture_->markLacking(found->lacks[0]);
    picture_->markLacking(found->lacks[1]);
}

// Goes over the pixels that any channel has, band after band. Bands end between the buckets of the first
// frame, and are as many rows as fit of the largest channel.
void FrameDiff::compareAll() {
    PixelBoxes boxes;
    std::vector<int> channels;
    std::int64_t largest = 1, sum = 0;
    for (std::size_t i = 0; i < common_.size(); ++i) {
        if (common_[i].empty()) continue;
        boxes.insert(boxes.end(), common_[i].begin(), common_[i].end());
        const FrameChannel& channel = report_.channels[i].channels[0];
        channels.push_back(channel.index);
        largest = std::max<std::int64_t>(largest, channel.valueBytes());
        sum += channel.valueBytes();
    }
    const MissingBoxes any = unitedBoxes(boxes, infos_[0]->frame, kMaxDiffBoxes);
    if (any.truncated) throw Ended{DiffState::kTooLarge, kTooManyBoxes};
    const std::int64_t pixels = kDiffBandBytes / largest;
    for (const PixelBox& box : any.boxes) {
        for (PixelBox band : frames_[0]->bands(box, channels, pixels * sum)) {
            const std::int64_t columns = std::max<std::int64_t>(pixels / band.height(), 1);
            for (; band.width() > columns; band.x0 += columns)
                compareBand({band.x0, band.y0, band.x0 + columns, band.y1});
            compareBand(band);
        }
    }
}

void FrameDiff::compareBand(const PixelBox& band) {
    BandMarks marks(band);
    for (std::size_t i = 0; i < common_.size(); ++i) {
        for (const PixelBox& box : common_[i]) {
            if (box.y0 >= band.y1) break;
            const PixelBox part = intersect(box, band);
            if (!part.empty()) comparePart(i, part, marks);
        }
    }
    marks.countInto(report_);
}

void FrameDiff::comparePart(std::size_t channel, const PixelBox& part, BandMarks& marks) {
    const ChannelDiff& pair = report_.channels[channel];
    const ValuePair values{part, {load(0, pair.channels[0], part), load(1, pair.channels[1], part)}};
    comparisons_[channel].add(values, marks);
    if (channel == drawn_) picture_->draw(values);
    done_ += part.area();
    callProgress();
}

const unsigned char* FrameDiff::load(int side, const FrameChannel& channel, const PixelBox& part) {
    const auto i = static_cast<std::size_t>(side);
    const auto pixels = static_cast<std::size_t>(part.area());
    FrameReadOptions reading;
    reading.threads = options_.threads;
    if (options_.progress) reading.progress = [this](auto...) { return options_.progress(done_, total_); };
    unsigned char* values = reserve(values_[i], pixels * static_cast<std::size_t>(channel.valueBytes()));
    FrameRead read = frames_[i]->read(part, {{channel, values}}, reading);
    if (read.stopped) throw Ended{DiffState::kStopped, "stopped"};
    if (!read.damaged.empty()) {
        report_.damaged = std::move(read.damaged);
        report_.fileStates[i] = FileState::kDamaged;
        report_.causeOffset = report_.damaged.front().offset;
        throw Ended{DiffState::kDamaged, report_.damaged.front().cause, side};
    }
    // Tags that were there before are not: the file has been written to.
    if (!read.missing.empty()) throw Ended{DiffState::kDamaged, "changed while it was read", side};
    return values;
}

void FrameDiff::callProgress() const {
    if (options_.progress && !options_.progress(done_, total_)) throw Ended{DiffState::kStopped, "stopped"};
}

void FrameDiff::finish() {
    for (ChannelComparison& comparison : comparisons_)
        comparison.finish();
    if (picture_ != nullptr) report_.picture = picture_->take();
}

bool FrameDiff::exceeds(const DiffLimits& limits, std::int64_t pixels) const {
    const double allowed = limits.percent / 100 * static_cast<double>(report_.pixels);
    return static_cast<double>(pixels) > allowed ||
           std::any_of(report_.channels.begin(), report_.channels.end(), [&](const ChannelDiff& pair) {
               return pair.numbers && pair.numbers->maximum > limits.hard;
           });
}

DiffState FrameDiff::verdict() const {
    const std::vector<ChannelDiff>& channels = report_.channels;
    const auto any = [&](auto property) { return std::any_of(channels.begin(), channels.end(), property); };
    const auto hasValues = [](const FrameChannel& channel) { return channel.components() > 0; };
    const bool otherKinds = any([&](const ChannelDiff& pair) {
        return !pair.comparable && (hasValues(pair.channels[0]) || hasValues(pair.channels[1]));
    });
    if (otherKinds || !report_.onlyIn[0].empty() || !report_.onlyIn[1].empty()) return DiffState::kMismatch;
    const bool lacking =
        any([](const ChannelDiff& pair) { return pair.lacksPixels[0] + pair.lacksPixels[1] > 0; });
    if (lacking || !report_.records.empty() || exceeds(options_.fail, report_.failures))
        return DiffState::kFailures;
    const bool otherRecords = any([](const ChannelDiff& pair) { return !pair.differs.empty(); });
    if ((otherRecords && !options_.throughExr) || report_.pixels == 0 ||
        exceeds(options_.warn, report_.warnings))
        return DiffState::kWarnings;
    return DiffState::kGood;
}

}  // namespace

const char* stateName(DiffState state) {
    switch (state) {
        case DiffState::kGood: return "good";
        case DiffState::kWarnings: return "warnings";
        case DiffState::kFailures: return "failures";
        case DiffState::kMismatch: return "mismatch";
        case DiffState::kNoChannel: return "no channel";
        case DiffState::kUnreadable: return "unreadable";
        case DiffState::kDamaged: return "damaged";
        case DiffState::kTooLarge: return "too large";
        case DiffState::kStopped: break;
    }
    return "stopped";
}

DiffReport diffFrames(const RawFrame& a, const RawFrame& b, const DiffOptions& options) {
    return FrameDiff(a, b, options).run();
}

}  // namespace v1
}  // namespace MUtils
