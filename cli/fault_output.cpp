#include "cli/fault_output.h"

#include "cli/safe_text.h"

namespace rimg {

namespace {

// What the fault is about: "bucket 64x64+0+0 of channel 3 alpha", "note", or nothing.
std::string subjectOf(const MUtils::FileFault& fault) {
    if (fault.tagId == 0) return "";
    if (!isPixelTag(fault.tagId)) return tagName(fault.tagId);
    return "bucket " + boxText(fault.box) + " of channel " + channelText(fault.channel, fault.channelName);
}

}  // namespace

std::string channelText(int index, const std::string& name) {
    return std::to_string(index) + (name.empty() ? "" : " " + safeText(name));
}

std::string faultText(const MUtils::FileFault& fault) {
    std::string text = subjectOf(fault);
    text += (text.empty() ? "offset " : ", offset ") + std::to_string(fault.offset);
    if (fault.end > fault.offset) text += ".." + std::to_string(fault.end);
    text += ": " + fault.cause;
    if (fault.count > 1) text += " (" + std::to_string(fault.count) + " times)";
    return text;
}

Json jsonOf(const MUtils::FileFault& fault) {
    Json json{{"offset", fault.offset}, {"end", fault.end}, {"tag", nullptr}, {"cause", fault.cause}};
    if (fault.tagId != 0) json["tag"] = tagName(fault.tagId);
    if (fault.count > 1) json["count"] = fault.count;
    if (!isPixelTag(fault.tagId)) return json;
    json["box"] = jsonOf(fault.box);
    json["channel"] = fault.channel;
    json["name"] = fault.channelName;
    return json;
}

}  // namespace rimg
