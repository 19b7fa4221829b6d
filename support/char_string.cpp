#include "support/char_string.h"

#include <climits>
#include <cstring>
#include <utility>

namespace MUtils {

CharString::CharString(const char* text) {
    const std::size_t length = text != nullptr ? std::strlen(text) : 0;
    if (length == 0) return;
    if (length >= INT_MAX) throw std::bad_alloc();
    length_ = static_cast<int>(length);
    text_ = PtrArray<char>(length_ + 1);
    std::memcpy(text_.get(), text, length + 1);
}

void assignText(char*& owned, const char* text) {
    char* copy = nullptr;
    if (text != nullptr) {
        const std::size_t bytes = std::strlen(text) + 1;
        copy = new char[bytes];
        std::memcpy(copy, text, bytes);
    }
    delete[] std::exchange(owned, copy);
}

}  // namespace MUtils
