#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

#include "cli/convert_log.h"
#include "cli/interrupt.h"
#include "cli/progress.h"
#include "cli/report.h"
#include "convert/exr_header_attributes.h"
#include "convert/from_exr/channel_grouping.h"
#include "convert/from_exr/exr_band.h"
#include "convert/from_exr/exr_input.h"
#include "convert/from_exr/exr_region.h"
#include "convert/from_exr/frame_layout.h"
#include "convert/from_exr/raw_output.h"
#include "rawimage/area/pixel_box.h"
#include "rawimage/format.h"

namespace rimg {

using MUtils::PixelBox;

namespace {

constexpr double kMebibyte = 1 << 20;
constexpr std::size_t kMaxNote = kNoteBytes - 1;
constexpr double kMaxMemory = 2048 * kMebibyte;
constexpr std::int64_t kMaxBucketPixels = 1 << 26;  // the largest channel of a bucket stays below 2^31 bytes

std::string countOf(std::int64_t n, const std::string& what) {
    return std::to_string(n) + ' ' + what + (n == 1 ? "" : "s");
}

// For numbers that the frame bounds.
int pixels(std::int64_t n) {
    return static_cast<int>(n);
}

std::string placeText(const PixelBox& box, std::int64_t x, std::int64_t y) {
    return boxText(MUtils::boxAt(box.x0 + x, box.y0 + y, box.width(), box.height()));
}

// The pixels that have no place in the frame are looked at first, before anything is done for the others.
FrameLayout layoutOf(const ExrInput& input, const ConvertOptions& options, ConvertLog& log) {
    const PixelSize& bucket = options.bucket;
    FrameLayout layout(input.frameWidth(), input.frameHeight(), input.windows(), bucket.width, bucket.height);
    log.setFrame(input.frameWidth(), input.frameHeight());
    log.setOrigin(input.originX(), input.originY());
    const std::string cut = countOf(layout.cutPixels(), "pixel");
    if (layout.rendered().empty()) {
        throw Failure(ExitCode::kMismatch, input.path(),
                      "all pixels (" + cut +
                          ") lie outside the display window; --frame data or --frame "
                          "union keeps them");
    }
    log.setWindow(layout.rendered());
    if (layout.cutPixels() == 0) return layout;
    if (!options.cropOverscan) {
        throw Failure(ExitCode::kMismatch, input.path(),
                      cut +
                          " outside the display window would be lost; --frame data or --frame union keeps "
                          "them, --crop-overscan leaves them out");
    }
    log.lose(
        {"overscan", input.path(), cut + " outside the display window left out", {}, layout.cutPixels()});
    return layout;
}

// Allocates what grows with the file's windows only once all of it is known to stay within bounds.
ExrBands makeBands(ExrInput& input, const FrameLayout& layout, const std::vector<GroupedChannel>& channels) {
    const auto inFrame = [&](int part) { return !layout.visible(part).empty(); };
    double bytes = ExrRegion::bytesNeeded(channels, layout.maxBucketPixels());
    for (int part = 0; part < input.parts(); ++part) {
        if (inFrame(part)) bytes += ExrBand::bytesNeeded(input, part, layout.maxBucketRows());
    }
    if (layout.maxBucketPixels() > kMaxBucketPixels) {
        throw Failure(ExitCode::kFailure, input.path(),
                      "buckets of " + std::to_string(layout.maxBucketPixels()) + " pixels are too large");
    }
    if (bytes > kMaxMemory) {
        char text[128];
        std::snprintf(text, sizeof text,
                      "a row of buckets would take %.0f MiB of memory; %.0f MiB are allowed",
                      std::ceil(bytes / kMebibyte), kMaxMemory / kMebibyte);
        throw Failure(ExitCode::kFailure, input.path(), text);
    }
    ExrBands bands;
    for (int part = 0; part < input.parts(); ++part) {
        bands.push_back(inFrame(part) ? std::make_unique<ExrBand>(input, part, layout.maxBucketRows())
                                      : nullptr);
    }
    return bands;
}

// The conversion of one file.
class FromExr {
  public:
    FromExr(const ConvertOptions& options, ConvertLog& log)
        : options_(options),
          log_(log),
          input_(options.input, options.frame),
          metadata_(input_.metadata()),
          grouping_(groupChannels(input_.partNames(), input_.channels())),
          layout_(layoutOf(input_, options, log)),
          bands_(makeBands(input_, layout_, grouping_.channels)),
          region_(input_, grouping_.channels, pixels(layout_.maxBucketPixels())),
          areas_(bands_.size()) {}

    ExitCode run() {
        tellWhatIsLeftOut();
        log_.refuseLosses();
        log_.setChannels(grouping_.channels.size());
        RawOutput output(options_.output, {options_.input});
        output.file().setCompressionThreads(nullptr, options_.threads);
        output.file().setCompressionLevel(options_.level);
        writeHead(output);
        if (!writeBuckets(output))
            throw Failure(ExitCode::kStopped, options_.output, "stopped; nothing was written");
        output.close();
        return tellLosses();
    }

  private:
    void tellWhatIsLeftOut() const {
        tellPlace();
        tellAttributes();
        tellTexts();
        for (int part = 0; part < input_.parts(); ++part) {
            const Imf::Header& header = input_.header(part);
            if (!header.hasTileDescription() || header.tileDescription().mode == Imf::ONE_LEVEL) continue;
            log_.lose(
                {"levels", options_.input, "only the full resolution is taken, not its smaller levels"});
            break;
        }
        log_.lose("name", options_.input, grouping_.renamed, "more channels get other names");
    }

