#pragma once

#include <cstdint>

#include "../../support/deflate.h"
#include "../../support/mbvtable.h"
#include "../../support/pstream.h"
#include "../../support/scratch_buffer.h"
#include "../format.h"

class RIFileCallback;

// The one decoder of tags, for both readers. Nothing here trusts a size: each is checked against what the
// stream holds, or read in growing pieces where the stream cannot tell, before memory is allocated for it.

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
                         MUtils::Inflater& inflater, MBVTable& pixels);

// Reads a payload and inflates it as inflatePixels() does. Payloads of values in several blocks are not held
// whole, so that the values are all that is in memory. False when the stream fails or ends first, whatever
// the bytes before that were; `payload` is the working memory.
bool readInflated(PStream& stream, std::int64_t payloadBytes, const PixelShape& shape,
                  MUtils::ScratchBuffer& payload, MUtils::Inflater& inflater, MBVTable& pixels,
                  PixelFault& fault);

// True when `stream` may hold `size` more bytes: false when it knows that it does not, or `size` is negative.
bool mayHold(PStream& stream, std::int64_t size);

// Reads exactly `size` bytes to `buffer`, which grows with what really comes when the stream does not know
// its length. False when the stream fails or ends first; `status` receives the stream's code, which is 0 when
// it ended.
bool readPayload(PStream& stream, std::int64_t size, MUtils::ScratchBuffer& buffer, int& status);
bool readPayload(PStream& stream, std::int64_t size, MUtils::ScratchBuffer& buffer);

// Reads exactly `size` bytes; false when the stream fails or gives fewer.
bool readExactly(PStream& stream, void* bytes, int size);

// Decodes any tag that is not a pixel tag; the stream stands at its payload. Returns 0 or the code of the
// operation that failed, see RIFileCallback. Tags without an operation of their own give 0.
int decodeRecord(PStream& stream, const RIF_TAG& tag, RIFileCallback& callback);
