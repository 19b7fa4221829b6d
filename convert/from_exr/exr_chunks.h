#pragma once

#include <OpenEXR/ImfMultiPartInputFile.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "support/pstream.h"

namespace MUtils {
inline namespace v1 {

// The places and sizes of an OpenEXR file's chunks, which are blocks of scan lines or tiles, read without
// OpenEXR: it allocates memory for whatever a header claims, and passes off what that memory contains as
// pixels when an uncompressed chunk is shorter than they are.
class ExrChunks {
  public:
    // `file` is the opened one and must live longer. Throws ConvertError (kCannotOpen) when it does not
    // open again.
    ExrChunks(const std::string& path, const Imf::MultiPartInputFile& file);

    // False when chunk `index` of a part (in the order of its table: blocks from the top, tiles row after
    // row) is in the file, and is too short for `rawBytes` of pixels by any compression. True for a chunk
    // that is not in the file.
    bool mayHold(int part, std::int64_t index, std::int64_t rawBytes);

    // Chunks of the part that begin within the file.
    std::int64_t chunksThere(int part);

  private:
    struct Part {
        std::int64_t table = 0;  // where its table of offsets is
        std::int64_t chunks = 0;
        bool tiled = false;
        bool complete = true;  // every entry of the table leads into the file
        std::int64_t there = 0;
        std::map<std::int64_t, std::int64_t> found;  // chunk sizes of an incomplete table, see walk()
    };

    bool readAt(std::int64_t offset, void* bytes, int size);
    std::int64_t endOfHeaders();
    void survey(Part& part);
    void walk(std::int64_t offset);
    std::int64_t leadBytes(const Part& part) const;

    const Imf::MultiPartInputFile& file_;
    PFileStream stream_;
    std::int64_t length_ = 0;
    std::vector<Part> parts_;
};

}  // namespace v1
}  // namespace MUtils
