#include "support/deflate.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <random>
#include <vector>

namespace {

using MUtils::Compression;
using MUtils::CompressionSetting;
using MUtils::Deflater;
using MUtils::Inflater;
using Buffer = std::vector<unsigned char>;

Buffer values(std::size_t size, unsigned spread) {
    std::mt19937 random(3);
    Buffer bytes(size);
    for (unsigned char& byte : bytes)
        byte = static_cast<unsigned char>(random() % spread);
    return bytes;
}

Buffer zipped(const Buffer& bytes, int level = 9) {
    uLongf size = compressBound(static_cast<uLong>(bytes.size()));
    Buffer out(size);
    EXPECT_EQ(compress2(out.data(), &size, bytes.data(), static_cast<uLong>(bytes.size()), level), Z_OK);
    out.resize(size);
    return out;
}

int deflated(Deflater& deflater, const Buffer& bytes, CompressionSetting setting, std::size_t room,
             Buffer& out) {
    out.assign(room, 0xAA);
    std::size_t made = room;
    const int code =
        deflater.compress(out.data(), made, bytes.empty() ? nullptr : bytes.data(), bytes.size(), setting);
    out.resize(made);
    return code;
}

TEST(Deflater, WritesTheBytesOfCompress2) {
    Deflater deflater;
    for (const std::size_t size : std::vector<std::size_t>{0, 1, 3, 700, 65536, 300000}) {
        for (const int level : {9, 1, 6, 9}) {
            const CompressionSetting setting{Compression::kSmall, level};
            const Buffer bytes = values(size, 11);
            const Buffer expected = zipped(bytes, level);
            Buffer out;
            EXPECT_EQ(deflated(deflater, bytes, setting, expected.size() + 100, out), Z_OK);
            EXPECT_TRUE(out == expected) << size << ' ' << level;
            EXPECT_EQ(deflated(deflater, bytes, setting, expected.size() - 1, out), Z_BUF_ERROR);
            EXPECT_EQ(out.size(), 0u);
        }
    }
}

// The parameter is a Compression as a number, which prints as itself.
class EveryCompressor : public testing::TestWithParam<int> {
  protected:
    const Compression compression_ = static_cast<Compression>(GetParam());
};

TEST_P(EveryCompressor, GivesStreamsThatZlibTakes) {
    std::vector<Buffer> runs{{}, Buffer(1, 7), Buffer(5000000, 0), values(5000000, 256), values(70000, 3)};
    for (std::size_t size = 2; size < 1500; size += size / 20 + 1) {
        runs.push_back(values(size, 256));
        runs.push_back(values(size, 2));
    }
    const CompressionSetting setting{compression_, 9};
    Deflater used;
    for (const Buffer& bytes : runs) {
        const std::size_t bound = MUtils::deflateBound(bytes.size());
        Buffer out, again, back(bytes.size() + 1);
        Deflater fresh;
        ASSERT_EQ(deflated(used, bytes, setting, bound, out), Z_OK) << bytes.size();
        uLongf length = static_cast<uLongf>(back.size());
        ASSERT_EQ(uncompress(back.data(), &length, out.data(), static_cast<uLong>(out.size())), Z_OK);
        back.resize(length);
        ASSERT_TRUE(back == bytes) << bytes.size();
        // Whatever the object did before, and whatever room it has.
        ASSERT_EQ(deflated(fresh, bytes, setting, bound * 2, again), Z_OK);
        ASSERT_TRUE(again == out) << bytes.size();
    }
}

TEST_P(EveryCompressor, RefusesWhatItCannotTake) {
    const CompressionSetting setting{compression_, 9};
    Deflater deflater;
    unsigned char bytes[100] = {};
    std::size_t room = sizeof bytes;
    EXPECT_EQ(deflater.compress(bytes, room, bytes, std::size_t{1} << 31, setting), Z_STREAM_ERROR);
    EXPECT_EQ(room, 0u);
    for (const std::size_t small : {0u, 1u, 7u}) {
        Buffer out(small + 1, 0xAA);
        room = small;
        EXPECT_EQ(deflater.compress(out.data(), room, values(90, 256).data(), 90, setting), Z_BUF_ERROR);
        EXPECT_EQ(out.back(), 0xAA);
    }
}

// Objects lie at different addresses, as those of threads do; no byte may depend on that.
TEST_P(EveryCompressor, GivesTheSameBytesInEveryObject) {
    const CompressionSetting setting{compression_, 1};
    std::mt19937 random(11);
    std::vector<Deflater> deflaters(4);
    Buffer first, other;
    for (int i = 0; i < 20000; ++i) {
        Buffer bytes(300 + random() % 500);
        for (unsigned char& byte : bytes)
            byte = static_cast<unsigned char>(random() % 5);
        const std::size_t bound = MUtils::deflateBound(bytes.size());
        ASSERT_EQ(deflated(deflaters[0], bytes, setting, bound, first), Z_OK);
        ASSERT_EQ(deflated(deflaters[1 + random() % 3], bytes, setting, bound, other), Z_OK);
        ASSERT_TRUE(first == other) << i;
    }
}

INSTANTIATE_TEST_SUITE_P(Each, EveryCompressor, testing::Range(0, 3));

// A stream and a room in pieces of a few bytes.
struct Pieces final : MUtils::InflateFlow {
    Pieces(const Buffer& in, Buffer& to, std::size_t length, std::size_t piece)
        : stream(in), out(to), room(length), step(piece) {}