    // A raw image has neither a display window beside its frame nor a corner elsewhere than at (0, 0).
    void tellPlace() const {
        const std::int64_t x = input_.originX(), y = input_.originY();
        const std::string back = "--origin " + std::to_string(x) + ',' + std::to_string(y);
        if (!(input_.displayWindow() == layout_.frame())) {
            log_.lose({"display", options_.input,
                       "the frame is " + placeText(layout_.frame(), x, y) + ", the display window " +
                           placeText(input_.displayWindow(), x, y) + " is not kept; " + back +
                           " gives the frame its place again"});
        } else if (x != 0 || y != 0) {
            log_.lose({"origin", options_.input,
                       "the display window begins at (" + std::to_string(x) + ", " + std::to_string(y) +
                           "), which is not kept; " + back + " gives it back"});
        }
    }

    void tellAttributes() const {
        const std::vector<std::string> names = droppedAttributes(input_, metadata_, layout_.rendered());
        if (hasOwnScreenWindow(input_))
            log_.lose({"screenWindow", options_.input, "the screen window is not kept"});
        if (names.empty()) return;
        std::string list;
        for (const std::string& name : names)
            list += (list.empty() ? "" : ", ") + name;
        log_.lose({"attributes", options_.input,
                   "these attributes are not kept (--attributes-from copies them from here): " + list,
                   names});
    }

    void tellTexts() const {
        const std::pair<const char*, const std::optional<std::string>*> texts[] = {
            {"note", &metadata_.note}, {"stamp text", &metadata_.stampText}, {"scene", &metadata_.scene}};
        for (const auto& [name, text] : texts) {
            const std::string what = std::string("the ") + name + " is cut ";
            if (!*text) continue;
            if ((*text)->find('\0') != std::string::npos) {
                log_.lose({"text", options_.input, what + "at its first NUL", {name}});
            } else if (text == &metadata_.note && (*text)->size() > kMaxNote) {
                log_.lose({"text",
                           options_.input,
                           what + "to " + std::to_string(kMaxNote) + " characters",
                           {name}});
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

    // Of the channels of parts that have less than what is rendered of the frame.
    void writeWindows(RawOutput& output) {
        std::vector<PixelBox> windows;
        for (int part = 0; part < input_.parts(); ++part)
            windows.push_back(layout_.visible(part));
        for (auto window = windows.begin(); window != windows.end(); ++window) {
            if (*window == layout_.rendered() || std::find(windows.begin(), window, *window) != window)
                continue;
            output.check(output.file().WTRegion(region_.announce(windows, *window), 0,
                                                pixels(window->height()), kChannelWindowMark));
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
        if (metadata_.note) writeNote(output, *metadata_.note);
    }

    void writeNote(RawOutput& output, const std::string& text) const {
        const std::string note = text.substr(0, kMaxNote);
        const ErrorCode error = output.file().WTNote(note.c_str());
        // A note that fills half of its place or more is answered with an error although all of it is
        // written.
        const bool answeredSo = std::strlen(note.c_str()) >= kNoteBytes / 2;
        if (!answeredSo || output.broken()) output.check(error);
    }

    // Row after row; false when a signal came between two buckets.
    bool writeBuckets(RawOutput& output) {
        const PixelBox& grid = layout_.grid();
        Progress progress("converting", grid.area());
        for (std::int64_t row = grid.y0; row < grid.y1; ++row) {
            for (int part = 0; part < input_.parts(); ++part) {
                const PixelBox rows = layout_.bucketRow(part, row);
                if (!rows.empty()) bands_[static_cast<std::size_t>(part)]->load(rows.y0, rows.y1);
            }
            for (std::int64_t column = grid.x0; column < grid.x1; ++column) {
                if (stopRequested()) return false;
                writeBucket(output, column, row);
                progress.advance();
            }
        }
        return true;
    }

    // One region for all parts that have the same pixels of the bucket. A part of which some pixels of the
    // bucket cannot be read gives none.
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
            log_.countRegion();
        }
    }

    ExitCode tellLosses() const {
        ExitCode result = ExitCode::kGood;
        for (int part = 0; part < input_.parts(); ++part)
            result = worse(result, tellLossesOf(part));
        if (bucketsLost_ > 0) {
            log_.lose({"buckets",
                       options_.output,
                       countOf(bucketsLost_, "bucket") + " could not be filled and are left out",
                       {},
                       bucketsLost_});
        }
        return result;
    }

    ExitCode tellLossesOf(int part) const {
        const std::string where = input_.parts() > 1 ? "part \"" + input_.header(part).name() + "\": " : "";
        const ExrBand* band = bands_[static_cast<std::size_t>(part)].get();
        if (band == nullptr || band->loss().pieces == 0) {
            if (input_.file().partComplete(part)) return ExitCode::kGood;
            log_.remark(options_.input, where + "never finished; all that is in the frame could be read");
            return ExitCode::kIncomplete;
        }
        const ExrLoss& loss = band->loss();
        log_.lose({loss.onlyMissing ? "missing" : "damage",
                   options_.input,
                   where + countOf(loss.pieces, "block") + " of pixels between the rows " +
                       std::to_string(loss.firstRow) + " and " + std::to_string(loss.lastRow) +
                       " cannot be read: " + loss.cause,
                   {},
                   loss.pieces,
                   loss.offset});
        return loss.onlyMissing ? ExitCode::kIncomplete : ExitCode::kDamaged;
    }

    const ConvertOptions& options_;
    ConvertLog& log_;
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

ExitCode convertFromExr(const ConvertOptions& options, ConvertLog& log) {
    return FromExr(options, log).run();
}

}  // namespace rimg
