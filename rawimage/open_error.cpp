#include "rawimage/open_error.h"

#include <cerrno>

#include "support/pstream.h"

namespace MUtils {
inline namespace v1 {

ErrorCode openCause(int code) {
    const char* operation = code == EWOULDBLOCK ? "lock" : "open";
    return ErrorCode(operation, code, "%s", openErrorText(code).c_str());
}

}  // namespace v1
}  // namespace MUtils
