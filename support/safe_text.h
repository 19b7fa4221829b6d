#pragma once

#include <string>
#include <string_view>

#include "../rawimage/export.h"

namespace MUtils {
inline namespace v1 {

// Text from a file as a terminal may show it, on one line: control characters, whatever reorders text, and
// bytes that are no UTF-8 become escapes ("\n", "\t", "\x1b", "\u{202e}"), and a backslash two.
RAWIMAGE_EXPORT std::string safeText(std::string_view text);

}  // namespace v1
}  // namespace MUtils
