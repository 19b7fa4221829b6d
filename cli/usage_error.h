#pragma once

#include <string>

namespace CLI {
class App;
class ParseError;
}  // namespace CLI

namespace rimg {

// What is wrong with a command line that did not parse, and what would be right: one plain line for report(),
// the verb in front where there is one. `app` is the one that failed to parse it, and has its verbs.
std::string usageMessage(const CLI::App& app, const CLI::ParseError& error);

// Makes the options of every verb refuse what CLI11 lets pass: a value for a flag, an empty file name, and a
// second verb where a file is expected.
void refuseSlips(CLI::App& app);

}  // namespace rimg
