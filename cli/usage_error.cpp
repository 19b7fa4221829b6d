#include "cli/usage_error.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <numeric>
#include <vector>

#include "cli/help_layout.h"

namespace rimg {

namespace {

using Names = std::vector<std::string>;

std::string quoted(const std::string& text) {
    return '"' + text + '"';
}

// "a, b or c"
std::string joined(const Names& names, const std::string& last) {
    std::string text;
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (i > 0) text += i + 1 == names.size() ? " " + last + " " : ", ";
        text += names[i];
    }
    return text;
}

// The letters to add, drop and change to make b of a.
std::size_t distance(const std::string& a, const std::string& b) {
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), 0u);
    for (std::size_t i = 0; i < a.size(); ++i) {
        std::size_t diagonal = row[0]++;
        for (std::size_t j = 0; j < b.size(); ++j) {
            const std::size_t changed = diagonal + (a[i] == b[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({changed, diagonal + 1, row[j] + 1});
        }
    }
    return row.back();
}

// ", did you mean NAME?", when one of them is close to what was given.
std::string nearest(const std::string& given, const Names& names) {
    constexpr std::size_t kClose = 2;
    if (names.empty() || given.size() <= kClose) return "";
    const auto closer = [&given](const std::string& a, const std::string& b) {
        return distance(given, a) < distance(given, b);
    };
    const std::string& name = *std::min_element(names.begin(), names.end(), closer);
    return distance(given, name) <= kClose ? ", did you mean " + name + "?" : "";
}

Names verbsOf(const CLI::App& app) {
    Names names;
    for (const CLI::App* verb : app.get_subcommands({}))
        names.push_back(verb->get_name());
    return names;
}

bool isVerb(const CLI::App& app, const std::string& name) {
    const Names verbs = verbsOf(app);
    return std::find(verbs.begin(), verbs.end(), name) != verbs.end();
}

bool looksLikeOption(const std::string& argument) {
    return argument.size() > 1 && argument[0] == '-' && argument != "--";
}

std::string withoutVerb(const CLI::App& app) {
    const Names given = app.remaining();
    const std::string verbs = joined(verbsOf(app), "or");
    if (given.empty()) return "name a verb: " + verbs;
    if (looksLikeOption(given[0])) return "no option " + given[0] + " before a verb, which is " + verbs;
    const std::string near = nearest(given[0], verbsOf(app));
    return "no verb " + quoted(given[0]) + (near.empty() ? "." : near) + " The verbs are " + verbs;
}

std::string unknownOption(const CLI::App& verb, const std::string& given) {
    const std::string name = given.substr(0, given.find('='));
    Names names;
    for (const CLI::Option* option : verb.get_options()) {
        for (const std::string& known : option->get_lnames())
            names.push_back("--" + known);
    }
    return "no option " + name + nearest(name, names);
}

std::string extraArgument(const CLI::App& app, const CLI::App& verb, const std::string& given) {
    if (isVerb(app, given)) return quoted(given) + " is a second verb, give one at a time";
    Names taken;
    for (const CLI::Option* option : verb.get_options()) {
        if (option->get_positional()) taken.push_back(option->get_name());
    }
    if (taken.empty()) return "takes options only, " + quoted(given) + " is one too many";
    return "takes one " + joined(taken, "and one") + ", " + quoted(given) + " is one too many";
}

// "-o,--output", or "FILE" of an argument without an option.
std::string nameOf(const CLI::Option& option) {
    return option.get_positional() ? option.get_name() : option.get_name(false, true);
}

std::string missingOption(const CLI::App& verb) {
    for (const CLI::Option* option : verb.get_options()) {
        if (option->get_required() && option->count() == 0)
            return "needs " + nameOf(*option) + ": " + option->get_description();
    }
    return "";
}

std::string excludedOptions(const CLI::App& verb) {
    for (const CLI::Option* option : verb.get_options()) {
        for (const CLI::Option* other : option->get_excludes()) {
            if (option->count() > 0 && other->count() > 0)
                return option->get_name() + " and " + other->get_name() +
                       " exclude each other, give one of them";
        }
    }
    return "";
}

std::string wrongCount(const CLI::Option& option) {
    if (option.get_expected_max() == 0) return option.get_name() + " takes no value";
    if (option.count() > 1)
        return option.get_name() + " is given " + std::to_string(option.count()) + " times";
    return option.get_name() + " needs a value, as in " + option.get_name() + "=" + valueName(option);
}

// Of an error that is not about arguments that no option takes. Empty when it is of a kind that verbs without
// such options do not raise.
std::string wrongOption(const CLI::App& verb, const CLI::ParseError& error) {
    if (dynamic_cast<const CLI::RequiredError*>(&error) != nullptr) return missingOption(verb);
    if (dynamic_cast<const CLI::ExcludesError*>(&error) != nullptr) return excludedOptions(verb);
    const std::string what = error.what();
    // Every message of CLI11 about one option begins with its name, of a flag without the dashes.
    const std::string name = what.substr(0, what.find_first_of(": "));
    const CLI::Option* option = verb.get_option_no_throw(name);
    if (option == nullptr) option = verb.get_option_no_throw("--" + name);
    if (option == nullptr) return "";
    if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr) return wrongCount(*option);
    return "";
}

std::string checkFile(const CLI::App& app, const std::string& name) {
    if (name.empty()) return "an empty name is no file";
    std::error_code ignored;
    if (!isVerb(app, name) || std::filesystem::exists(name, ignored)) return "";
    return extraArgument(app, app, name);
}

}  // namespace

std::string usageMessage(const CLI::App& app, const CLI::ParseError& error) {
    if (app.get_subcommands().empty()) return withoutVerb(app) + " (see rimg --help)";
    const CLI::App& verb = *app.get_subcommands().front();
    const std::string hint = " (see rimg " + verb.get_name() + " --help)";
    if (!app.remaining().empty()) {
        const std::string first = app.remaining().front();
        return first + " comes before the verb, options follow it: rimg " + verb.get_name() + " " + first +
               hint;
    }
    // What was misspelt explains what is missing, so it comes first.
    const Names extra = verb.remaining();
    const auto option = std::find_if(extra.begin(), extra.end(), looksLikeOption);
    std::string what;
    if (option != extra.end()) {
        what = unknownOption(verb, *option);
    } else if (dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr && !extra.empty()) {
        what = extraArgument(app, verb, extra.front());
    } else {
        what = wrongOption(verb, error);
    }
    return verb.get_name() + ": " + (what.empty() ? error.what() : what) + hint;
}

void refuseSlips(CLI::App& app) {
    for (CLI::App* verb : app.get_subcommands({})) {
        for (CLI::Option* option : verb->get_options()) {
            const bool flag = option->get_expected_max() == 0;
            if (flag) option->disable_flag_override();
            const std::string name = option->get_name();
            if (name == "FILE" || name == "IN")
                option->check([&app](const std::string& file) { return checkFile(app, file); });
            if (name == "OUT" || name == "--output" || name == "--files-from")
                option->check([](const std::string& file) {
                    return file.empty() ? std::string("an empty name is no file") : std::string();
                });
        }
    }
}

}  // namespace rimg
