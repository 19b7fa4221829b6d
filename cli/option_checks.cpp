#include "cli/option_checks.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <cmath>

namespace rimg {

namespace {

constexpr int kMostThreads = 1024;
constexpr int kLargestSize = 1000000;

// Parses "WxH"; false when `text` is anything else.
bool parse(const std::string& text, PixelSize& size) {
    const char* end = text.data() + text.size();
    const auto width = std::from_chars(text.data(), end, size.width);
    if (width.ec != std::errc() || width.ptr == end || *width.ptr != 'x') return false;
    const auto height = std::from_chars(width.ptr + 1, end, size.height);
    if (height.ec != std::errc() || height.ptr != end) return false;
    return std::min(size.width, size.height) > 0 && std::max(size.width, size.height) <= kLargestSize;
}

bool parse(const std::string& text, double& value) {
    const char* begin = text.data() + (text.substr(0, 1) == "+" ? 1 : 0);
    const char* end = text.data() + text.size();
    const auto read = std::from_chars(begin, end, value);
    return read.ec == std::errc() && read.ptr == end;
}

}  // namespace

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
        // False for what is no number.
        if (parse(text, value) && std::fabs(value) <= most) return "";
        return "a number from -" + std::to_string(most) + " to " + std::to_string(most) + ", not \"" + text +
               '"';
    };
}

OptionCheck amount() {
    return [](const std::string& text) -> std::string {
        double value = 0;
        if (parse(text, value) && value >= 0) return "";
        return "a number from 0 up, not \"" + text + '"';
    };
}

CLI::Validator oneOf(const std::vector<std::string>& names) {
    const auto check = [names](const std::string& text) -> std::string {
        if (std::find(names.begin(), names.end(), text) != names.end()) return "";
        return "one of " + CLI::detail::join(names, ", ") + ", not \"" + text + '"';
    };
    return CLI::Validator(check, '{' + CLI::detail::join(names, ",") + '}');
}

std::string checkSize(const std::string& text) {
    PixelSize size;
    return parse(text, size) ? "" : "a size is WIDTHxHEIGHT in pixels, such as 640x360: " + text;
}

PixelSize parseSize(const std::string& text) {
    PixelSize size;
    return parse(text, size) ? size : PixelSize();
}

CLI::Option* addSizeOption(CLI::App& verb, const std::string& name, int& width, int& height,
                           const std::string& help) {
    const auto set = [&width, &height](const std::string& text) {
        const PixelSize size = parseSize(text);
        width = size.width;
        height = size.height;
    };
    return verb.add_option_function<std::string>(name, set, help)->type_name("WxH")->check(checkSize);
}

CLI::Option* addListOption(CLI::App& verb, const std::string& name, std::vector<std::string>& words,
                           const std::string& type, const std::string& help) {
    return verb.add_option(name, words, help)->type_name(type)->delimiter(',')->allow_extra_args(false);
}

CLI::Option* addThreadsOption(CLI::App& verb, int& threads) {
    return verb
        .add_option("-j,--threads", threads,
                    "Threads that decompress, 1 to 1024. Default: one for each processor")
        ->type_name("N")
        ->check(wholeNumber(1, kMostThreads));
}

}  // namespace rimg
