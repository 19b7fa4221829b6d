#include "rawimage/read/accepting_callback.h"

namespace MUtils {
inline namespace v1 {

bool AcceptingCallback::setResolution(int, int, float) {
    return true;
}
bool AcceptingCallback::setNumChannels(int) {
    return true;
}
bool AcceptingCallback::setChannel(int, RegionChannelType, RegionChannelAlias, const char*) {
    return true;
}
bool AcceptingCallback::setImageData(const MBVTable&, int, int, int, int, int, int, int, int) {
    return true;
}

}  // namespace v1
}  // namespace MUtils
