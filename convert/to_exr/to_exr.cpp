#include "convert/to_exr/to_exr.h"

#include <unistd.h>

#include <algorithm>
#include <climits>
#include <optional>
#include <utility>

#include "convert/texts.h"
#include "convert/to_exr/channel_region.h"
#include "convert/to_exr/copied_attributes.h"
#include "convert/to_exr/exr_attributes.h"
#include "convert/to_exr/exr_channels.h"
#include "convert/to_exr/exr_compression.h"
#include "convert/to_exr/exr_output.h"
#include "convert/to_exr/raw_input.h"
#include "convert/to_exr/raw_losses.h"
#include "convert/to_exr/tile_layout.h"
#include "convert/two_steps.h"
#include "convert/work_count.h"
#include "exr/attr_parser.h"
#include "support/job_queue.h"

namespace MUtils {
inline namespace v1 {

namespace {

constexpr int kMaxDecoders = 64;
// The most pixels that the writer of scan lines copies at a time.
constexpr std::int64_t kStagedPixels = (32 << 20) / 12;

int threadsOf(const ToExrOptions& options) {
    return options.threads > 0 ? options.threads : getNumProcessors();
}

// Throws ConvertError (kBadOption) for a text that no file takes.
void checkAttributes(const std::string& text) {
    if (const ErrorCode error = checkExtraAttributes(text.c_str()); !error.empty())
        throw ConvertError(ConvertState::kBadOption, "", std::string("attributes: ") + error.message());
}

// The raw image's own attributes and those of the options.
std::string allAttributes(const ToExrOptions& options, const ExrAttributes& own) {
    std::string all = joinAttributes(own.text, options.attributes);
    checkAttributes(all);
    return all;
}

// The job of makeToExr().
class ToExr {
  public:
    ToExr(const std::string& input, const ToExrOptions& options, ConvertReport& report)
        : options_(checked(options)),
          report_(report),
          input_(input, threadsOf(options), options.progress),
          selection_(selectExrChannels(input_, options.channels, options.kind)),
          ownAttributes_(exrAttributes(input_.records, !tiled())),
          attributes_(allAttributes(options, ownAttributes_)),
          layout_(input_, tiled(), options.crop, report),
          region_(selection_.channels) {
        if (!options.attributesFrom.empty())
            copiedAttributes_.emplace(options.attributesFrom, namesInText(options.attributes));
        for (const ExrChannel& channel : channels()) {
            if (channel.isWritten()) written_.push_back(channel.index);
        }
        measureBuckets();
        takeBands();
        checkMemory();
        checkPlace();
        report.inputState = input_.frame.state();
        report.frame = frame();
        report.originX = options.originX;
        report.originY = options.originY;
        report.window = layout_.window();
        report.channels = static_cast<std::int64_t>(written_.size());
        noteLosses();
        if (auto remark = storageRemark(options.compression, options.bits, channels()))
            report.remarks.push_back(std::move(*remark));
    }

    std::vector<std::string> inputs() const { return {input_.path, options_.attributesFrom}; }

    ConvertState run(const std::string& path) {
        ExrOutput output(path, options_.kind);
        writeHead(output);
        WorkCount pixels(options_.progress, layout_.window().area());
        for (const PixelBox& band : bands_)
            writeBand(band, output, pixels);
        output.close();
        return noteRawLosses(input_, channels(), layout_.window(), std::move(unread_), report_);
    }

  private:
    bool tiled() const { return options_.kind == ExrFile::kTiled; }
    const std::vector<ExrChannel>& channels() const { return selection_.channels; }
    const PixelBox& frame() const { return input_.info->frame; }
    int decoders() const { return std::min(threadsOf(options_), kMaxDecoders); }

    // Checks the attributes of the options alone, so that the positions in an error are the caller's.
    static const ToExrOptions& checked(const ToExrOptions& options) {
        checkAttributes(options.attributes);
        return options;
    }

    // What is cut off by the caller's wish is no loss.
    void measureBuckets() {
        const PixelBox& window = layout_.window();
        for (const ExrChannel& channel : channels()) {
            if (!channel.isWritten()) continue;
            for (const PixelBox& box :
                 input_.frame.buckets(options_.crop ? window : kEverywhere, channel.index)) {
                if (!options_.crop && !contains(window, box)) ++tagsCut_;
                largestBucket_ = std::max(largestBucket_, box.area() * channel.valueSize());
            }
        }
        largestBucket_ = std::min(largestBucket_, kMaxHeldValues);
    }

    // What is loaded at a time.
    void takeBands() {
        const PixelBox& window = layout_.window();
        if (!tiled()) {
            bands_.push_back(window);
            return;
        }
        const double valueBytes = ChannelRegion::bytesNeeded(channels(), 1);
        for (const PixelBox& band :
             input_.frame.uncutBands(window, written_, static_cast<int>(layout_.tileHeight()))) {
            const std::vector<PixelBox> parts = layout_.parts(band, valueBytes);
            bands_.insert(bands_.end(), parts.begin(), parts.end());
        }
    }

    // Before anything is allocated for the pixels.
    void checkMemory() const {
        std::int64_t pixels = 0;
        for (const PixelBox& band : bands_)
            pixels = std::max(pixels, band.area());
        for (const ExrChannel& channel : channels()) {
            if (!channel.isWritten() || pixels <= INT_MAX / channel.valueSize()) continue;
            throw ConvertError(ConvertState::kTooLarge, input_.path,
                               "the channel \"" + channel.name + "\" takes more than 2 GiB of memory");
        }
        const std::int64_t staged = tiled() ? 0 : std::min(pixels, kStagedPixels);
        const double bytes = ChannelRegion::bytesNeeded(channels(), pixels + staged) +
                             2.0 * decoders() * static_cast<double>(largestBucket_);
        const double there =
            static_cast<double>(sysconf(_SC_PHYS_PAGES)) * static_cast<double>(sysconf(_SC_PAGE_SIZE));
        if (bytes <= there) return;
        throw ConvertError(
            ConvertState::kTooLarge, input_.path,
            "the pixels take " + mebibytes(bytes) + " of memory, and this machine has " + mebibytes(there));
    }

    // OpenEXR refuses windows that go further.
    void checkPlace() const {
        constexpr std::int64_t kFarthest = INT_MAX / 2;
        const PixelBox& window = layout_.window();
        const auto fits = [](std::int64_t first, std::int64_t end, std::int64_t origin) {
            return origin + std::min<std::int64_t>(first, 0) > -kFarthest && origin + end <= kFarthest;
        };
        if (fits(window.x0, std::max(window.x1, frame().x1), options_.originX) &&
            fits(window.y0, std::max(window.y1, frame().y1), options_.originY))
            return;
        throw ConvertError(ConvertState::kBadOption, "",
                           "origin puts the frame where no OpenEXR file can have it");
    }

    // A loss of the input's.
    void lose(const char* kind, const std::string& text, std::vector<std::string> names = {},
              std::optional<std::int64_t> count = {}, std::optional<std::int64_t> offset = {}) {
        report_.losses.push_back({kind, input_.path, text, std::move(names), count, offset});
    }

    // What a raw image has and an OpenEXR file does not.
    void noteLosses() {
        for (const std::string& text : selection_.renamed)
            lose("name", text);
        if (tagsCut_ > 0) {
            lose("overscan",
                 std::to_string(tagsCut_) + " tags have pixels outside the data window; those are left out",
                 {}, tagsCut_);
        }
        for (const std::string& name : ownAttributes_.leftOut) {
            lose(
                "text",
                "the text \"" + name + "\" has a '=' or ';', which an attribute cannot carry; it is left out",
                {name});
        }
        for (const INFOTAG& tag : input_.longTexts()) {
            const std::string name = tagName(tag.id);
            lose("text", "this " + name + " is too long to go along", {name}, {},
                 static_cast<std::int64_t>(tag.offset));
        }
        const std::vector<std::string> tags = input_.otherTags();
        if (!tags.empty()) lose("tags", "OpenEXR files have no place for: " + joined(tags), tags);
        std::vector<std::string> kept;
        for (const ExrChannel& channel : channels()) {
            if (channel.type != RCT_NONE && !channel.isWritten()) kept.push_back(channel.name);
        }
        if (!kept.empty())
            lose("channels", "these channels are flagged to be kept out of OpenEXR files: " + joined(kept),
                 kept);
    }

    void writeHead(ExrOutput& output) {
        const FrameRecords& records = input_.records;
        Table<RegionChannelCallback*, 100> list;
        for (ExrChannel& channel : selection_.channels)
            list.Add(&channel);
        output.run([&](ExrFile& file) { return file.WriteHeader(options_.bits); });
        output.run([&](ExrFile& file) {
            return file.WTResolution(static_cast<int>(frame().width()), static_cast<int>(frame().height()),
                                     input_.info->pixelAspect);
        });
        output.run([&](ExrFile& file) {
            return file.WTRegionsInfo(static_cast<int>(layout_.tileWidth()),
                                      static_cast<int>(layout_.tileHeight()), 0);
        });
        if (layout_.region()) {
            output.run([&](ExrFile& file) {
                if (!tiled()) file.setWindow(layout_.window());
                return file.WTRenderRegion(*layout_.region());
            });
        }
        output.run([&](ExrFile& file) {
            file.setCompressionType(options_.compression);
            file.setAutoDataWindow(options_.autoDataWindow ? 1 : 0);
            file.setOrigin(options_.originX, options_.originY);
            file.setHeaderEditor(copiedAttributes_ ? &*copiedAttributes_ : nullptr);
            return file.WTChannelInfo(&list);
        });
        if (records.camera) output.run([&](ExrFile& file) { return file.WTCameraInfo(*records.camera); });
        // In other files it is one of the extra attributes: those have no header yet.
        if (records.stampText && tiled()) {
            output.run([&](ExrFile& file) { return file.WTStampText(records.stampText->text.c_str()); });
        }
        output.run([&](ExrFile& file) { return file.WTExtraAttributes(attributes_.c_str()); });
    }

    // Reads the pixels of the written channels into the region; those that no tag has are 0.
    void load(const PixelBox& band, WorkCount& count) {
        region_.setBox(band);
        region_.clear();
        std::vector<ChannelTarget> targets;
        for (std::size_t i = 0; i < channels().size(); ++i) {
            if (!channels()[i].isWritten()) continue;
            ChannelTarget& target = targets.emplace_back();
            target.channel = channels()[i].index;
            target.type = channels()[i].type;
            target.data = region_.at(i, band.x0, band.y0);
            target.filled = true;
        }
        FrameReadOptions options;
        options.threads = decoders();
        std::int64_t counted = 0;
        options.progress = [&](std::int64_t done, std::int64_t total) {
            const auto part = static_cast<double>(done) / static_cast<double>(total);
            const auto pixels = static_cast<std::int64_t>(part * static_cast<double>(band.area()));
            count.add(pixels - std::exchange(counted, pixels));
            return true;
        };
        FrameRead read = input_.frame.read(band, targets, options);
        count.add(band.area() - counted);
        unread_.insert(unread_.end(), read.damaged.begin(), read.damaged.end());
    }

    // The tiles of a row are packed at the same time.
    void writeBand(const PixelBox& band, ExrOutput& output, WorkCount& count) {
        load(band, count);
        if (!tiled()) {
            output.run([&](ExrFile& file) { return file.WTRegion(&region_, 0, 0, 0); });
            ++report_.regions;
            count.add(0);
            return;
        }
        for (std::int64_t y = band.y0; y < band.y1; y += layout_.tileHeight()) {
            RegionRows rows(region_, y, std::min(y + layout_.tileHeight(), band.y1));
            output.run([&](ExrFile& file) { return file.WTTiles(&rows); });
            report_.regions += layout_.columnsOf(band);
            count.add(0);
        }
    }

    const ToExrOptions& options_;
    ConvertReport& report_;
    const RawInput input_;
    ExrChannels selection_;
    const ExrAttributes ownAttributes_;
    const std::string attributes_;
    std::optional<CopiedAttributes> copiedAttributes_;
    const TileLayout layout_;
    ChannelRegion region_;      // the band in work
    std::vector<int> written_;  // indices of the channels that go into the output
    std::int64_t tagsCut_ = 0;
    std::int64_t largestBucket_ = 0;  // bytes of values that are held whole
    std::vector<PixelBox> bands_;     // of large tiles alone a bucket may reach into several
    std::vector<FileFault> unread_;
};

}  // namespace

std::unique_ptr<Conversion> makeToExr(const std::string& input, const ToExrOptions& options) {
    return std::make_unique<TwoSteps<ToExr, ToExrOptions>>(input, options);
}

ConvertReport convertToExr(const std::string& input, const std::string& output, const ToExrOptions& options) {
    return runBoth(*makeToExr(input, options), output);
}

}  // namespace v1
}  // namespace MUtils
