#include <algorithm>
#include <utility>

#include "rawimage/read/tag_decoder.h"
#include "support/scratch_buffer.h"

namespace MUtils {
inline namespace v1 {

namespace {

// The most that is read at once of a payload that is not held whole.
constexpr std::int64_t kPiece = 1 << 18;
// The largest payload that is held whole: what one block of values can compress to, and more.
constexpr std::int64_t kLargestHeld = kMaxBlockBytes + kMaxBlockBytes / 64;

int valuesPerBlock(const PixelShape& shape) {
    return static_cast<int>(kMaxBlockBytes) / shape.valueSize;
}

// Offers the blocks of a table as room, each allocated when the ones before it are full: a stream that ends
// early has cost no more than it gave.
class BlockRooms final : public ValueRooms {
  public:
    BlockRooms(const PixelShape& shape, MBVTable& pixels) : shape_(shape), pixels_(pixels) {
        pixels_.initReusing(std::min(shape.count, valuesPerBlock(shape)), shape.valueSize, kMaxBlockBytes);
    }

    Room next() override {
        const int values = std::min(valuesPerBlock(shape_), shape_.count - offered_);
        if (values == 0) return {};
        pixels_.setCount(offered_ + values);
        offered_ += values;
        return {pixels_.blocks[block_++],
                static_cast<std::size_t>(values) * static_cast<std::size_t>(shape_.valueSize)};
    }

  private:
    const PixelShape& shape_;
    MBVTable& pixels_;
    int offered_ = 0;
    int block_ = 0;
};

class PayloadFlow : public InflateFlow {
  public:
    explicit PayloadFlow(ValueRooms& rooms) : rooms_(rooms) {}

    Room nextRoom() final {
        const ValueRooms::Room room = rooms_.next();
        return {room.data, room.size};
    }

  protected:
    ~PayloadFlow() = default;

  private:
    ValueRooms& rooms_;
};

class HeldPayload final : public PayloadFlow {
  public:
    HeldPayload(const unsigned char* payload, std::size_t size, ValueRooms& rooms)
        : PayloadFlow(rooms), payload_(payload), size_(size) {}

    Input nextInput() override { return {payload_, std::exchange(size_, 0)}; }

  private:
    const unsigned char* payload_;
    std::size_t size_;
};

class StreamedPayload final : public PayloadFlow {
  public:
    StreamedPayload(PStream& stream, std::int64_t size, ByteBuffer& piece, ValueRooms& rooms)
        : PayloadFlow(rooms), stream_(stream), left_(size), piece_(piece) {
        reserve(piece_, static_cast<std::size_t>(kPiece));
    }

    Input nextInput() override {
        const auto size = static_cast<int>(std::min(left_, kPiece));
        left_ -= size;
        whole_ = whole_ && readExactly(stream_, piece_.data(), size);
        if (!whole_) left_ = 0;
        return {piece_.data(), whole_ ? static_cast<std::size_t>(size) : 0};
    }

    // Reads what the inflater left. False when the stream has failed or ended before the payload did.
    bool finish() {
        while (left_ > 0)
            nextInput();
        return whole_;
    }

  private:
    PStream& stream_;
    std::int64_t left_;
    ByteBuffer& piece_;
    bool whole_ = true;
};

PixelFault faultOf(const PixelShape& shape, int code, std::size_t inflated) {
    if (code != 0) return PixelFault::kNotInflatable;
    return inflated == static_cast<std::size_t>(shape.bytes) ? PixelFault::kNone : PixelFault::kWrongLength;
}

bool fitsOneBlock(const PixelShape& shape) {
    return !shape.sound() || shape.count <= valuesPerBlock(shape);
}

// Payloads of values in several blocks: held whole, one of noise would double what the values take. Claims
// that the payload cannot fill are small payloads, which inflatePixels() refuses.
bool inPieces(const PixelShape& shape, std::int64_t payloadBytes) {
    if (payloadBytes > kLargestHeld) return true;
    return !fitsOneBlock(shape) &&
           static_cast<std::size_t>(shape.bytes) <= inflateLimit(static_cast<std::size_t>(payloadBytes));
}

}  // namespace

PixelFault inflatePixels(const PixelShape& shape, const unsigned char* payload, std::size_t size,
                         Inflater& inflater, MBVTable& pixels) {
    if (!shape.sound()) return PixelFault::kNotInflatable;
    auto inflated = static_cast<std::size_t>(shape.bytes);
    if (inflated > inflateLimit(size)) {
        std::size_t used = size;
        const int code = inflater.measure(inflated, payload, used);
        return code != 0 ? PixelFault::kNotInflatable : PixelFault::kWrongLength;
    }
    if (!fitsOneBlock(shape)) {
        BlockRooms rooms(shape, pixels);
        HeldPayload flow(payload, size, rooms);
        const int code = inflater.uncompress(flow, inflated);
        return faultOf(shape, code, inflated);
    }
    pixels.initReusing(shape.count, shape.valueSize, kMaxBlockBytes);
    unsigned char none = 0;
    const int code =
        inflater.uncompress(pixels.numBlocks > 0 ? pixels.blocks[0] : &none, inflated, payload, size);
    return faultOf(shape, code, inflated);
}

bool readInflated(PStream& stream, std::int64_t payloadBytes, const PixelShape& shape, ByteBuffer& payload,
                  Inflater& inflater, MBVTable& pixels, PixelFault& fault) {
    if (mayHold(stream, payloadBytes) && inPieces(shape, payloadBytes)) {
        BlockRooms rooms(shape, pixels);
        return readInflated(stream, payloadBytes, shape, payload, inflater, rooms, fault);
    }
    fault = PixelFault::kNotInflatable;
    if (!readPayload(stream, payloadBytes, payload)) return false;
    fault = inflatePixels(shape, payload.data(), static_cast<std::size_t>(payloadBytes), inflater, pixels);
    return true;
}

bool readInflated(PStream& stream, std::int64_t payloadBytes, const PixelShape& shape, ByteBuffer& piece,
                  Inflater& inflater, ValueRooms& rooms, PixelFault& fault) {
    fault = PixelFault::kNotInflatable;
    StreamedPayload flow(stream, payloadBytes, piece, rooms);
    if (shape.sound()) {
        std::size_t inflated = 0;
        const int code = inflater.uncompress(flow, inflated);
        fault = faultOf(shape, code, inflated);
    }
    return flow.finish();
}

}  // namespace v1
}  // namespace MUtils
