#pragma once

#include <string>

namespace CLI {
class App;
}

namespace rimg {

// The program, its verbs and their options as a JSON object on a line of ASCII, for --help-json. The manual
// pages and the shells' completion are made from it.
std::string parserTree(const CLI::App& app);

}  // namespace rimg
