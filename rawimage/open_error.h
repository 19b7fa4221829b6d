#pragma once

#include "support/error_code.h"

// What the system says of a file that could not be opened, as a cause for the error that says which file.
ErrorCode openCause(int code);
