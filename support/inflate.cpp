#include <zlib.h>

#include <algorithm>
#include <climits>

#include "support/codec.h"
#include "support/deflate.h"

namespace MUtils {
inline namespace v1 {

namespace {

constexpr std::size_t kPiece = UINT_MAX;  // zlib counts in 32 bits: larger buffers are handed over in pieces

uInt nextPiece(std::size_t& left) {
    const std::size_t piece = std::min(left, kPiece);
    left -= piece;
    return static_cast<uInt>(piece);
}

// zlib's interface takes input as non-const, but never writes to it.
Bytef* inputBytes(const unsigned char* data) {
    return const_cast<Bytef*>(data);
}

std::unique_ptr<Decompressor> makeFastDecompressor() {
    if constexpr (kHasLibdeflate) return makeLibdeflateDecompressor();
    return nullptr;
}

}  // namespace

std::string decompressorName() {
    if constexpr (kHasLibdeflate) return libdeflateName();
    return zlibName();
}

struct Inflater::State {
    z_stream stream{};
    bool ready = false;

    ~State() {
        if (ready) inflateEnd(&stream);
    }

    // The faster decoder, null for none.
    std::unique_ptr<Decompressor> fast = makeFastDecompressor();

    // True when the faster decoder has done the whole stream. What it refuses zlib judges. What it accepts
    // and zlib would not is a stream made for that, with codes that no encoder writes and a right checksum.
    bool uncompressFast(unsigned char* out, std::size_t& outSize, const unsigned char* data,
                        std::size_t size) {
        return fast != nullptr && outSize > 0 && fast->uncompress(out, outSize, data, size);
    }

    int begin() {
        if (ready) return inflateReset(&stream);
        const int code = inflateInit(&stream);
        ready = code == Z_OK;
        return code;
    }
};

Inflater::Inflater() : state_(std::make_unique<State>()) {}
Inflater::~Inflater() = default;

namespace {

class BufferFlow final : public InflateFlow {
  public:
    BufferFlow(const unsigned char* data, std::size_t size, unsigned char* out, std::size_t room)
        : data_(data), size_(size), out_(out), room_(room) {}

    Input nextInput() override {
        const Input input{data_, nextPiece(size_)};
        data_ += input.size;
        return input;
    }
    Room nextRoom() override {
        const Room room{out_, nextPiece(room_)};
        out_ += room.size;
        return room;
    }

  private:
    const unsigned char* data_;
    std::size_t size_;
    unsigned char* out_;
    std::size_t room_;
};

}  // namespace

int Inflater::uncompress(unsigned char* out, std::size_t& outSize, const unsigned char* data,
                         std::size_t size) {
    if (state_->uncompressFast(out, outSize, data, size)) return Z_OK;
    BufferFlow flow(data, size, out, outSize);
    return uncompress(flow, outSize);
}

int Inflater::uncompress(InflateFlow& flow, std::size_t& outSize) {
    // With no room at all one spare byte distinguishes a stream of no bytes from one that is too long.
    unsigned char spare[1];
    outSize = 0;
    z_stream& stream = state_->stream;
    stream.next_in = nullptr;
    stream.avail_in = 0;
    if (const int code = state_->begin(); code != Z_OK) return code;
    InflateFlow::Room room = flow.nextRoom();
    const bool noRoom = room.size == 0;
    stream.next_out = noRoom ? spare : room.data;
    stream.avail_out = static_cast<uInt>(noRoom ? sizeof spare : room.size);
    int code;
    do {
        if (stream.avail_out == 0 && !noRoom) {
            room = flow.nextRoom();
            if (room.size > 0) stream.next_out = room.data;
            stream.avail_out = static_cast<uInt>(room.size);
        }
        if (stream.avail_in == 0) {
            const InflateFlow::Input input = flow.nextInput();
            stream.next_in = inputBytes(input.data);
            stream.avail_in = static_cast<uInt>(input.size);
        }
        code = inflate(&stream, Z_NO_FLUSH);
    } while (code == Z_OK);
    if (!noRoom) outSize = stream.total_out;
    if (code == Z_STREAM_END) return Z_OK;
    if (code == Z_NEED_DICT) return Z_DATA_ERROR;
    // Room left over means that the input ended too early.
    const bool tooLongForNothing = noRoom && stream.total_out > 0;
    if (code == Z_BUF_ERROR && (stream.avail_out > 0 || tooLongForNothing)) return Z_DATA_ERROR;
    return code;
}

int Inflater::measure(std::size_t& outSize, const unsigned char* data, std::size_t& size) {
    unsigned char dropped[16384];
    const std::size_t expected = outSize;
    std::size_t left = size;
    outSize = 0;
    z_stream& stream = state_->stream;
    stream.next_in = inputBytes(data);
    stream.avail_in = 0;
    if (const int code = state_->begin(); code != Z_OK) return code;
    int code;
    do {
        stream.next_out = dropped;
        stream.avail_out = sizeof dropped;
        if (stream.avail_in == 0) stream.avail_in = nextPiece(left);
        code = inflate(&stream, Z_NO_FLUSH);
    } while (code == Z_OK && stream.total_out <= expected);
    outSize = stream.total_out;
    size = stream.total_in;
    if (outSize > expected) return Z_BUF_ERROR;
    if (code == Z_STREAM_END) return Z_OK;
    return code == Z_NEED_DICT || code == Z_BUF_ERROR ? Z_DATA_ERROR : code;
}

}  // namespace v1
}  // namespace MUtils
