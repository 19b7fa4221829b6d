#pragma once

#include <unistd.h>

#include <cerrno>

namespace MUtils {
inline namespace v1 {

// Brings what was written to an open file to the disk. Returns 0 or the system's code.
inline int syncFile(int descriptor) {
    int code;
    do {
        code = ::fsync(descriptor) != 0 ? errno : 0;
    } while (code == EINTR);
    return code;
}

}  // namespace v1
}  // namespace MUtils
