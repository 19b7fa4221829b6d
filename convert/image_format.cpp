#include "convert/image_format.h"

#include <cstring>

#include "rawimage/writer.h"
#include "support/pstream.h"

namespace MUtils {
inline namespace v1 {

ImageFormat imageFormatOf(const std::string& path, int& error) {
    constexpr unsigned char kExrMagic[4] = {0x76, 0x2f, 0x31, 0x01};
    PFileStream stream;
    unsigned char magic[4] = {};
    int got = 0;
    error = stream.Open(path.c_str(), PFileStream::kRead, 1, PFileStream::kOpenExisting);
    if (error == 0) error = stream.Read(magic, sizeof magic, got);
    if (error != 0) return ImageFormat::kOther;
    if (got == sizeof magic && std::memcmp(magic, kExrMagic, sizeof magic) == 0) return ImageFormat::kExr;
    return RIFile::isRIFile(path.c_str()) ? ImageFormat::kRaw : ImageFormat::kOther;
}

}  // namespace v1
}  // namespace MUtils
