#include "rawimage/writer.h"

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    RIFile file;
    return file.Create(argv[1], nullptr).empty() && file.WriteHeader(0).empty() &&
                   file.WTResolution(4, 4, 1.0f).empty() && file.Close().empty()
               ? 0
               : 1;
}
