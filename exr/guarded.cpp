#include "exr/guarded.h"

#include <exception>
#include <utility>

namespace MUtils {
inline namespace v1 {

ErrorCode errorFromException(const char* operation, const char* message) {
    ErrorCode error(operation, -1, "%s", message);
    try {
        throw;
    } catch (const std::exception& exception) {
        error.setCause(ErrorCode("OpenEXR", -1, "%s", exception.what()));
    } catch (...) {
        // Nothing is known about it.
    }
    return error;
}

}  // namespace v1
}  // namespace MUtils
