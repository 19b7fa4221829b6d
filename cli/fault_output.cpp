#include "cli/fault_output.h"

#include <algorithm>
#include <cstdio>

namespace rimg {

using MUtils::FileFault;

Json jsonOf(const FileFault& fault) {
    Json json{{"offset", fault.offset}, {"end", fault.end}, {"tag", nullptr}, {"cause", fault.cause}};
    if (fault.tagId != 0) json["tag"] = MUtils::tagName(fault.tagId);
    json["count"] = fault.count;
    if (!MUtils::isPixelTag(fault.tagId)) return json;
    json["box"] = jsonOf(fault.box);
    json["channel"] = fault.channel;
    json["name"] = fault.channelName;
    return json;
}

Json jsonOf(const std::vector<FileFault>& faults) {
    Json list = Json::array();
    for (const FileFault& fault : faults)
        list.push_back(jsonOf(fault));
    return list;
}

void LineList::add(const char* prefix, const std::vector<std::string>& lines) {
    for (const std::string& line : lines)
        lines_.push_back(prefix + line);
}

void LineList::print(const char* indent, bool all, std::int64_t further) const {
    const std::size_t shown = all ? lines_.size() : std::min(lines_.size(), kShown);
    for (std::size_t i = 0; i < shown; ++i)
        std::printf("%s%s\n", indent, lines_[i].c_str());
    const std::int64_t more = static_cast<std::int64_t>(lines_.size() - shown) + further;
    if (more > 0)
        std::printf("%sand %lld more%s\n", indent, static_cast<long long>(more),
                    shown < lines_.size() ? " (--all lists them)" : "");
}

std::size_t LineList::report(const std::string& file) const {
    constexpr std::size_t kReported = 5;
    const std::size_t shown = std::min(lines_.size(), kReported);
    for (std::size_t i = 0; i < shown; ++i)
        rimg::report(file, lines_[i]);
    return lines_.size() - shown;
}

}  // namespace rimg
