#include "convert/channel_grouping.h"

#include <cstring>
#include <map>
#include <set>
#include <utility>

#include "rawimage/format.h"

namespace MUtils {
inline namespace v1 {

namespace {

constexpr std::size_t kMaxNameLength = MUtils::kChannelNameBytes - 1;
constexpr const char* kPartWithoutPrefix = "other";

struct Pattern {
    RegionChannelType type;
    RegionChannelAlias alias;
    const char* letters;   // the last letters of the members' names
    const char* sources;   // the member that gives each component
    const char* mainName;  // for a channel that only the main image has
};

// A group comes before the smaller groups that it contains.
constexpr Pattern kGroups[] = {
    {RCT_FLOAT4, RCA_NONE, "RGBA", "RGBA", ""},
    {RCT_COLOR, RCA_NONE, "RGB", "RGB", ""},
    {RCT_VECTOR, RCA_NONE, "XYZ", "XYZ", ""},
    {RCT_FLOAT2, RCA_NONE, "XY", "XY", ""},
};

// The bare names of the main image.
constexpr Pattern kMainGroups[] = {
    {RCT_COLOR, RCA_COLOR, "RGB", "RGB", "color"},
    {RCT_COLOR, RCA_ALPHA, "A", "AAA", "alpha"},
    {RCT_FLOAT, RCA_DEPTH, "Z", "Z", "depth"},
};

// Channels of one part whose names differ in the last letter only.
struct Family {
    std::string stem;   // before the dot
    bool bare = false;  // no dot: the name is the letter alone
    std::map<char, int> members;
};

// The file's channels by family. Only floats have one.
class Families {
  public:
    explicit Families(const std::vector<SourceChannel>& channels) {
        for (std::size_t i = 0; i < channels.size(); ++i) {
            const std::string& name = channels[i].name;
            if (channels[i].integer || name.empty() || std::strchr("RGBAXYZ", name.back()) == nullptr)
                continue;
            const bool bare = name.size() == 1;
            if (!bare && name[name.size() - 2] != '.') continue;
            Family& family = families_[{channels[i].part, name.substr(0, name.size() - 1)}];
            family.bare = bare;
            family.stem = bare ? "" : name.substr(0, name.size() - 2);
            family.members[name.back()] = static_cast<int>(i);
        }
    }

    // Null for a channel that is in none.
    const Family* of(const SourceChannel& channel) const {
        if (channel.integer || channel.name.empty()) return nullptr;
        const auto found = families_.find({channel.part, channel.name.substr(0, channel.name.size() - 1)});
        if (found == families_.end() || found->second.members.count(channel.name.back()) == 0) return nullptr;
        return &found->second;
    }

  private:
    std::map<std::pair<int, std::string>, Family> families_;
};

// The first pattern whose members are all in the family, `letter` among them, or null.
template <std::size_t N>
const Pattern* findPattern(const Pattern (&patterns)[N], const Family& family, char letter) {
    for (const Pattern& pattern : patterns) {
        bool whole = std::strchr(pattern.letters, letter) != nullptr;
        for (const char* p = pattern.letters; *p != '\0'; ++p)
            whole = whole && family.members.count(*p) != 0;
        if (whole) return &pattern;
    }
    return nullptr;
}

// The names that a channel has in an OpenEXR file.
std::vector<std::string> expand(const GroupedChannel& channel, const std::string& name) {
    for (const Pattern& pattern : kGroups) {
        if (pattern.type != channel.type) continue;
        std::vector<std::string> names;
        for (const char* p = pattern.letters; *p != '\0'; ++p)
            names.push_back(name + '.' + *p);
        return names;
    }
    return {name};
}

// Makes names unique, so that no two channels share one in an OpenEXR file.
class Names {
  public:
    std::string claim(const GroupedChannel& channel, const std::string& wanted) {
        std::string name = wanted.substr(0, kMaxNameLength);
        for (int& n = tries_[name]; !isFree(expand(channel, name));) {
            const std::string suffix = '~' + std::to_string(++n + 1);
            name = wanted.substr(0, kMaxNameLength - suffix.size()) + suffix;
        }
        for (std::string& used : expand(channel, name))
            taken_.insert(std::move(used));
        return name;
    }

  private:
    bool isFree(const std::vector<std::string>& names) const {
        for (const std::string& name : names) {
            if (taken_.count(name) != 0) return false;
        }
        return true;
    }

    std::set<std::string> taken_;
    std::map<std::string, int> tries_;  // numbers used up for a name
};

class Grouper {
  public:
    Grouper(const std::vector<std::string>& partNames, const std::vector<SourceChannel>& channels)
        : partNames_(partNames), channels_(channels), families_(channels), used_(channels.size(), false) {}

    Grouping run() {
        for (std::size_t i = 0; i < channels_.size(); ++i) {
            if (!used_[i]) addChannelWith(static_cast<int>(i));
        }
        Grouping result;
        // The names of the main channels are not in the file, so they are chosen last.
        std::set<std::string> used;
        for (GroupedChannel& channel : others_) {
            settleName(channel, result.renamed);
            used.insert(channel.name);
        }
        for (const Pattern& pattern : kMainGroups) {
            const auto found = main_.find(pattern.alias);
            if (found == main_.end()) continue;
            found->second.name = unusedName(used, pattern.mainName);
            result.channels.push_back(found->second);
        }
        result.channels.insert(result.channels.end(), others_.begin(), others_.end());
        return result;
    }

  private:
    const std::string& partName(int part) const { return partNames_[static_cast<std::size_t>(part)]; }

    std::string fullName(int part, const std::string& name) const {
        const std::string& prefix = partName(part);
        return prefix.empty() || prefix == kPartWithoutPrefix ? name : prefix + '.' + name;
    }

    // The render channel that source channel `index` is part of.
    void addChannelWith(int index) {
        const SourceChannel& source = channels_[static_cast<std::size_t>(index)];
        const Family* family = families_.of(source);
        const bool inMainImage = family != nullptr && family->bare && partName(source.part).empty();
        const Pattern* pattern = nullptr;
        if (family != nullptr) {
            pattern = inMainImage ? findPattern(kMainGroups, *family, source.name.back())
                                  : findPattern(kGroups, *family, source.name.back());
        }
        if (pattern == nullptr) {
            addSingle(index, source);
            return;
        }
        GroupedChannel channel;
        channel.type = pattern->type;
        channel.alias = pattern->alias;
        channel.part = source.part;
        channel.components = static_cast<int>(std::strlen(pattern->sources));
        for (std::size_t c = 0; pattern->sources[c] != '\0'; ++c) {
            const int member = family->members.at(pattern->sources[c]);
            channel.sources[c] = member;
            used_[static_cast<std::size_t>(member)] = true;
        }
        if (inMainImage) {
            main_[pattern->alias] = channel;
        } else {
            channel.name = family->bare ? partName(source.part) : fullName(source.part, family->stem);
            others_.push_back(channel);
        }
    }

    void addSingle(int index, const SourceChannel& source) {
        GroupedChannel channel;
        channel.type = source.integer ? RCT_INT : RCT_FLOAT;
        channel.part = source.part;
        channel.components = 1;
        channel.sources[0] = index;
        channel.name = fullName(source.part, source.name);
        others_.push_back(channel);
    }

    void settleName(GroupedChannel& channel, std::vector<std::string>& renamed) {
        const std::string wanted = std::exchange(channel.name, {});
        channel.name = names_.claim(channel, wanted);
        if (channel.name == wanted) return;
        const char* reason = wanted.size() > kMaxNameLength ? "is too long" : "is taken";
        renamed.push_back("the channel name \"" + wanted + "\" " + reason + "; it becomes \"" + channel.name +
                          "\"");
    }

    static std::string unusedName(const std::set<std::string>& used, const std::string& wanted) {
        std::string name = wanted;
        for (int n = 2; used.count(name) != 0; ++n)
            name = wanted + '~' + std::to_string(n);
        return name;
    }

    const std::vector<std::string>& partNames_;
    const std::vector<SourceChannel>& channels_;
    const Families families_;
    std::vector<bool> used_;
    std::map<int, GroupedChannel> main_;  // by alias
    std::vector<GroupedChannel> others_;
    Names names_;
};

}  // namespace

Grouping groupChannels(const std::vector<std::string>& partNames,
                       const std::vector<SourceChannel>& channels) {
    return Grouper(partNames, channels).run();
}

}  // namespace v1
}  // namespace MUtils
