#pragma once

#include <cstddef>
#include <memory>

#include "../../support/pstream.h"
#include "../export.h"
#include "../format.h"

class RIFileCallback;

namespace MUtils {
inline namespace v1 {

// The results of reading a pixel tag that say what is wrong with it; RIFile::ParseTag returns the same ones.
enum PixelCode : int {
    kPixelsCutShort = -13,       // the stream fails or ends within the compressed payload
    kPixelsNotInflatable = -14,  // the payload is no zlib stream of at most that many bytes
    kPixelsWrongLength = -15,    // the payload inflates to fewer bytes than the values have
    kPixelsUnreadable = -16,     // the uncompressed payload is shorter than the values, or cannot be read
    kPixelsRefused = -17,        // by the callback
};

// The words for the result of reading a pixel tag, for reports: "pixels do not inflate", as an
// inspection has it. Null for 0.
RAWIMAGE_EXPORT const char* pixelCodeText(int code);

// The places for the values of one pixel tag, handed out piece by piece.
class RAWIMAGE_EXPORT ValueRooms {
  public:
    struct Room {
        unsigned char* data = nullptr;
        std::size_t size = 0;  // less than 4 GiB; 0 when there is no more room
    };
    // Asked when the room before is full. It may be asked again at the end.
    virtual Room next() = 0;

  protected:
    ~ValueRooms() = default;
};

// Decodes single tags, wherever they are in a file: for tools that have found the tags by the table or by a
// search. The tag is not trusted: sizes are checked against the stream before memory is allocated.
//
// The object borrows the stream, which is open, and moves its position. It keeps its working memory from tag
// to tag. One thread uses it at a time; several readers work at once where each has a stream of its own.
class RAWIMAGE_EXPORT TagReader {
  public:
    // `compressed` is how the payloads of pixel tags are stored. It is not taken from the file header,
    // which a damaged file may have wrong.
    TagReader(PStream& stream, bool compressed);
    ~TagReader();
    TagReader(const TagReader&) = delete;
    TagReader& operator=(const TagReader&) = delete;

    // Asks the callback's parseTag, decodes the tag and calls the operation of its kind. Returns what
    // RIFile::ParseTag returns, -1 also when the stream cannot go to the tag.
    int read(const INFOTAG& tag, RIFileCallback& callback);

    // Reads the values of a pixel tag into `rooms`, without holding them or the payload whole. The rooms have
    // place for p4 * p5 values; with less the read fails as on a damaged payload. Returns 0, a PixelCode, or
    // -1 when the stream cannot go to the tag. A payload that is too short for the values fails before any
    // room is asked for; after any other failure the rooms' contents are undefined. An exception out of
    // `rooms` passes through.
    int readPixels(const INFOTAG& tag, ValueRooms& rooms);

  private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace v1
}  // namespace MUtils
