#include "cli/image_format.h"

#include <cstring>

#include "cli/report.h"
#include "rawimage/writer.h"
#include "support/pstream.h"

namespace rimg {

ImageFormat formatOf(const std::string& path) {
    constexpr unsigned char kExrMagic[4] = {0x76, 0x2f, 0x31, 0x01};
    PFileStream stream;
    unsigned char magic[4] = {};
    int got = 0;
    int code = stream.Open(path.c_str(), PFileStream::kRead, 1, PFileStream::kOpenExisting);
    if (code == 0) code = stream.Read(magic, sizeof magic, got);
    if (code != 0) throw Failure(ExitCode::kUnreadable, path, systemMessage(code));
    if (got == sizeof magic && std::memcmp(magic, kExrMagic, sizeof magic) == 0) return ImageFormat::kExr;
    return RIFile::isRIFile(path.c_str()) ? ImageFormat::kRaw : ImageFormat::kOther;
}

}  // namespace rimg
