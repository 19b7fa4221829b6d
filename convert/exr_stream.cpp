#include "convert/exr_stream.h"

#include <OpenEXR/Iex.h>

#include <limits>

#include "convert/open_input.h"
#include "convert/texts.h"

namespace MUtils {
inline namespace v1 {

ExrStream::ExrStream(const std::string& path) : Imf::IStream(path.c_str()) {
    openInput(file_, path);
}

bool ExrStream::read(char bytes[], int size) {
    if (size < 0) throw Iex::InputExc("a block of negative size");
    if (firstRead_ == kNothingRead) firstRead_ = file_.Tell();
    int got = 0;
    if (const int code = file_.Read(bytes, size, got); code != 0) throw Iex::IoExc(systemMessage(code));
    if (got < size) throw Iex::InputExc("end of file");
    return !file_.IsEOF();
}

void ExrStream::seekg(std::uint64_t position) {
    const bool far = position > static_cast<std::uint64_t>(std::numeric_limits<long>::max());
    if (far || file_.Seek(static_cast<long>(position)) != 0) throw Iex::InputExc("a block beyond any file");
}

}  // namespace v1
}  // namespace MUtils
