#include "cli/option_checks.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace rimg {

OptionCheck wholeNumber(int least, int most) {
    return [least, most](const std::string& text) -> std::string {
        int value = 0;
        const char* end = text.data() + text.size();
        const auto read = std::from_chars(text.data(), end, value);
        if (read.ec == std::errc() && read.ptr == end && value >= least && value <= most) return "";
        return "a whole number from " + std::to_string(least) + " to " + std::to_string(most) + ", not \"" +
               text + '"';
    };
}

OptionCheck numberWithin(int most) {
    return [most](const std::string& text) -> std::string {
        double value = 0;
        const char* begin = text.data() + (text.substr(0, 1) == "+" ? 1 : 0);
        const char* end = text.data() + text.size();
        const auto read = std::from_chars(begin, end, value);
        // False for what is no number.
        if (read.ec == std::errc() && read.ptr == end && std::fabs(value) <= most) return "";
        return "a number from -" + std::to_string(most) + " to " + std::to_string(most) + ", not \"" + text +
               '"';
    };
}

OptionCheck oneOf(std::vector<std::string> names) {
    return [names = std::move(names)](const std::string& text) -> std::string {
        if (std::find(names.begin(), names.end(), text) != names.end()) return "";
        std::string list;
        for (const std::string& name : names)
            list += (list.empty() ? "" : ", ") + name;
        return "one of " + list + ", not \"" + text + '"';
    };
}

}  // namespace rimg
