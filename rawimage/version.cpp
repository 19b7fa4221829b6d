#include "rawimage/version.h"

namespace MUtils {
inline namespace v1 {

const char* rawimageVersion() {
    return RAWIMAGE_VERSION;
}

}  // namespace v1
}  // namespace MUtils
