#include "cli/safe_text.h"

namespace rimg {

std::string shellWord(const std::string& name) {
    constexpr const char* kPlain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-./+:=@%,";
    if (!name.empty() && name.find_first_not_of(kPlain) == std::string::npos) return name;
    std::string word = "'";
    for (const char c : name)
        word += c == '\'' ? "'\\''" : std::string(1, c);
    return safeText(word + '\'');
}

}  // namespace rimg
