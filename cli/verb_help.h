#pragma once

#include <memory>
#include <string>

namespace CLI {
class App;
}

namespace rimg {

// Gives the program and its verbs the look of their help, and an end to it: examples, and the exit codes that
// the verb can answer with. docs/cli.md has the same codes. Before verbs are added, and after.
void setHelpLayout(CLI::App& app);
void addHelpEnds(CLI::App& app);

}  // namespace rimg
