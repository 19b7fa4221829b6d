#pragma once

#include <cctype>
#include <string>

// What the names of channels reveal about their values.

namespace MUtils {
inline namespace v1 {

inline std::string lowerCase(std::string text) {
    for (char& c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

// True for channels of pairs of id and coverage, the bits of an id in a float.
inline bool namesCryptoIds(const std::string& channelName) {
    return lowerCase(channelName).find("crypto") != std::string::npos;
}

}  // namespace v1
}  // namespace MUtils
