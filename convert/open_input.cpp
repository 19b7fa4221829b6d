#include "convert/open_input.h"

#include "convert/convert_error.h"

namespace MUtils {
inline namespace v1 {

void openInput(PFileStream& stream, const std::string& path) {
    const int code = stream.Open(path.c_str(), PFileStream::kRead, 1, PFileStream::kOpenExisting);
    if (code != 0) throw ConvertError(ConvertState::kCannotOpen, path, openErrorText(code));
}

}  // namespace v1
}  // namespace MUtils
