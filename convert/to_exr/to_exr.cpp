#include "convert/to_exr/to_exr.h"

#include <unistd.h>

#include <algorithm>
#include <climits>
#include <optional>
#include <utility>

#include "convert/texts.h"
#include "convert/to_exr/copied_attributes.h"
#include "convert/to_exr/exr_attributes.h"
#include "convert/to_exr/exr_channels.h"
#include "convert/to_exr/exr_compression.h"
#include "convert/to_exr/exr_output.h"
#include "convert/to_exr/pixel_loader.h"
#include "convert/to_exr/raw_input.h"
#include "convert/to_exr/raw_losses.h"
#include "convert/to_exr/tile_layout.h"
#include "convert/two_steps.h"
#include "convert/work_count.h"
#include "exr/attr_parser.h"
#include "rawimage/area/tag_box.h"
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
          ownAttributes_(exrAttributes(input_.records(), !tiled())),
          attributes_(allAttributes(options, ownAttributes_)),
          layout_(input_, tiled(), report),
          loader_(input_, selection_.channels, std::min(threadsOf(options), kMaxDecoders)),
          region_(selection_.channels) {
        if (!options.attributesFrom.empty())
            copiedAttributes_.emplace(options.attributesFrom, namesInText(options.attributes));
        takeTags();
        bands_ = tiled() ? layout_.bands(tags_) : std::vector<TileBand>{{layout_.window(), tags_}};
        checkMemory();
        checkPlace();
        report.inputState = input_.inspection().state;
        report.frame = boxAt(0, 0, resolution().width, resolution().height);
        report.originX = options.originX;
        report.originY = options.originY;
        report.window = layout_.window();
        report.channels = std::count_if(channels().begin(), channels().end(),
                                        [](const ExrChannel& channel) { return channel.isWritten(); });
        noteLosses();
        if (auto remark = storageRemark(options.compression, options.bits, channels()))
            report.remarks.push_back(std::move(*remark));
    }

    std::vector<std::string> inputs() const { return {input_.path(), options_.attributesFrom}; }

    ConvertState run(const std::string& path) {
        ExrOutput output(path, options_.kind);
        writeHead(output);
        WorkCount tags(options_.progress, static_cast<std::int64_t>(tags_.size()));
        for (const TileBand& band : bands_)
            writeBand(band, output, tags);
        output.close();
        return noteRawLosses(input_, channels(), loader_.lost(), report_);
    }

  private:
    bool tiled() const { return options_.kind == ExrFile::kTiled; }
    const std::vector<ExrChannel>& channels() const { return selection_.channels; }
    const FrameResolution& resolution() const { return *input_.records().resolution; }

    // Checks the attributes of the options alone, so that the positions in an error are the caller's.
    static const ToExrOptions& checked(const ToExrOptions& options) {
        checkAttributes(options.attributes);
        return options;
    }

    // The tags that have pixels in the window.
    void takeTags() {
        for (const INFOTAG* tag : input_.pixels()) {
            if (!loader_.wants(*tag)) continue;
            const PixelBox seen = intersect(boxOf(*tag), layout_.window());
            if (!seen.empty()) tags_.push_back(tag);
            if (seen != boxOf(*tag)) ++tagsCut_;
        }
    }

    // Before anything is allocated for the pixels.
    void checkMemory() const {
        std::int64_t pixels = 0;
        for (const TileBand& band : bands_)
            pixels = std::max(pixels, band.box.area());
        for (const ExrChannel& channel : channels()) {
            if (!channel.isWritten() || pixels <= INT_MAX / channel.valueSize()) continue;
            throw ConvertError(ConvertState::kTooLarge, input_.path(),
                               "the channel \"" + channel.name + "\" takes more than 2 GiB of memory");
        }
        const std::int64_t staged = tiled() ? 0 : std::min(pixels, kStagedPixels);
        const double bytes =
            ChannelRegion::bytesNeeded(channels(), pixels + staged) + loader_.bytesNeeded(tags_);
        const double there =
            static_cast<double>(sysconf(_SC_PHYS_PAGES)) * static_cast<double>(sysconf(_SC_PAGE_SIZE));
        if (bytes <= there) return;
        throw ConvertError(
            ConvertState::kTooLarge, input_.path(),
            "the pixels take " + mebibytes(bytes) + " of memory, and this machine has " + mebibytes(there));
    }

    // OpenEXR refuses windows that go further.
    void checkPlace() const {
        constexpr std::int64_t kFarthest = INT_MAX / 2;
        const PixelBox& window = layout_.window();
        const auto fits = [](std::int64_t first, std::int64_t end, std::int64_t origin) {
            return origin + std::min<std::int64_t>(first, 0) > -kFarthest && origin + end <= kFarthest;
        };
        if (fits(window.x0, std::max<std::int64_t>(window.x1, resolution().width), options_.originX) &&
            fits(window.y0, std::max<std::int64_t>(window.y1, resolution().height), options_.originY))
            return;
        throw ConvertError(ConvertState::kBadOption, "",
                           "origin puts the frame where no OpenEXR file can have it");
    }

    // A loss of the input's.
    void lose(const char* kind, const std::string& text, std::vector<std::string> names = {},
              std::optional<std::int64_t> count = {}, std::optional<std::int64_t> offset = {}) {
        report_.losses.push_back({kind, input_.path(), text, std::move(names), count, offset});
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
        const FileSummary& records = input_.records();
        const FrameResolution& frame = resolution();
        Table<RegionChannelCallback*, 100> list;
        for (ExrChannel& channel : selection_.channels)
            list.Add(&channel);
        output.run([&](ExrFile& file) { return file.WriteHeader(options_.bits); });
        output.run([&](ExrFile& file) { return file.WTResolution(frame.width, frame.height, frame.aspect); });
        output.run([&](ExrFile& file) {
            return file.WTRegionsInfo(static_cast<int>(layout_.tileWidth()),
                                      static_cast<int>(layout_.tileHeight()), 0);
        });
        if (layout_.region()) {
            output.run([&](ExrFile& file) { return file.WTRenderRegion(*layout_.region()); });
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

    // The tiles of a row are packed at the same time.
    void writeBand(const TileBand& band, ExrOutput& output, WorkCount& count) {
        region_.setBox(band.box);
        loader_.load(band.tags, region_, count);
        if (!tiled()) {
            output.run([&](ExrFile& file) { return file.WTRegion(&region_, 0, 0, 0); });
            ++report_.regions;
            count.add(0);
            return;
        }
        for (std::int64_t y = band.box.y0; y < band.box.y1; y += layout_.tileHeight()) {
            RegionRows rows(region_, y, std::min(y + layout_.tileHeight(), band.box.y1));
            output.run([&](ExrFile& file) { return file.WTTiles(&rows); });
            report_.regions += layout_.columns();
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
    PixelLoader loader_;
    ChannelRegion region_;              // the band in work
    std::vector<const INFOTAG*> tags_;  // those with pixels in the window
    std::int64_t tagsCut_ = 0;
    std::vector<TileBand> bands_;
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
