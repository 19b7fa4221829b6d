#include <cstdio>
#include <cstring>

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

// Writes a file without pixels and compares the installed version with that of the headers and of the
// library.
int main(int argc, char** argv) {
    if (argc != 3) return 2;
    const char* const versions[] = {RAWIMAGE_VERSION, MUtils::rawimageVersion()};
    for (const char* version : versions) {
        if (std::strcmp(version, argv[2]) == 0) continue;
        std::fprintf(stderr, "version %s is installed as %s\n", version, argv[2]);
        return 1;
    }
    RIFile file;
    return file.Create(argv[1], nullptr).empty() && file.WriteHeader(0).empty() &&
                   file.WTResolution(4, 4, 1.0f).empty() && file.Close().empty()
               ? 0
               : 1;
}
