#pragma once

#include <cstring>

#include "../rawimage/export.h"
#include "table.h"

namespace MUtils {

// An immutable text whose copies share one allocation. Copying and dropping copies on several threads is
// safe; assigning to one object from two threads is not.
class RAWIMAGE_EXPORT CharString {
  public:
    CharString() = default;
    // Null and "" both give the empty string, which owns nothing.
    CharString(const char* text);

    // NUL-terminated, never null; lives as long as any copy of this string.
    const char* c_str() const { return text_.get() != nullptr ? text_.get() : ""; }
    int length() const { return length_; }
    bool empty() const { return length_ == 0; }
    void clear() { *this = CharString(); }

    friend bool operator==(const CharString& a, const CharString& b) {
        return a.length_ == b.length_ && std::strcmp(a.c_str(), b.c_str()) == 0;
    }
    friend bool operator!=(const CharString& a, const CharString& b) { return !(a == b); }

  private:
    PtrArray<char> text_;
    int length_ = 0;
};

// Replaces `owned`, null or allocated with array new, by a copy of `text`, which may lie within it; null
// gives null. Throws std::bad_alloc and leaves `owned` as it was.
RAWIMAGE_EXPORT void assignText(char*& owned, const char* text);

}  // namespace MUtils
