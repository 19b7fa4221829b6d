#pragma once

#include <string>
#include <string_view>

namespace rimg {

// Text from a file as a terminal may show it, on one line: control characters, whatever reorders text, and
// bytes that are no UTF-8 become escapes ("\n", "\t", "\x1b", "\u{202e}"), and a backslash two.
std::string safeText(std::string_view text);

// A file name as a word for the shell, safe for a terminal.
std::string shellWord(const std::string& name);

}  // namespace rimg