    Input nextInput() override {
        const std::size_t size = std::min(step, stream.size() - used);
        used += size;
        return {stream.data() + used - size, size};
    }
    Room nextRoom() override {
        const std::size_t size = std::min(step, room - offered);
        offered += size;
        return {out.data() + offered - size, size};
    }

    const Buffer& stream;
    Buffer& out;
    std::size_t room;
    std::size_t step;
    std::size_t used = 0;
    std::size_t offered = 0;
};

// Whatever stands behind it, the inflater answers with the codes and the bytes of plain zlib.
void expectAsZlib(Inflater& inflater, const Buffer& stream, std::size_t room) {
    Buffer plain(room + 1), ours(room + 1);
    uLongf plainSize = static_cast<uLongf>(room);
    std::size_t oursSize = room;
    const int code = uncompress(plain.data(), &plainSize, stream.data(), static_cast<uLong>(stream.size()));
    ASSERT_EQ(inflater.uncompress(ours.data(), oursSize, stream.data(), stream.size()), code);
    if (code == Z_OK) {
        ASSERT_EQ(oursSize, plainSize);
        ASSERT_TRUE(plain == ours);
    }
    for (const std::size_t piece : {1u, 7u, 100000u}) {
        Buffer joined(room + 1);
        Pieces pieces(stream, joined, room, piece);
        std::size_t size = 0;
        ASSERT_EQ(inflater.uncompress(pieces, size), code) << piece;
        if (code != Z_OK) continue;
        ASSERT_EQ(size, plainSize);
        ASSERT_TRUE(
            std::equal(plain.begin(), plain.begin() + static_cast<std::ptrdiff_t>(size), joined.begin()));
    }
    std::size_t measured = room;
    std::size_t used = stream.size();
    ASSERT_EQ(inflater.measure(measured, stream.data(), used) == Z_OK, code == Z_OK);
    if (code == Z_OK) {
        ASSERT_EQ(measured, plainSize);
        ASSERT_LE(used, stream.size());
    }
}

TEST(Inflater, AnswersLikeZlibForEveryDamage) {
    Inflater inflater;
    for (const unsigned spread : {2u, 30u, 256u}) {
        const Buffer bytes = values(400, spread);
        for (const int level : {1, 9}) {
            const Buffer stream = zipped(bytes, level);
            for (const std::size_t room : std::vector<std::size_t>{0, 1, 399, 400, 401, 4000})
                expectAsZlib(inflater, stream, room);
            for (std::size_t length = 0; length < stream.size(); ++length)
                expectAsZlib(inflater, {stream.begin(), stream.begin() + static_cast<std::ptrdiff_t>(length)},
                             400);
            for (std::size_t bit = 0; bit < stream.size() * 8; ++bit) {
                Buffer damaged = stream;
                damaged[bit / 8] = static_cast<unsigned char>(damaged[bit / 8] ^ 1u << bit % 8);
                expectAsZlib(inflater, damaged, 400);
            }
            Buffer longer = stream;
            longer.insert(longer.end(), 9, 0x55);
            expectAsZlib(inflater, longer, 400);
        }
    }
    expectAsZlib(inflater, zipped({}), 0);
    expectAsZlib(inflater, zipped({}), 5);
    expectAsZlib(inflater, {}, 0);
}

}  // namespace
