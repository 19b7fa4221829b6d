#include "rawimage/tools/info.h"

#include <cstring>
#include <utility>

void RawImageInfo::setName(const char* text) {
    char* copy = nullptr;
    if (text != nullptr) {
        const std::size_t bytes = std::strlen(text) + 1;
        copy = new char[bytes];
        std::memcpy(copy, text, bytes);
    }
    delete[] std::exchange(name, copy);
}
