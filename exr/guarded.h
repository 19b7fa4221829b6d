#pragma once

#include "support/error_code.h"

namespace MUtils {
inline namespace v1 {

// The error `operation`, -1, `message` for the exception that is being handled; the text of the exception is
// the cause.
ErrorCode errorFromException(const char* operation, const char* message);

// Where exceptions stop: runs `call`, which returns an ErrorCode, and turns whatever it throws into an error.
// OpenEXR throws its own exceptions and the standard library's.
template <class Call>
ErrorCode guarded(const char* operation, const char* message, Call call) {
    try {
        return call();
    } catch (...) {
        return errorFromException(operation, message);
    }
}

}  // namespace v1
}  // namespace MUtils
