#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "exr/attr_parser.h"
#include "exr/exr_file.h"
#include "exr/host.h"
#include "rawimage/read/mt_reader.h"
#include "rawimage/tools/merge.h"
#include "rawimage/tools/note.h"
#include "rawimage/tools/picture.h"
#include "rawimage/tools/preview.h"
#include "rawimage/tools/recover.h"
#include "rawimage/tools/settings.h"
#include "rawimage/tools/summary.h"
#include "rawimage/tools/verify.h"
#include "rawimage/version.h"
#include "rawimage/writer.h"

namespace {

struct Thrower final : MUtils::AcceptingCallback {
    bool setResolution(int, int, float) override { throw std::runtime_error("thrown by the host"); }
};

// True when the library's type information is also the host's, and the exception of a callback passes through
// the library.
bool crossesTheBoundary(const char* fileName) {
    RIFileMT reader(nullptr, 1);
    RIFileBase& file = reader;
    if (dynamic_cast<RIFileMT*>(&file) != &reader || file.Open(fileName, nullptr)) return false;
    Thrower callback;
    try {
        file.ParseFile(callback);
    } catch (const std::runtime_error&) {
        return true;
    }
    return false;
}

}  // namespace

// Compares the installed version with that of the headers and of the library, writes a file without pixels
// and reads it.
int main(int argc, char** argv) {
    if (argc != 3) return 2;
    const char* const versions[] = {RAWIMAGE_VERSION, MUtils::rawimageVersion()};
    for (const char* version : versions) {
        if (std::strcmp(version, argv[2]) == 0) continue;
        std::fprintf(stderr, "version %s is installed as %s\n", version, argv[2]);
        return 1;
    }
    RIFile file;
    const bool written = file.Create(argv[1], nullptr).empty() && file.WriteHeader(0).empty() &&
                         file.WTResolution(4, 4, 1.0f).empty() && file.Close().empty();
    return written && crossesTheBoundary(argv[1]) ? 0 : 1;
}
