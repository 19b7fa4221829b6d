#pragma once

#include <CLI/CLI.hpp>
#include <map>
#include <string>
#include <type_traits>

namespace rimg {

// An option whose words stand for values. They are looked up here, as CLI11's transformers show numbers in
// the help.
template <class Value>
CLI::Option* addChoice(CLI::App& verb, const std::string& name,
                       const std::map<std::string, std::common_type_t<Value>>& choices, Value& value,
                       const std::string& help) {
    const auto set = [choices, &value](const std::string& word) { value = choices.at(word); };
    return verb.add_option_function<std::string>(name, set, help)
        ->type_name("NAME")
        ->check(CLI::IsMember(choices));
}

}  // namespace rimg
