#include "convert/to_exr/exr_compression.h"

#include <algorithm>

namespace MUtils {
inline namespace v1 {

namespace {

enum { kPxr24 = 6, kB44 = 7, kB44a = 8, kDwaa = 9, kDwab = 10 };

}  // namespace

std::optional<ConvertNote> storageRemark(int compression, int bits, const std::vector<ExrChannel>& channels) {
    const auto any = [&channels](bool integers) {
        return std::any_of(channels.begin(), channels.end(), [integers](const ExrChannel& channel) {
            return channel.isWritten() && (channel.type == RCT_INT) == integers;
        });
    };
    const auto remark = [](const char* kind, const char* text) { return ConvertNote{kind, "", text}; };
    const bool floats = bits > 16 && any(false);
    switch (compression) {
        case kPxr24:
            if (!floats) return {};
            return remark("storage", "pxr24 rounds the values of 32 bits to 24; integers keep every bit");
        case kB44:
        case kB44a:
            if (floats) return remark("halves", "b44 packs half floats only: all is stored uncompressed");
            if (!any(true)) return {};
            return remark("storage", "b44 packs half floats only: integer channels are stored uncompressed");
        case kDwaa:
        case kDwab:
            if (!floats) return {};
            return remark("storage",
                          "dwa rounds R, G and B to half floats and packs them lossily; other channels keep "
                          "every bit");
        default: return {};
    }
}

}  // namespace v1
}  // namespace MUtils
