#include "rawimage/open_error.h"

#include <cerrno>

#include "support/pstream.h"

ErrorCode openCause(int code) {
    const char* operation = code == EWOULDBLOCK ? "lock" : "open";
    return ErrorCode(operation, code, "%s", MUtils::openErrorText(code).c_str());
}
