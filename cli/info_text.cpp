#include <charconv>
#include <cmath>
#include <vector>

#include "cli/info_output.h"
#include "cli/safe_text.h"
#include "cli/text_table.h"

namespace rimg {

namespace {

using namespace MUtils;

std::string number(std::int64_t value) {
    return std::to_string(value);
}

std::string sizeText(const FrameSize& size) {
    return number(size.width) + " x " + number(size.height);
}

// One fact on a line, or several under one label.
class FactPrinter {
  public:
    explicit FactPrinter(std::FILE* out) : out_(out) {}
    void line(const char* label, const std::string& text) {
        std::fprintf(out_, "  %-14s%s\n", label, text.c_str());
    }
    void more(const std::string& text) { line("", text); }
    void bytes(const char* label, const std::optional<std::int64_t>& size) {
        if (size) line(label, number(*size) + " bytes");
    }
    void text(const char* label, const std::optional<StoredText>& text) {
        if (text) line(label, shown(*text));
    }
    static std::string shown(const StoredText& text) {
        if (text.bytes > kMaxSummaryText) return number(text.bytes) + " bytes, too long to show";
        return '"' + safeText(text.text) + '"';
    }

  private:
    std::FILE* out_;
};

std::string stateText(const FileSummary& summary) {
    if (summary.state == FileState::kGood) {
        return "finished, tag table at offset " +
               number(static_cast<std::int64_t>(summary.header.infoTagsOffset));
    }
    const std::string place = summary.faultOffset < 0 ? "" : " at offset " + number(summary.faultOffset);
    return stateName(summary.state) + place + ": " + summary.cause;
}

void printCamera(FactPrinter& facts, const RICameraInfo& camera) {
    facts.line("camera", "projection " + number(camera.projection) + ", field of view " +
                             shortest(camera.fov) + ", aperture " + shortest(camera.aperture) +
                             ", focal length " + shortest(camera.focalLength) + ", f-number " +
                             shortest(camera.fNumber));
    facts.more("target distance " + shortest(camera.targetDistance) + ", range " +
               shortest(camera.nearRange) + " to " + shortest(camera.farRange) + ", clipping " +
               shortest(camera.nearClip) + " to " + shortest(camera.farClip));
    std::size_t width = 0;
    for (const float element : camera.transform)
        width = std::max(width, shortest(element).size());
    for (int row = 0; row < 4; ++row) {
        std::string line = row == 0 ? "transform" : "         ";
        for (int column = 0; column < 4; ++column) {
            const std::string element = shortest(camera.transform[4 * row + column]);
            line += std::string(width + 2 - element.size(), ' ') + element;
        }
        facts.more(line);
    }
}

void printFacts(FactPrinter facts, const FileSummary& summary) {
    const bool compressed = (summary.header.flags & RIF_COMPRESSED) != 0;
    facts.line("state", stateText(summary));
    facts.line("size", number(summary.fileBytes) + " bytes in " + number(summary.tagCount) +
                           " tags, pixels " + (compressed ? "compressed" : "not compressed"));
    if (const auto& resolution = summary.resolution) {
        facts.line("resolution", sizeText(*resolution) + ", pixel aspect " + shortest(resolution->aspect));
    }
    if (const auto& buckets = summary.buckets) {
        facts.line("buckets", sizeText(*buckets) + (buckets->varies ? ", sizes vary" : ""));
    }
    if (summary.camera) printCamera(facts, *summary.camera);
    if (const auto& region = summary.region) {
        facts.line("render region", "kind " + number(region->kind) + ", " + number(region->width) + " x " +
                                        number(region->height) + " at " + number(region->left) + ", " +
                                        number(region->top));
    }
    if (const auto& scene = summary.scene) {
        facts.line("scene", number(scene->value) + ", " + FactPrinter::shown(scene->name));
    }
    facts.text("note", summary.note);
    facts.bytes("stamp", summary.stampBytes);
    facts.text("stamp text", summary.stampText);
    facts.bytes("overlay texts", summary.overlayBytes);
    facts.bytes("settings", summary.settingsBytes);
    if (summary.preview) facts.line("preview", sizeText(*summary.preview));
}

// Cut, not rounded, to two digits: 100 % means all of it.
std::string coverageText(const ChannelSummary& channel, std::int64_t framePixels) {
    if (!channel.coveredPixels) return "-";
    const double share = static_cast<double>(*channel.coveredPixels) / static_cast<double>(framePixels);
    char text[32];
    std::snprintf(text, sizeof text, "%.2f %%", std::floor(share * 10000.0) / 100.0);
    return text;
}

std::string ratioText(const ChannelSummary& channel) {
    if (channel.storedBytes == 0) return "-";
    char text[32];
    std::snprintf(text, sizeof text, "%.2f", compressionRatio(channel));
    return text;
}

TableRow channelRow(const ChannelSummary& channel, std::int64_t framePixels) {
    const MUtils::RIF_CHANNEL& record = channel.record;
    const bool listed = channel.listed;
    std::string name = "(unknown channel)";
    if (listed) name = record.name[0] != '\0' ? safeText(record.name) : "\"\"";
    return {number(record.index),
            number(record.type) + " " + channelTypeName(record.type),
            listed ? number(record.alias) : "-",
            listed ? number(record.flags) : "-",
            number(channel.tags),
            number(channel.storedBytes),
            number(channel.rawBytes),
            ratioText(channel),
            coverageText(channel, framePixels),
            name};
}

void printChannels(std::FILE* out, const FileSummary& summary) {
    const std::vector<ChannelSummary>& channels = summary.channels;
    if (channels.empty()) return;
    std::fputc('\n', out);
    printTable(out, "rlrrrrrrrl", channels.size() + 1, [&](std::size_t i) -> TableRow {
        if (i > 0) return channelRow(channels[i - 1], framePixels(summary));
        return {"channel", "type", "alias", "flags", "tags", "stored", "raw", "ratio", "of frame", "name"};
    });
    if (summary.furtherChannels > 0) {
        std::fprintf(out, "  and %lld more unknown channels\n",
                     static_cast<long long>(summary.furtherChannels));
    }
}

void printTags(std::FILE* out, const std::vector<INFOTAG>& tags) {
    if (tags.empty()) return;
    std::fputc('\n', out);
    printTable(out, "rrlrrrrrrrrr", tags.size() + 1, [&tags](std::size_t i) -> TableRow {
        if (i == 0) return {"offset", "id", "tag", "size", "p1", "p2", "p3", "p4", "p5", "p6", "p7", "p8"};
        const INFOTAG& tag = tags[i - 1];
        return {number(static_cast<std::int64_t>(tag.offset)),
                number(tag.id),
                MUtils::tagName(tag.id),
                number(tag.size),
                number(tag.p1),
                number(tag.p2),
                number(tag.p3),
                number(tag.p4),
                number(tag.p5),
                number(tag.p6),
                number(tag.p7),
                number(tag.p8)};
    });
}

}  // namespace

const char* channelTypeName(int type) {
    constexpr const char* kNames[] = {"none", "float", "colour", "float2", "int", "vector", "float4"};
    return type >= 0 && type < static_cast<int>(std::size(kNames)) ? kNames[type] : "unknown";
}

std::string shortest(float value) {
    char text[32];
    const auto end = std::to_chars(text, text + sizeof text, value).ptr;
    return {text, end};
}

double compressionRatio(const ChannelSummary& channel) {
    if (channel.storedBytes == 0) return 0;
    return static_cast<double>(channel.rawBytes) / static_cast<double>(channel.storedBytes);
}

void printInfoText(std::FILE* out, const std::string& file, const FileSummary& summary, bool tags) {
    std::fprintf(out, "%s\n", safeText(file).c_str());
    printFacts(FactPrinter(out), summary);
    printChannels(out, summary);
    if (tags) printTags(out, summary.tags);
}

}  // namespace rimg
