#include <OpenEXR/ImfThreading.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <memory>
#include <optional>
#include <utility>

#include "cli/convert_log.h"
#include "cli/interrupt.h"
#include "cli/progress.h"
#include "cli/report.h"
#include "convert/exr_header_attributes.h"
#include "convert/to_exr/exr_attributes.h"
#include "convert/to_exr/exr_channels.h"
#include "convert/to_exr/exr_compression.h"
#include "convert/to_exr/exr_output.h"
#include "convert/to_exr/pixel_loader.h"
#include "convert/to_exr/raw_input.h"
#include "convert/to_exr/raw_losses.h"
#include "convert/to_exr/tile_layout.h"
#include "exr/attr_parser.h"
#include "rawimage/area/tag_box.h"
#include "support/job_queue.h"

namespace rimg {

using MUtils::boxOf;
using MUtils::PixelBox;

namespace {

constexpr int kMaxDecoders = 64;
// The most that the writer of scan lines copies at a time.
constexpr std::int64_t kStagedPixels = (32 << 20) / 12;

int threadsOf(const ConvertOptions& options) {
    return options.threads > 0 ? options.threads : MUtils::getNumProcessors();
}

// The attributes for the file, once it is certain that it takes them.
std::string checkedAttributes(const ConvertOptions& options, const ExrAttributes& own) {
    const std::string all = joinAttributes(own.text, options.attributes);
    // The user's alone first: positions are told as the user counts them.
    for (const std::string& text : {options.attributes, all}) {
        if (const ErrorCode error = checkExtraAttributes(text.c_str()); !error.empty())
            throw Failure(ExitCode::kUsage, "", std::string("--attributes: ") + error.message());
    }
    return all;
}

// The conversion of one file.
class ToExr {
  public:
    ToExr(const ConvertOptions& options, ConvertLog& log)
        : options_(options),
          log_(log),
          input_(options.input, threadsOf(options)),
          selection_(selectExrChannels(input_, options.channels, options.kind)),
          ownAttributes_(exrAttributes(input_.records(), !tiled())),
          attributes_(checkedAttributes(options, ownAttributes_)),
          layout_(input_, tiled()),
          loader_(input_, channels(), std::min(threadsOf(options), kMaxDecoders)),
          region_(channels()) {
        if (!options.attributesFrom.empty())
            moreAttributes_.emplace(options.attributesFrom, namesInText(options.attributes));
        for (const INFOTAG& tag : input_.pixels()) {
            if (!loader_.wants(tag)) continue;
            const PixelBox seen = intersect(boxOf(tag), layout_.window());
            if (!seen.empty()) tags_.push_back(&tag);
            if (seen != boxOf(tag)) ++tagsCut_;
        }
    }

    ExitCode run() {
        const std::vector<TileBand> bands = makeBands();
        checkMemory(bands);
        checkPlace();
        log_.setFrame(input_.records().resolution->width, input_.records().resolution->height);
        log_.setOrigin(options_.originX, options_.originY);
        log_.setWindow(layout_.window());
        log_.setChannels(static_cast<std::size_t>(
            std::count_if(channels().begin(), channels().end(),
                          [](const ExrChannel& channel) { return channel.isWritten(); })));
        tellWhatChanges();
        log_.refuseLosses();
        Imf::setGlobalThreadCount(threadsOf(options_));
        std::vector<std::string> inputs{options_.input};
        if (!options_.attributesFrom.empty()) inputs.push_back(options_.attributesFrom);
        ExrOutput output(options_.output, options_.kind, inputs);
        writeHead(output);
        {
            Progress progress("converting", static_cast<std::int64_t>(tags_.size()));
            for (const TileBand& band : bands)
                writeBand(band, output, progress);
        }
        output.close();
        return tellLosses(input_, channels(), loader_.lost(), options_.output, log_);
    }

  private:
    bool tiled() const { return options_.kind == ExrFile::kTiled; }
    const std::vector<ExrChannel>& channels() const { return selection_.channels; }

    // Scan-line files take the frame in one piece.
    std::vector<TileBand> makeBands() const {
        return tiled() ? layout_.bands(tags_) : std::vector<TileBand>{{layout_.window(), tags_}};
    }

    // Before anything is allocated for the pixels.
    void checkMemory(const std::vector<TileBand>& bands) const {
        std::int64_t pixels = 0;
        for (const TileBand& band : bands)
            pixels = std::max(pixels, band.box.area());
        for (const ExrChannel& channel : channels()) {
            if (!channel.isWritten() || pixels <= INT_MAX / channel.valueSize()) continue;
            throw Failure(ExitCode::kFailure, options_.input,
                          "the channel \"" + channel.name + "\" takes more than 2 GiB of memory" +
                              (tiled() ? "" : "; --kind tiled may take less"));
        }
        const std::int64_t tile = tiled() ? layout_.tileWidth() * layout_.tileHeight() : 0;
        const double bytes = ChannelRegion::bytesNeeded(
                                 channels(), pixels + (tiled() ? tile : std::min(pixels, kStagedPixels))) +
                             loader_.bytesNeeded(tags_);
        const double there =
            static_cast<double>(sysconf(_SC_PHYS_PAGES)) * static_cast<double>(sysconf(_SC_PAGE_SIZE));
        if (bytes <= there) return;
        constexpr double kMebibyte = 1 << 20;
        throw Failure(ExitCode::kFailure, options_.input,
                      "the pixels take " + std::to_string(std::llround(bytes / kMebibyte)) +
                          " MiB of memory, and this machine has " +
                          std::to_string(std::llround(there / kMebibyte)) + "; choose fewer with --channels");
    }

