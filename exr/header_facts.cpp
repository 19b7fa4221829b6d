#include "exr/header_facts.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace MUtils {
inline namespace v1 {

bool isCameraAttribute(const char* name) {
    const auto is = [name](const char* other) { return std::strcmp(name, other) == 0; };
    return is(kCameraTransformAttribute) || is(kCameraProjectionAttribute) ||
           std::any_of(std::begin(kCameraAttributes), std::end(kCameraAttributes),
                       [&is](const CameraAttribute& attribute) { return is(attribute.name); });
}

int linesPerBlock(int compression) {
    // In the order of Imf::Compression: none, RLE, ZIPS, ZIP, PIZ, PXR24, B44, B44A, DWAA, DWAB.
    constexpr int kLines[] = {1, 1, 1, 16, 32, 16, 32, 32, 32, 256};
    const bool known = compression >= 0 && compression < static_cast<int>(std::size(kLines));
    return known ? kLines[compression] : 1;
}

}  // namespace v1
}  // namespace MUtils
