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
#include "rawimage/writer.h"

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    RIFile file;
    return file.Create(argv[1], nullptr).empty() && file.WriteHeader(0).empty() &&
                   file.WTResolution(4, 4, 1.0f).empty() && file.Close().empty()
               ? 0
               : 1;
}
