#include "cli/parser_tree.h"

#include <CLI/CLI.hpp>

#include "cli/help_layout.h"
#include "cli/json_output.h"

namespace rimg {

namespace {

Json jsonOf(const CLI::Option& option) {
    Json names = Json::array();
    for (const std::string& name : option.get_snames())
        names.push_back("-" + name);
    for (const std::string& name : option.get_lnames())
        names.push_back("--" + name);
    if (option.get_positional()) names.push_back(option.get_name());
    const bool takesValue = option.get_expected_max() > 0;
    return {{"names", names},
            {"positional", option.get_positional()},
            {"value", takesValue ? Json(valueName(option)) : Json()},
            {"choices", choicesOf(option)},
            {"required", option.get_required()},
            {"repeats", option.get_expected_max() > 1 && option.get_positional()},
            {"group", option.get_group()},
            {"help", optionText(option)}};
}

Json jsonOf(const CLI::App& app) {
    Json options = Json::array();
    for (const CLI::Option* option : app.get_options())
        options.push_back(jsonOf(*option));
    Json verbs = Json::array();
    for (const CLI::App* verb : app.get_subcommands({}))
        verbs.push_back(jsonOf(*verb));
    return {{"name", app.get_name()},
            {"help", app.get_description()},
            {"options", options},
            {"end", app.get_footer()},
            {"verbs", verbs}};
}

}  // namespace

std::string parserTree(const CLI::App& app) {
    return asciiText(jsonOf(app));
}

}  // namespace rimg
