#include "rawimage/open_error.h"

#include <cerrno>
#include <system_error>

ErrorCode openCause(int code) {
    if (code == EWOULDBLOCK) return ErrorCode("lock", code, "Another writer has the file open");
    return ErrorCode("open", code, "%s", std::generic_category().message(code).c_str());
}
