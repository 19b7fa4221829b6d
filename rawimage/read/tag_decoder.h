#pragma once

#include <cstdint>

#include "rawimage/format.h"
#include "rawimage/read/tag_reader.h"
#include "support/bounded_read.h"
#include "support/deflate.h"
#include "support/mbvtable.h"

class RIFileCallback;

namespace MUtils {
inline namespace v1 {

// The one decoder of tags, for all readers. It trusts no size, see support/bounded_read.h.

// The values that a pixel tag claims to hold.
struct PixelShape {
    int valueSize = 0;
    int count = 0;
    std::int64_t bytes = -1;  // count * valueSize; -1 when the claim is negative or beyond 31 bits

    bool sound() const { return bytes >= 0; }
};
PixelShape pixelShape(const RIF_TAG& tag);

enum class PixelFault { kNone, kNotInflatable, kWrongLength };

// Inflates the `size` bytes of `payload` straight into the blocks of `pixels`, which is set up for the
// values. A claim that the payload cannot possibly fill allocates nothing.
PixelFault inflatePixels(const PixelShape& shape, const unsigned char* payload, std::size_t size,
                         Inflater& inflater, MBVTable& pixels);

// Reads a payload and inflates it as inflatePixels() does. Payloads of values in several blocks are not held
// whole, so that the values are all that is in memory. False when the stream fails or ends first, whatever
// the bytes before that were; `payload` is the working memory.
bool readInflated(PStream& stream, std::int64_t payloadBytes, const PixelShape& shape, ByteBuffer& payload,
                  Inflater& inflater, MBVTable& pixels, PixelFault& fault);

// The same for values that go to `rooms`; `piece` is the working memory.
bool readInflated(PStream& stream, std::int64_t payloadBytes, const PixelShape& shape, ByteBuffer& piece,
                  Inflater& inflater, ValueRooms& rooms, PixelFault& fault);

// Decodes the values of a pixel tag from its whole payload. `values` receives them: in `room`, or in the
// payload where that is not compressed. Returns 0 or the PixelCode that TagDecoder::readPixels returns.
int decodeValues(const RIF_TAG& tag, bool compressed, const unsigned char* payload, Inflater& inflater,
                 ByteBuffer& room, const unsigned char*& values);

// Decodes any tag that is not a pixel tag; the stream is at its payload. Returns 0 or the code of the
// operation that failed, see RIFileCallback. Tags without an operation of their own give 0.
int decodeRecord(PStream& stream, const RIF_TAG& tag, RIFileCallback& callback);

// Decodes tags of any kind, with working memory that it keeps from tag to tag. The two buffers are the
// owner's: payloads go to `zipped`, and to `raw` values whose stream does not know its length.
class TagDecoder {
  public:
    TagDecoder(ByteBuffer& zipped, ByteBuffer& raw) : zipped_(zipped), raw_(raw) {}

    // Decodes the tag whose payload the stream is at. Codes as of RIFile::ParseTag.
    int decode(PStream& stream, RIF_TAG& tag, bool compressed, RIFileCallback& callback);

    // Reads the values of the pixel tag whose payload the stream is at. Codes as of TagReader::readPixels.
    int readPixels(PStream& stream, const RIF_TAG& tag, bool compressed, ValueRooms& rooms);

  private:
    int deliverPixels(PStream& stream, const RIF_TAG& tag, bool compressed, RIFileCallback& callback);
    int readZipped(PStream& stream, const RIF_TAG& tag, const PixelShape& shape);
    int readRaw(PStream& stream, const RIF_TAG& tag, const PixelShape& shape);

    ByteBuffer& zipped_;
    ByteBuffer& raw_;
    Inflater inflater_;
    MBVTable pixels_{1, kMaxBlockBytes};
};

}  // namespace v1
}  // namespace MUtils
