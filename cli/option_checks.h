#pragma once

#include <functional>
#include <string>
#include <vector>

namespace rimg {

// Checks for CLI::Option::check(): each answers a text with what is wrong, else "".
using OptionCheck = std::function<std::string(const std::string&)>;

constexpr int kMostThreads = 1024;

OptionCheck wholeNumber(int least, int most);
// A number from -`most` to `most`; "nan" is none.
OptionCheck numberWithin(int most);
OptionCheck oneOf(std::vector<std::string> names);

}  // namespace rimg
