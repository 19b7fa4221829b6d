#include "rawimage/version.h"

namespace MUtils {

const char* rawimageVersion() {
    return RAWIMAGE_VERSION;
}

}  // namespace MUtils
