#pragma once

#include <functional>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
class Validator;
}  // namespace CLI

namespace rimg {

// Checks for CLI::Option::check(): each answers a text with what is wrong, else "".
using OptionCheck = std::function<std::string(const std::string&)>;

OptionCheck wholeNumber(int least, int most);
// A number from -`most` to `most`; "nan" is none.
OptionCheck numberWithin(int most);
// A number from 0 up; "inf" is one, "nan" is none.
OptionCheck amount();
// One of these words, which the help lists.
CLI::Validator oneOf(const std::vector<std::string>& names);

struct PixelSize {
    int width = 0;
    int height = 0;
};

// Accepts WxH, two whole numbers from 1 to 1000000 with an x between them; parseSize() returns the size in
// it.
std::string checkSize(const std::string& text);
PixelSize parseSize(const std::string& text);

// An option that takes a WxH.
CLI::Option* addSizeOption(CLI::App& verb, const std::string& name, int& width, int& height,
                           const std::string& help);

// An option that takes words with commas between them; `type` is how the help calls these.
CLI::Option* addListOption(CLI::App& verb, const std::string& name, std::vector<std::string>& words,
                           const std::string& type, const std::string& help);

// The option -j, for a verb whose threads decompress.
CLI::Option* addThreadsOption(CLI::App& verb, int& threads);

}  // namespace rimg
