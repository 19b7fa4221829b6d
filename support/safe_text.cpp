#include "support/safe_text.h"

#include <cstdio>

namespace MUtils {
inline namespace v1 {

namespace {

struct Character {
    char32_t code = 0;
    std::size_t bytes = 0;  // 0: not UTF-8
};

// The well-formed UTF-8 sequence that `text` begins with.
Character firstCharacter(std::string_view text) {
    const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    if (byte(0) < 0x80) return {byte(0), 1};
    std::size_t length = 0;
    if (byte(0) >= 0xC2 && byte(0) < 0xE0) length = 2;
    if (byte(0) >= 0xE0 && byte(0) < 0xF0) length = 3;
    if (byte(0) >= 0xF0 && byte(0) < 0xF5) length = 4;
    if (length == 0 || text.size() < length) return {};
    char32_t code = byte(0) & (0x7Fu >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) return {};
        code = code << 6 | (byte(i) & 0x3Fu);
    }
    constexpr char32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool surrogate = code >= 0xD800 && code < 0xE000;
    if (code < kLeast[length] || surrogate || code > 0x10FFFF) return {};
    return {code, length};
}

bool isHarmless(char32_t code) {
    constexpr struct {
        char32_t first, last;
    } kHarmful[] = {
        {0x00, 0x1F},     {0x7F, 0x9F},      // controls
        {0x061C, 0x061C}, {0x200E, 0x200F},  // marks of direction
        {0x2028, 0x202E}, {0x2066, 0x2069},  // line ends, overrides and isolates of direction
        {0xFEFF, 0xFEFF},
    };
    for (const auto& range : kHarmful) {
        if (code >= range.first && code <= range.last) return false;
    }
    return true;
}

std::string escaped(const char* format, unsigned value) {
    char text[16];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

}  // namespace

std::string safeText(std::string_view text) {
    std::string safe;
    while (!text.empty()) {
        const Character character = firstCharacter(text);
        const std::size_t bytes = character.bytes > 0 ? character.bytes : 1;
        const auto byte = static_cast<unsigned char>(text[0]);
        if (text[0] == '\\') {
            safe += "\\\\";
        } else if (text[0] == '\n') {
            safe += "\\n";
        } else if (text[0] == '\t') {
            safe += "\\t";
        } else if (bytes == 1 && (character.bytes == 0 || !isHarmless(byte))) {
            safe += escaped("\\x%02x", byte);
        } else if (!isHarmless(character.code)) {
            safe += escaped("\\u{%x}", static_cast<unsigned>(character.code));
        } else {
            safe += text.substr(0, bytes);
        }
        text.remove_prefix(bytes);
    }
    return safe;
}

}  // namespace v1
}  // namespace MUtils
