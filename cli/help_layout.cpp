#include "cli/help_layout.h"

#include <sstream>

namespace rimg {

namespace {

constexpr std::size_t kColumns = 80;
constexpr std::size_t kTextColumn = 26;

// Appends `text` word by word to a line that has come to `column`; further lines begin there too.
void appendWrapped(std::string& to, const std::string& text, std::size_t column) {
    std::size_t at = column;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        if (at > column && at + 1 + word.size() > kColumns) {
            to += '\n' + std::string(column, ' ');
            at = column;
        } else if (at > column) {
            to += ' ';
            ++at;
        }
        to += word;
        at += word.size();
    }
    to += '\n';
}

// `left`, and `text` in a column of its own.
std::string rowOf(const std::string& left, const std::string& text) {
    std::string row = "  " + left;
    const bool fits = row.size() + 2 <= kTextColumn;
    row += fits ? std::string(kTextColumn - row.size(), ' ') : '\n' + std::string(kTextColumn, ' ');
    appendWrapped(row, text, kTextColumn);
    return row;
}

// What a check that CLI11 puts behind the type allows, as in "INT:INT in [1 - 9]" or "NAME:{a,b}": the text
// between these brackets.
std::string betweenBrackets(const CLI::Option& option, const char* brackets) {
    const std::string type = option.get_type_name();
    const std::size_t first = type.find(brackets[0]);
    const std::size_t last = type.rfind(brackets[1]);
    const bool isCheck = type.find(':') != std::string::npos && first != std::string::npos && first < last;
    return isCheck && last != std::string::npos ? type.substr(first + 1, last - first - 1) : "";
}

// "1 to 9"; "16, 32".
std::string allowedValues(const CLI::Option& option) {
    std::string values = betweenBrackets(option, "[]");
    if (const std::size_t at = values.find(" - "); at != std::string::npos) values.replace(at, 3, " to ");
    for (const std::string& choice : choicesOf(option))
        values += (values.empty() ? "" : ", ") + choice;
    return values;
}

bool isFlag(const CLI::Option& option) {
    return option.get_expected_max() == 0;
}

// "-o, --output PATH"
std::string optionForm(const CLI::Option& option) {
    std::string form;
    for (const std::string& name : option.get_snames())
        form += (form.empty() ? "-" : ", -") + name;
    for (const std::string& name : option.get_lnames())
        form += (form.empty() ? "--" : ", --") + name;
    return isFlag(option) ? form : form + ' ' + valueName(option);
}

}  // namespace

std::vector<std::string> choicesOf(const CLI::Option& option) {
    const std::string list = betweenBrackets(option, "{}");
    return list.empty() ? std::vector<std::string>() : CLI::detail::split(list, ',');
}

std::string optionText(const CLI::Option& option) {
    std::string text = option.get_description();
    if (option.get_positional()) return text;
    if (const std::string values = allowedValues(option); !values.empty()) text += " (" + values + ')';
    if (!option.get_default_str().empty()) text += ". Default: " + option.get_default_str();
    if (option.get_required()) text += " (required)";
    return text;
}

std::string valueName(const CLI::Option& option) {
    const std::string full = option.get_type_name();
    const std::string type = full.substr(0, full.find(':'));
    if (type == "INT") return "N";
    if (type == "FLOAT") return "NUMBER";
    return type == "TEXT" && option.get_name() == "--output" ? "OUT" : type;
}

HelpLayout::HelpLayout() {
    label("Positionals", "Arguments");
}

std::string HelpLayout::make_help(const CLI::App* app, std::string name, CLI::AppFormatMode mode) const {
    std::string help = CLI::Formatter::make_help(app, std::move(name), mode);
    for (std::size_t at = 0; (at = help.find("\n\n\n", at)) != std::string::npos;)
        help.erase(at, 1);
    return help;
}

std::string HelpLayout::make_description(const CLI::App* app) const {
    std::string text;
    appendWrapped(text, app->get_description(), 0);
    return text;
}

std::string HelpLayout::make_usage(const CLI::App* app, std::string name) const {
    std::string usage = "\nUsage: " + name;
    if (app->get_parent() == nullptr) return usage + " VERB [OPTIONS] FILE...\n";
    for (const CLI::Option* option : app->get_options()) {
        if (option->get_positional()) usage += ' ' + make_option_usage(option);
    }
    for (const CLI::Option* option : app->get_options()) {
        if (!option->get_positional() && option->get_required())
            usage += ' ' + option->get_name() + ' ' + valueName(*option);
    }
    return usage + " [OPTIONS]\n";
}

std::string HelpLayout::make_option(const CLI::Option* option, bool positional) const {
    return rowOf(positional ? make_option_usage(option) : optionForm(*option), optionText(*option));
}

std::string HelpLayout::make_subcommand(const CLI::App* verb) const {
    return rowOf(verb->get_name(), verb->get_description());
}

}  // namespace rimg
