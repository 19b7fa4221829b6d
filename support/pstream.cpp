#include "support/pstream.h"

#include <sys/stat.h>

#include <cerrno>
#include <system_error>
#include <vector>

namespace MUtils {

PStream::~PStream() = default;

std::int64_t PStream::Length() {
    return -1;
}

int PStream::Sync() {
    return 0;
}

int PStream::StreamCopy(PStream& source, PStream& target, int chunkSize) {
    if (chunkSize < 1) chunkSize = 1;
    std::vector<unsigned char> chunk(static_cast<std::size_t>(chunkSize));
    for (;;) {
        int got = 0;
        const int readCode = source.Read(chunk.data(), chunkSize, got);
        if (got > 0) {
            int written = 0;
            const int writeCode = target.Write(chunk.data(), got, written);
            if (writeCode != 0) return writeCode;
            if (written != got) return ENOSPC;
        }
        if (readCode != 0 || got <= 0) return readCode;
    }
}

std::string openErrorText(int code) {
    return code == EWOULDBLOCK ? "another writer has the file open" : std::generic_category().message(code);
}

}  // namespace MUtils

std::FILE* mutils_fopen(const char* name, const char* mode) {
    if (name == nullptr) {
        errno = ENOENT;
        return nullptr;
    }
    // Opening a pipe would wait for whoever writes to it.
    struct stat status;
    if (::stat(name, &status) == 0 && (S_ISFIFO(status.st_mode) || S_ISDIR(status.st_mode))) {
        errno = S_ISDIR(status.st_mode) ? EISDIR : ESPIPE;
        return nullptr;
    }
    return std::fopen(name, mode);
}
