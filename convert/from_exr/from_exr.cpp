#include "convert/from_exr/from_exr.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "convert/channel_globs.h"
#include "convert/channel_grouping.h"
#include "convert/from_exr/dropped_attributes.h"
#include "convert/from_exr/exr_band.h"
#include "convert/from_exr/exr_input.h"
#include "convert/from_exr/exr_region.h"
#include "convert/from_exr/frame_layout.h"
#include "convert/from_exr/raw_output.h"
#include "convert/texts.h"
#include "convert/two_steps.h"
#include "convert/work_count.h"
#include "rawimage/format.h"

namespace MUtils {
inline namespace v1 {

namespace {

constexpr std::size_t kMaxNote = kNoteBytes - 1;
constexpr double kMaxMemory = 1U << 31;
constexpr std::int64_t kMaxBucketPixels = 1 << 26;  // the largest channel of a bucket stays below 2^31 bytes

std::string countOf(std::int64_t n, const std::string& what) {
    return std::to_string(n) + ' ' + what + (n == 1 ? "" : "s");
}

// For numbers that the frame bounds.
int pixels(std::int64_t n) {
    return static_cast<int>(n);
}

std::string placeText(const PixelBox& box, std::int64_t x, std::int64_t y) {
    return boxText(boxAt(box.x0 + x, box.y0 + y, box.width(), box.height()));
}

// The channels that the options ask for.
Grouping groupingOf(const ExrInput& input, const FromExrOptions& options) {
    Grouping grouping = groupChannels(input.partNames(), input.channels());
    keepFitting(options.channels, input.path(), "channel", grouping.channels,
                [](const GroupedChannel&) { return true; });
    return grouping;
}

// The pixels of each part that the options ask for; none of a part without channels.
std::vector<PixelBox> windowsOf(const ExrInput& input, const Grouping& grouping,
                                const std::optional<PixelBox>& crop) {
    const std::vector<PixelBox> all = input.windows();
    std::vector<PixelBox> windows(all.size());
    for (const GroupedChannel& channel : grouping.channels) {
        const auto part = static_cast<std::size_t>(channel.part);
        windows[part] = crop ? intersect(all[part], *crop) : all[part];
    }
    return windows;
}

// Pixels outside the frame end the conversion before anything is done for the others.
FrameLayout layoutOf(const ExrInput& input, const Grouping& grouping, const FromExrOptions& options,
                     ConvertReport& report) {
    if (options.bucketWidth < 1 || options.bucketHeight < 1)
        throw ConvertError(ConvertState::kBadOption, "", "bucket: has no pixels");
    std::optional<PixelBox> crop = options.crop;
    if (crop) crop = intersect(*crop, {0, 0, input.frameWidth(), input.frameHeight()});
    FrameLayout layout(input.frameWidth(), input.frameHeight(), windowsOf(input, grouping, crop),
                       options.bucketWidth, options.bucketHeight);
    report.frame = layout.frame();
    report.originX = input.originX();
    report.originY = input.originY();
    const std::string cut = countOf(layout.cutPixels(), "pixel");
    if (layout.rendered().empty() && crop)
        throw ConvertError(ConvertState::kBadOption, "", "crop: has no pixel of the file in the frame");
    if (layout.rendered().empty()) {
        throw ConvertError(ConvertState::kOutsideFrame, input.path(),
                           "all pixels (" + cut + ") lie outside the display window");
    }
    report.window = layout.rendered();
    if (layout.cutPixels() == 0) return layout;
    if (!options.cropOverscan) {
        throw ConvertError(ConvertState::kOverscan, input.path(),
                           cut + " outside the display window would be lost");
    }
    report.losses.push_back(
        {"overscan", input.path(), cut + " outside the display window left out", {}, layout.cutPixels()});
    return layout;
}

// Allocates what grows with the file's windows only when all of it together is within bounds.
ExrBands makeBands(ExrInput& input, const FrameLayout& layout, const std::vector<GroupedChannel>& channels) {
    const auto inFrame = [&](int part) { return !layout.visible(part).empty(); };
    const auto needOf = [&](int part) {
        ExrBand::Need need{part, layout.visible(part), layout.maxBucketRows(), {}};
        for (const GroupedChannel& channel : channels) {
            if (channel.part != part) continue;
            need.channels.insert(channel.sources.begin(), channel.sources.begin() + channel.components);
        }
        return need;
    };
    double bytes = ExrRegion::bytesNeeded(channels, layout.maxBucketPixels());
    for (int part = 0; part < input.parts(); ++part) {
        if (inFrame(part)) bytes += ExrBand::bytesNeeded(input, needOf(part));
    }
    if (layout.maxBucketPixels() > kMaxBucketPixels) {
        throw ConvertError(
            ConvertState::kTooLarge, input.path(),
            "buckets of " + std::to_string(layout.maxBucketPixels()) + " pixels are too large");
    }
    if (bytes > kMaxMemory) {
        throw ConvertError(ConvertState::kTooLarge, input.path(),
                           "a row of buckets would take " + mebibytes(bytes) + " of memory; " +
                               mebibytes(kMaxMemory) + " are allowed");
    }
    ExrBands bands;
    for (int part = 0; part < input.parts(); ++part) {
        bands.push_back(inFrame(part) ? std::make_unique<ExrBand>(input, needOf(part)) : nullptr);
    }
    return bands;
}

// The job of makeFromExr().
class FromExr {
  public:
    FromExr(const std::string& input, const FromExrOptions& options, ConvertReport& report)
        : options_(options),
          report_(report),
          input_(input, options.frame),
          metadata_(input_.metadata()),
          grouping_(groupingOf(input_, options)),
          layout_(layoutOf(input_, grouping_, options, report)),
          bands_(makeBands(input_, layout_, grouping_.channels)),
          region_(grouping_.channels, pixels(layout_.maxBucketPixels())),
          areas_(bands_.size()) {
        report.channels = static_cast<std::int64_t>(grouping_.channels.size());
        notePlace();
        noteAttributes();
        noteTexts();
        noteLevels();
        for (const std::string& text : grouping_.renamed)
            lose("name", text);
    }

    std::vector<std::string> inputs() const { return {input_.path()}; }

    ConvertState run(const std::string& path) {
        RawOutput output(path);
        output.file().setCompressionThreads(nullptr, options_.threads);
        output.file().setCompression(options_.compression);
        output.file().setCompressionLevel(options_.level);
        writeHead(output);
        writeBuckets(output);
        output.close();
        return noteUnread();
    }

  private:
    // A loss of the input's.
    void lose(const char* kind, const std::string& text, std::vector<std::string> names = {}) {
        report_.losses.push_back({kind, input_.path(), text, std::move(names)});
    }

    void noteLevels() {
        for (int part = 0; part < input_.parts(); ++part) {
            const Imf::Header& header = input_.header(part);
            if (!header.hasTileDescription() || header.tileDescription().mode == Imf::ONE_LEVEL) continue;
            lose("levels", "only the full resolution is taken, not its smaller levels");
            return;
        }
    }

    // A raw image has no display window besides its frame, which begins at (0, 0).
    void notePlace() {
        const std::int64_t x = input_.originX(), y = input_.originY();
        if (input_.displayWindow() != layout_.frame()) {
            lose("display", "the frame is " + placeText(layout_.frame(), x, y) + ", the display window " +
                                placeText(input_.displayWindow(), x, y) + " is not kept");
        } else if (x != 0 || y != 0) {
            lose("origin", "the display window begins at (" + std::to_string(x) + ", " + std::to_string(y) +
                               "), which is not kept");
        }
    }

    void noteAttributes() {
        const std::vector<std::string> names = droppedAttributes(input_, metadata_, layout_.rendered());
        if (hasOwnScreenWindow(input_)) lose("screenWindow", "the screen window is not kept");
        if (!names.empty()) lose("attributes", "these attributes are not kept: " + joined(names), names);
    }

    void noteTexts() {
        const std::pair<const char*, const std::optional<std::string>*> texts[] = {
            {"note", &metadata_.note}, {"stamp text", &metadata_.stampText}, {"scene", &metadata_.scene}};
        for (const auto& [name, text] : texts) {
            const std::string what = std::string("the ") + name + " is cut ";
            if (!*text) continue;
            if ((*text)->find('\0') != std::string::npos) {
                lose("text", what + "at its first NUL", {name});
            } else if (text == &metadata_.note && (*text)->size() > kMaxNote) {
                lose("text", what + "to " + std::to_string(kMaxNote) + " characters", {name});
            }
        }
    }

    void writeHead(RawOutput& output) {
        constexpr int kBitsPerChannel = 32;
        constexpr int kRegionSet = 0;
        RIFile& file = output.file();
        const PixelBox& frame = layout_.frame();
        const PixelBox& rendered = layout_.rendered();
        output.check(file.WriteHeader(kBitsPerChannel));
        output.check(file.WTResolution(pixels(frame.x1), pixels(frame.y1), input_.pixelAspect()));
        output.check(file.WTRegionsInfo(pixels(layout_.bucketWidth()), pixels(layout_.bucketHeight()), 0));
        output.check(file.WTChannelInfo(region_.descriptions()));
        writeMetadata(output);
        if (!(rendered == frame)) {
            output.check(file.WTRenderRegion({kRegionSet, pixels(rendered.x0), pixels(rendered.y0),
                                              pixels(rendered.width()), pixels(rendered.height())}));
        }
        writeWindows(output);
    }

    // The windows of channels of parts that have only some of the rendered pixels.
    void writeWindows(RawOutput& output) {
        std::vector<PixelBox> windows;
        for (int part = 0; part < input_.parts(); ++part)
            windows.push_back(layout_.visible(part));
        for (auto window = windows.begin(); window != windows.end(); ++window) {
            if (*window == layout_.rendered() || std::find(windows.begin(), window, *window) != window)
                continue;
            output.check(output.file().WTRegion(region_.announce(windows, *window), 0,
                                                pixels(window->height()), MUtils::kChannelWindowMark));
        }
    }

    void writeMetadata(RawOutput& output) const {
        RIFile& file = output.file();
        if (metadata_.camera) output.check(file.WTCameraInfo(*metadata_.camera));
        if (metadata_.scene) {
            RISceneInfo scene(metadata_.sceneValue, metadata_.scene->c_str());
            output.check(file.WTSceneInfo(scene));
        }
        if (metadata_.stampText) output.check(file.WTStampText(metadata_.stampText->c_str()));
        if (metadata_.note) output.check(file.addNote(metadata_.note->substr(0, kMaxNote).c_str()));
    }

    void writeBuckets(RawOutput& output) {
        const PixelBox& grid = layout_.grid();
        WorkCount buckets(options_.progress, grid.area());
        for (std::int64_t row = grid.y0; row < grid.y1; ++row) {
            for (int part = 0; part < input_.parts(); ++part) {
                const PixelBox rows = layout_.bucketRow(part, row);
                if (!rows.empty()) bands_[static_cast<std::size_t>(part)]->load(rows.y0, rows.y1);
            }
            for (std::int64_t column = grid.x0; column < grid.x1; ++column) {
                writeBucket(output, column, row);
                buckets.add(1);
            }
        }
    }

    // Writes one region for all parts that have the same pixels of the bucket. A part that has pixels of the
    // bucket that cannot be read is left out.
    void writeBucket(RawOutput& output, std::int64_t column, std::int64_t row) {
        for (std::size_t part = 0; part < areas_.size(); ++part) {
            areas_[part] = layout_.bucket(static_cast<int>(part), column, row);
            if (areas_[part].empty() || bands_[part]->holds(areas_[part])) continue;
            areas_[part] = {};
            ++bucketsLost_;
        }
        for (auto area = areas_.begin(); area != areas_.end(); ++area) {
            if (area->empty() || std::find(areas_.begin(), area, *area) != area) continue;
            output.check(output.file().WTRegion(region_.load(bands_, areas_, *area), 0, 0, 0));
            ++report_.regions;
        }
    }

    // Of the pixels; the worst state of all parts.
    ConvertState noteUnread() {
        for (int part = 0; part < input_.parts(); ++part)
            report_.inputState = std::max(report_.inputState, noteUnreadOf(part));
        if (bucketsLost_ > 0) {
            report_.losses.push_back(
                {"buckets",
                 "",
                 countOf(bucketsLost_, "bucket") + " could not be filled and are left out",
                 {},
                 bucketsLost_});
        }
        switch (report_.inputState) {
            case FileState::kGood: return ConvertState::kGood;
            case FileState::kUnfinished: return ConvertState::kIncomplete;
            default: return ConvertState::kDamaged;
        }
    }

    FileState noteUnreadOf(int part) {
        const std::string where = input_.parts() > 1 ? "part \"" + input_.header(part).name() + "\": " : "";
        const ExrBand* band = bands_[static_cast<std::size_t>(part)].get();
        if (band == nullptr || band->loss().pieces == 0) {
            if (input_.file().partComplete(part)) return FileState::kGood;
            report_.remarks.push_back({"unfinished", input_.path(),
                                       where + "never finished; all that is in the frame could be read"});
            return FileState::kUnfinished;
        }
        const ExrLoss& loss = band->loss();
        const bool placed = loss.offset != ExrStream::kNothingRead;
        report_.losses.push_back({loss.onlyMissing ? "missing" : "damage",
                                  input_.path(),
                                  where + countOf(loss.pieces, "block") + " of pixels between the rows " +
                                      std::to_string(loss.firstRow) + " and " + std::to_string(loss.lastRow) +
                                      " cannot be read: " + loss.cause,
                                  {},
                                  loss.pieces,
                                  placed ? std::optional(loss.offset) : std::nullopt});
        return loss.onlyMissing ? FileState::kUnfinished : FileState::kDamaged;
    }

    const FromExrOptions& options_;
    ConvertReport& report_;
    ExrInput input_;
    const ExrMetadata metadata_;
    const Grouping grouping_;
    const FrameLayout layout_;
    const ExrBands bands_;
    ExrRegion region_;
    std::vector<PixelBox> areas_;  // what each part gives of the bucket in work
    std::int64_t bucketsLost_ = 0;
};

}  // namespace

std::unique_ptr<Conversion> makeFromExr(const std::string& input, const FromExrOptions& options) {
    return std::make_unique<TwoSteps<FromExr, FromExrOptions>>(input, options);
}

ConvertReport convertFromExr(const std::string& input, const std::string& output,
                             const FromExrOptions& options) {
    return runBoth(*makeFromExr(input, options), output);
}

}  // namespace v1
}  // namespace MUtils
