#include "rawimage/tools/info.h"

#include "support/char_string.h"

void RawImageInfo::setName(const char* text) {
    MUtils::assignText(name, text);
}
