#pragma once

#include "export.h"

// The version of these headers. The build takes its version from here.
#define RAWIMAGE_VERSION_MAJOR 1
#define RAWIMAGE_VERSION_MINOR 0
#define RAWIMAGE_VERSION_PATCH 0

// "1.0.0".
#define RAWIMAGE_VERSION \
    RAWIMAGE_VERSION_JOIN(RAWIMAGE_VERSION_MAJOR, RAWIMAGE_VERSION_MINOR, RAWIMAGE_VERSION_PATCH)
#define RAWIMAGE_VERSION_JOIN(major, minor, patch) RAWIMAGE_VERSION_TEXT(major.minor.patch)
#define RAWIMAGE_VERSION_TEXT(version) #version

namespace MUtils {
inline namespace v1 {

// The version of the library that is linked, which need not be the one of the headers where it is shared. The
// text lives as long as the program.
RAWIMAGE_EXPORT const char* rawimageVersion();

}  // namespace v1
}  // namespace MUtils
