#include "rawimage/tools/supplied_facts.h"

#include <algorithm>
#include <map>
#include <utility>

#include "rawimage/area/tag_box.h"
#include "rawimage/tag_rules.h"
#include "rawimage/tools/recover_report.h"
#include "support/bytes.h"

namespace MUtils {
inline namespace v1 {

namespace {

std::string sizeText(std::int64_t width, std::int64_t height) {
    return std::to_string(width) + "x" + std::to_string(height);
}

// How many pixel tags agree with what is supplied. A few may be damaged themselves.
struct Agreement {
    std::int64_t right = 0;
    std::int64_t wrong = 0;

    bool denied() const { return wrong > right; }
};

// Which channel of the list the pixels contradict, as a cause; empty when there is none.
std::string channelContradiction(const std::vector<INFOTAG>& tags, const std::vector<RIF_CHANNEL>& list) {
    std::map<std::int32_t, Agreement> channels;
    std::int64_t most = 0;  // tags of a channel
    for (const INFOTAG& tag : tags) {
        if (!isPixelTag(tag.id)) continue;
        const auto at = static_cast<std::size_t>(tag.p8);
        const bool agrees = tag.p8 >= 0 && at < list.size() && list[at].type == tag.p1;
        Agreement& channel = channels[tag.p8];
        ++(agrees ? channel.right : channel.wrong);
        most = std::max(most, channel.right + channel.wrong);
    }
    for (const auto& [index, channel] : channels) {
        // Of many buckets a single tag is one whose channel index is damaged.
        if (!channel.denied() || (channel.wrong == 1 && most > 1)) continue;
        const auto at = static_cast<std::size_t>(index);
        const bool listed = index >= 0 && at < list.size();
        return "channel " + std::to_string(index) +
               (listed ? ", " + std::string(list[at].name) + ", is of another type" : " is not in its list");
    }
    return {};
}

// True when pixels lie outside the frame or reach over its edges; one tag may be damaged.
bool frameDenied(const std::vector<INFOTAG>& tags, std::int64_t width, std::int64_t height) {
    Agreement frame;
    for (const INFOTAG& tag : tags) {
        if (!isPixelTag(tag.id) || tag.p4 == 0 || tag.p5 == 0) continue;
        ++(contains(boxAt(0, 0, width, height), boxOf(tag)) ? frame.right : frame.wrong);
    }
    return frame.wrong > 1 || frame.denied();
}

template <class Wanted>
const INFOTAG* lastTag(const std::vector<INFOTAG>& tags, Wanted wanted) {
    const auto found = std::find_if(tags.rbegin(), tags.rend(), wanted);
    return found != tags.rend() ? &*found : nullptr;
}

bool refuse(RecoverReport& report, RecoverState state, std::string cause) {
    report.state = state;
    report.cause = std::move(cause);
    return false;
}

}  // namespace

bool SuppliedFacts::load(const Inspection& input, const RecoverOptions& options, RecoverReport& report) {
    const auto supplied = [&report](bool& lacks, std::uint32_t tagId) {
        lacks = false;
        report.supplied.push_back(tagId);
    };
    if (report.lacksResolution && options.width > 0 && options.height > 0) {
        if (frameDenied(input.tags, options.width, options.height))
            return refuse(report, RecoverState::kMismatch,
                          "its pixels do not fit into " + sizeText(options.width, options.height));
        width_ = options.width;
        height_ = options.height;
        supplied(report.lacksResolution, TAG_RESOLUTION);
    }
    const bool wanted = report.lacksResolution || report.lacksChannels;
    if (!wanted || options.like.empty()) return true;
    if (!loadSibling(input, options, report)) return false;
    for (const INFOTAG& tag : tags_)
        supplied(tag.id == TAG_RESOLUTION ? report.lacksResolution : report.lacksChannels, tag.id);
    return true;
}

bool SuppliedFacts::loadSibling(const Inspection& input, const RecoverOptions& options,
                                RecoverReport& report) {
    const int code = sibling_.Open(options.like.c_str(), PFileStream::kRead, 1, PFileStream::kOpenExisting);
    if (code != 0)
        return refuse(report, RecoverState::kCannotOpen,
                      options.like + ": " + cannotOpenForRecovery(code).cause);
    InspectOptions inspecting;
    inspecting.depth = InspectDepth::kRecords;
    inspecting.threads = options.threads;
    siblingFile_ = inspectStream(sibling_, inspecting);
    const auto lacks = [&](const char* what) {
        return refuse(report, RecoverState::kMismatch, options.like + ": " + what);
    };
    const FrameFacts& facts = siblingFile_.facts;
    const PixelBox own = input.facts.frame();
    if (!own.empty() && !facts.frame().empty() && own != facts.frame())
        return lacks(
            ("no sibling: its frame is " + sizeText(facts.frame().width(), facts.frame().height())).c_str());
    if (report.lacksResolution) {
        const PixelBox frame = facts.frame();
        if (frame.empty()) return lacks("the resolution is missing there, too");
        if (frameDenied(input.tags, frame.width(), frame.height()))
            return lacks(("no sibling: the pixels do not fit into " + sizeText(frame.width(), frame.height()))
                             .c_str());
        tags_.push_back(
            *lastTag(siblingFile_.tags, [](const RIF_TAG& tag) { return tag.id == TAG_RESOLUTION; }));
    }
    if (report.lacksChannels) {
        if (facts.channels.empty()) return lacks("the channel list is missing there, too");
        const std::string contradiction = channelContradiction(input.tags, facts.channels);
        if (!contradiction.empty()) return lacks(("no sibling: " + contradiction).c_str());
        tags_.push_back(*lastTag(siblingFile_.tags, isChannelList));
    }
    return true;
}

ErrorCode SuppliedFacts::write(TagCopier& output) {
    if (width_ > 0) {
        RIF_TAG tag;
        tag.id = TAG_RESOLUTION;
        tag.size = kTagHeaderBytes;
        tag.p1 = width_;
        tag.p2 = height_;
        tag.p3 = static_cast<std::int32_t>(bitsFromFloat(1.0f));
        if (ErrorCode error = output.add(tag, nullptr); !error.empty()) return error;
    }
    return output.copy(sibling_, tags_, siblingFile_.repairs);
}

}  // namespace v1
}  // namespace MUtils