    // OpenEXR refuses windows that go further.
    void checkPlace() const {
        constexpr std::int64_t kFarthest = INT_MAX / 2;
        const PixelBox& window = layout_.window();
        const MUtils::FrameResolution& frame = *input_.records().resolution;
        const auto fits = [](std::int64_t first, std::int64_t end, std::int64_t origin) {
            return origin + std::min<std::int64_t>(first, 0) > -kFarthest && origin + end <= kFarthest;
        };
        if (fits(window.x0, std::max<std::int64_t>(window.x1, frame.width), options_.originX) &&
            fits(window.y0, std::max<std::int64_t>(window.y1, frame.height), options_.originY))
            return;
        throw Failure(ExitCode::kUsage, options_.output,
                      "--origin puts the frame where no OpenEXR file can have it");
    }

    void tellWhatChanges() const {
        const std::string& file = options_.input;
        log_.lose("name", file, selection_.renamed, "more channels go by other names");
        if (tagsCut_ > 0) {
            log_.lose(
                {"overscan",
                 file,
                 std::to_string(tagsCut_) + " tags have pixels outside the data window; those are left out",
                 {},
                 tagsCut_});
        }
        for (const std::string& name : ownAttributes_.leftOut) {
            log_.lose({"text",
                       file,
                       "the text \"" + name +
                           "\" has a '=' or ';', which an attribute cannot carry; it is left out",
                       {name}});
        }
        for (const INFOTAG& tag : input_.longTexts()) {
            log_.lose({"text",
                       file,
                       std::string("this ") + tagName(tag.id) + " is too long to go along",
                       {tagName(tag.id)},
                       {},
                       static_cast<std::int64_t>(tag.offset)});
        }
        tellLeftOut();
        const std::string storage = storageRemark(options_.compression, options_.bits, channels());
        if (!storage.empty()) log_.remark(options_.output, storage);
    }

    // What a raw image has and an OpenEXR file does not.
    void tellLeftOut() const {
        const auto tell = [this](const char* kind, const char* what, const std::vector<std::string>& names) {
            std::string list;
            for (const std::string& name : names)
                list += (list.empty() ? "" : ", ") + name;
            if (!names.empty()) log_.lose({kind, options_.input, what + list, names});
        };
        std::vector<std::string> tags, kept;
        for (const std::uint32_t id : input_.otherTags())
            tags.emplace_back(tagName(id));
        for (const ExrChannel& channel : channels()) {
            if (channel.type != RCT_NONE && !channel.isWritten()) kept.push_back(channel.name);
        }
        tell("tags", "OpenEXR files have no place for: ", tags);
        tell("channels", "these channels are flagged to be kept out of OpenEXR files: ", kept);
    }

    void writeHead(ExrOutput& output) {
        const MUtils::FileSummary& records = input_.records();
        const MUtils::FrameResolution& frame = *records.resolution;
        MUtils::Table<RegionChannelCallback*, 100> list;
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
            file.setHeaderEditor(moreAttributes_ ? &*moreAttributes_ : nullptr);
            return file.WTChannelInfo(&list);
        });
        if (records.camera) output.run([&](ExrFile& file) { return file.WTCameraInfo(*records.camera); });
        // Elsewhere it is one of the extra attributes: scan-line files have no header to put it in yet.
        if (records.stampText && tiled()) {
            output.run([&](ExrFile& file) { return file.WTStampText(records.stampText->text.c_str()); });
        }
        output.run([&](ExrFile& file) { return file.WTExtraAttributes(attributes_.c_str()); });
    }

    // A band of a few tiles is loaded tile by tile: one beside it would be a large part of its memory.
    void writeBand(const TileBand& band, ExrOutput& output, Progress& progress) {
        constexpr std::size_t kFewTiles = 5;
        const std::vector<PixelBox> tiles =
            tiled() ? layout_.tiles(band.box) : std::vector<PixelBox>{band.box};
        if (tiles.size() <= kFewTiles) {
            for (const PixelBox& box : tiles) {
                std::vector<const INFOTAG*> tags;
                std::copy_if(band.tags.begin(), band.tags.end(), std::back_inserter(tags),
                             [&box](const INFOTAG* tag) { return overlaps(boxOf(*tag), box); });
                loadRegion(box, tags, progress);
                writeRegion(region_, output);
            }
            return;
        }
        loadRegion(band.box, band.tags, progress);
        ChannelRegion tile(channels());
        for (const PixelBox& box : tiles) {
            copyPixels(region_, box, tile);
            writeRegion(tile, output);
        }
    }

    void loadRegion(const PixelBox& box, const std::vector<const INFOTAG*>& tags, Progress& progress) {
        region_.setBox(box);
        if (!loader_.load(tags, region_, progress)) stop();
    }

    void writeRegion(ChannelRegion& region, ExrOutput& output) const {
        output.run([&](ExrFile& file) { return file.WTRegion(&region, 0, 0, 0); });
        log_.countRegion();
        if (stopRequested()) stop();
    }

    [[noreturn]] void stop() const {
        throw Failure(ExitCode::kStopped, options_.output, "stopped; nothing was written");
    }

    const ConvertOptions& options_;
    ConvertLog& log_;
    const RawInput input_;
    ExrChannels selection_;
    const ExrAttributes ownAttributes_;
    const std::string attributes_;
    std::optional<AttributesFromFile> moreAttributes_;
    const TileLayout layout_;
    PixelLoader loader_;
    ChannelRegion region_;              // the band in work
    std::vector<const INFOTAG*> tags_;  // those with pixels in the window
    std::int64_t tagsCut_ = 0;
};

}  // namespace

ExitCode convertToExr(const ConvertOptions& options, ConvertLog& log) {
    checkedAttributes(options, {});
    return ToExr(options, log).run();
}

}  // namespace rimg
