#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

#include "cli/channel_grouping.h"
#include "cli/convert.h"
#include "cli/exr_band.h"
#include "cli/exr_input.h"
#include "cli/exr_region.h"
#include "cli/frame_layout.h"
#include "cli/interrupt.h"
#include "cli/progress.h"
#include "cli/raw_output.h"
#include "cli/report.h"
#include "rawimage/format.h"

namespace rimg {

namespace {

constexpr double kMebibyte = 1 << 20;
constexpr double kMaxMemory = 2048 * kMebibyte;
constexpr std::int64_t kMaxBucketPixels = 1 << 26;  // the largest channel of a bucket stays below 2^31 bytes
constexpr std::size_t kMaxRenamesTold = 10;

std::string countOf(std::int64_t n, const std::string& what) {
    return std::to_string(n) + ' ' + what + (n == 1 ? "" : "s");
}

// For numbers that the frame bounds.
int pixels(std::int64_t n) {
    return static_cast<int>(n);
}

FrameLayout layoutOf(const ExrInput& input, const PixelSize& bucket) {
    return {input.frameWidth(), input.frameHeight(), input.windows(), bucket.width, bucket.height};
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
    explicit FromExr(const ConvertOptions& options)
        : options_(options),
          input_(options.input),
          grouping_(groupChannels(input_.partNames(), input_.channels())),
          layout_(layoutOf(input_, options.bucket)),
          bands_(makeBands(input_, layout_, grouping_.channels)),
          region_(input_, grouping_.channels, pixels(layout_.maxBucketPixels())),
          areas_(bands_.size()) {}

    ExitCode run() {
        tellWhatIsLeftOut();
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
        if (layout_.cutPixels() > 0) {
            report(options_.input,
                   countOf(layout_.cutPixels(), "pixel") + " outside the display window left out");
        }
        const std::size_t renames = grouping_.renamed.size();
        for (std::size_t i = 0; i < std::min(renames, kMaxRenamesTold); ++i) {
            report(options_.input, grouping_.renamed[i]);
        }
        if (renames > kMaxRenamesTold) {
            report(options_.input,
                   std::to_string(renames - kMaxRenamesTold) + " more channels get other names");
        }
    }

    void writeHead(RawOutput& output) {
        constexpr int kBitsPerChannel = 32;
        constexpr int kRegionSet = 0;
        RIFile& file = output.file();
        const Rect& frame = layout_.frame();
        const Rect& rendered = layout_.rendered();
        output.check(file.WriteHeader(kBitsPerChannel));
        output.check(file.WTResolution(pixels(frame.x1), pixels(frame.y1), input_.pixelAspect()));
        output.check(file.WTRegionsInfo(pixels(layout_.bucketWidth()), pixels(layout_.bucketHeight()), 0));
        output.check(file.WTChannelInfo(region_.descriptions()));
        writeMetadata(output);
        if (rendered == frame) return;
        output.check(file.WTRenderRegion({kRegionSet, pixels(rendered.x0), pixels(rendered.y0),
                                          pixels(rendered.width()), pixels(rendered.height())}));
    }

    void writeMetadata(RawOutput& output) const {
        const ExrMetadata metadata = input_.metadata();
        RIFile& file = output.file();
        if (metadata.camera) output.check(file.WTCameraInfo(*metadata.camera));
        if (metadata.scene) {
            RISceneInfo scene(metadata.sceneValue, metadata.scene->c_str());
            output.check(file.WTSceneInfo(scene));
        }
        if (metadata.stampText) output.check(file.WTStampText(metadata.stampText->c_str()));
        if (metadata.note) writeNote(output, *metadata.note);
    }

    void writeNote(RawOutput& output, std::string note) const {
        constexpr std::size_t kMaxNote = kNoteBytes - 1;
        if (note.size() > kMaxNote) {
            report(options_.input, "the note is cut to " + std::to_string(kMaxNote) + " characters");
            note.resize(kMaxNote);
        }
        const ErrorCode error = output.file().WTNote(note.c_str());
        // A note that fills half of its place or more is answered with an error although all of it is
        // written.
        const bool answeredSo = std::strlen(note.c_str()) >= kNoteBytes / 2;
        if (!answeredSo || output.broken()) output.check(error);
    }

    // Row after row; false when a signal came between two buckets.
    bool writeBuckets(RawOutput& output) {
        const Rect& grid = layout_.grid();
        Progress progress("converting", grid.area());
        for (std::int64_t row = grid.y0; row < grid.y1; ++row) {
            for (int part = 0; part < input_.parts(); ++part) {
                const Rect rows = layout_.bucketRow(part, row);
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
        }
    }

    ExitCode tellLosses() const {
        ExitCode result = ExitCode::kGood;
        for (int part = 0; part < input_.parts(); ++part)
            result = worse(result, tellLossesOf(part));
        if (bucketsLost_ > 0) {
            report(options_.output,
                   countOf(bucketsLost_, "bucket") + " could not be filled and are left out");
        }
        return result;
    }

    ExitCode tellLossesOf(int part) const {
        const std::string where = input_.parts() > 1 ? "part \"" + input_.header(part).name() + "\": " : "";
        const ExrBand* band = bands_[static_cast<std::size_t>(part)].get();
        if (band == nullptr || band->loss().pieces == 0) {
            if (input_.file().partComplete(part)) return ExitCode::kGood;
            report(options_.input, where + "never finished; all that is in the frame could be read");
            return ExitCode::kIncomplete;
        }
        const ExrLoss& loss = band->loss();
        report(options_.input,
               where + countOf(loss.pieces, "block") + " of pixels between the rows " +
                   std::to_string(loss.firstRow) + " and " + std::to_string(loss.lastRow) +
                   " cannot be read: " + loss.cause,
               loss.offset);
        return loss.onlyMissing ? ExitCode::kIncomplete : ExitCode::kDamaged;
    }

    const ConvertOptions& options_;
    ExrInput input_;
    const Grouping grouping_;
    const FrameLayout layout_;
    const ExrBands bands_;
    ExrRegion region_;
    std::vector<Rect> areas_;  // what each part gives of the bucket in work
    std::int64_t bucketsLost_ = 0;
};

}  // namespace

ExitCode convertFromExr(const ConvertOptions& options) {
    return FromExr(options).run();
}

}  // namespace rimg
