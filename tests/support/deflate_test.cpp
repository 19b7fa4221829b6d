#include "support/deflate.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <random>
#include <vector>

namespace {

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

TEST(Deflater, WritesTheBytesOfCompress2) {
    Deflater deflater;
    for (const std::size_t size : std::vector<std::size_t>{0, 1, 3, 700, 65536, 300000}) {
        for (const int level : {9, 1, 6, 9}) {
            const Buffer bytes = values(size, 11);
            const Buffer expected = zipped(bytes, level);
            Buffer out(expected.size() + 100);
            std::size_t made = out.size();
            EXPECT_EQ(deflater.compress(out.data(), made, bytes.data(), bytes.size(), level), Z_OK);
            out.resize(made);
            EXPECT_TRUE(out == expected) << size << ' ' << level;
            std::size_t small = expected.size() - 1;
            EXPECT_EQ(deflater.compress(out.data(), small, bytes.data(), bytes.size(), level), Z_BUF_ERROR);
        }
    }
}

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
