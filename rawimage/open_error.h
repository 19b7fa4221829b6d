#pragma once

#include "support/error_code.h"

namespace MUtils {
inline namespace v1 {

// The system's reason why a file could not be opened, as the cause of the error that names the file.
ErrorCode openCause(int code);

}  // namespace v1
}  // namespace MUtils
