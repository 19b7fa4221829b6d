#pragma once

#include "support/error_code.h"

namespace MUtils {
inline namespace v1 {

// What the system says of a file that could not be opened, as a cause for the error that says which file.
ErrorCode openCause(int code);

}  // namespace v1
}  // namespace MUtils
