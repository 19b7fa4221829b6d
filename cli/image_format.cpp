#include "cli/image_format.h"

#include "cli/report.h"

namespace rimg {

ImageFormat formatOf(const std::string& path) {
    int error = 0;
    const ImageFormat format = MUtils::imageFormatOf(path, error);
    if (error != 0) throw Failure(ExitCode::kUnreadable, path, systemMessage(error));
    return format;
}

}  // namespace rimg
