#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace rimg {

// Help that fits a terminal of 80 columns: wrapped descriptions, defaults and allowed values in words behind
// them, and what a verb cannot do without in its usage line.
class HelpLayout : public CLI::Formatter {
  public:
    HelpLayout();

    std::string make_help(const CLI::App* app, std::string name, CLI::AppFormatMode mode) const override;
    std::string make_description(const CLI::App* app) const override;
    std::string make_usage(const CLI::App* app, std::string name) const override;
    std::string make_option(const CLI::Option* option, bool positional) const override;
    std::string make_subcommand(const CLI::App* verb) const override;
};

// The placeholder of an option's value: "N", "OUT", "WxH".
std::string valueName(const CLI::Option& option);

// The words that an option with a fixed set of values takes; none for other options.
std::vector<std::string> choicesOf(const CLI::Option& option);

// What an option does, its values, default and whether it is required, in one line.
std::string optionText(const CLI::Option& option);

}  // namespace rimg
