#include <gtest/gtest.h>
#include <zlib.h>

#include <cstring>

#include "tests/cli/to_exr_fixture.h"
#include "tests/testing/bytes.h"
#include "tests/testing/exr_sample.h"
#include "tests/testing/run_program.h"
#include "tests/testing/sanitized.h"

// What conversions take of memory: 1.2 times the values that are needed, and nothing for what a file only
// claims.

namespace {

using namespace testing_tools;

constexpr double kMebibyte = 1 << 20;
constexpr double kProgram = 48 * kMebibyte;  // without any pixels, and room for other machines

// A stream of so many zeros.
std::string deflated(std::int64_t zeros) {
    const std::string piece(1 << 20, '\0');
    std::string out;
    unsigned char room[1 << 14];
    z_stream stream{};
    deflateInit(&stream, 9);
    while (zeros >= 0) {
        const auto size = static_cast<uInt>(std::min<std::int64_t>(zeros, 1 << 20));
        zeros = size == 0 ? -1 : zeros - size;
        stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(piece.data()));
        stream.avail_in = size;
        do {
            stream.next_out = room;
            stream.avail_out = sizeof room;
            deflate(&stream, size == 0 ? Z_FINISH : Z_NO_FLUSH);
            out.append(reinterpret_cast<char*>(room), sizeof room - stream.avail_out);
        } while (stream.avail_out == 0);
    }
    deflateEnd(&stream);
    return out;
}

// Buckets of a colour beside each other, `edge` pixels a side, as announced; not `there`, only claimed.
std::string frameOf(int edge, bool there, int buckets = 1) {
    Bytes file = Bytes().fileHeader(0).tag(TAG_RESOLUTION, 0, {edge * buckets, edge});
    file.tag(TAG_REGIONS_INFO, 0, {edge, edge}).tag(TAG_CHANNEL_INFO, 80, {1, 80});
    file.i32s({0, 2, 126, 0}).text("color").zeros(59);
    const std::string payload = there ? deflated(std::int64_t{12} * edge * edge) : "";
    for (int i = 0; there && i < buckets; ++i) {
        file.tag(TAG_CHAN_FLOAT3, static_cast<std::uint32_t>(payload.size()), {2, i * edge, 0, edge, edge})
            .text(payload);
    }
    return std::string(file.begin(), file.end());
}

}  // namespace

TEST(ConvertMemory, ToExrIsThatOfTheFrameAndNothingWhereThereIsNone) {
    if (kSanitized) GTEST_SKIP() << "memory is not the program's alone";
    constexpr int kEdge = 3000;
    constexpr double kValues = 12.0 * kEdge * kEdge;
    const TempFolder folder;
    for (const bool there : {true, false}) {
        writeFile(folder / "raw.rimg", frameOf(kEdge, there));
        for (const char* kind : kKinds) {
            SCOPED_TRACE(std::string(kind) + (there ? "" : ", nothing there"));
            const ProgramCost cost =
                costOf(RIMG_PROGRAM, {"convert", folder / "raw.rimg", folder / "out.exr", "--kind", kind,
                                      "--compression", "rle", "--threads", "2"});
            EXPECT_EQ(cost.status, 3);
            EXPECT_LT(static_cast<double>(cost.bytes), (there ? 1.2 * kValues : 0) + kProgram);
        }
    }
    // Of a bucket that is mostly outside only what is inside counts.
    std::string bytes = frameOf(kEdge, true);
    const std::int32_t small = 100;
    std::memcpy(&bytes[40], &small, 4);
    std::memcpy(&bytes[44], &small, 4);
    writeFile(folder / "raw.rimg", bytes);
    const ProgramCost cost = costOf(RIMG_PROGRAM, {"convert", folder / "raw.rimg", folder / "out.exr"});
    EXPECT_EQ(cost.status, 3);
    EXPECT_LT(static_cast<double>(cost.bytes), kProgram);
}

// A tile in work takes four times its values, one of them in the values that are loaded.
TEST(ConvertMemory, OfLargeTilesIsNotThatOfARow) {
    if (kSanitized) GTEST_SKIP() << "memory is not the program's alone";
    constexpr int kEdge = 1024, kTiles = 5;
    const TempFolder folder;
    writeFile(folder / "raw.rimg", frameOf(kEdge, true, kTiles));
    const ProgramCost cost = costOf(RIMG_PROGRAM, {"convert", folder / "raw.rimg", folder / "out.exr",
                                                   "--kind", "tiled", "--threads", "2"});
    EXPECT_EQ(cost.status, 3);
    EXPECT_LT(static_cast<double>(cost.bytes), kTiles * 12.0 * kEdge * kEdge + kProgram);
}

// Uncompressed pixels that are not there would be whatever lies in memory.
TEST(ConvertMemory, FromExrIsNothingForPixelsThatAFileCannotHold) {
    const TempFolder folder;
    const std::string in = folder / "in.exr", out = folder / "out.rimg";
    for (const int tile : {0, 4000}) {
        SCOPED_TRACE(tile);
        const Imath::Box2i window{{0, 0}, tile > 0 ? Imath::V2i(3999, 3999) : Imath::V2i(59999999, 0)};
        // Only the headers and the table of one chunk; then a chunk of 20 bytes.
        {
            Imf::Header header(window, window, 1.0f, {0, 0}, 1.0f, Imf::INCREASING_Y, Imf::NO_COMPRESSION);
            header.setType(tile > 0 ? Imf::TILEDIMAGE : Imf::SCANLINEIMAGE);
            if (tile > 0) header.setTileDescription({4000, 4000, Imf::ONE_LEVEL, Imf::ROUND_DOWN});
            for (const char* name : {"R", "G", "B"})
                header.channels().insert(name, Imf::Channel(Imf::HALF));
            const Imf::MultiPartOutputFile file(in.c_str(), &header, 1);
        }
        Bytes chunk;
        if (tile > 0) {
            chunk.i32s({0, 0, 0, 0, 20}).zeros(20);
        } else {
            chunk.i32s({0, 20}).zeros(20);
        }
        std::string bytes = readFile(in);
        const std::uint64_t offset = bytes.size();
        std::memcpy(&bytes[bytes.size() - 8], &offset, 8);
        writeFile(in, bytes + std::string(chunk.begin(), chunk.end()));
        const ProgramCost cost = costOf(RIMG_PROGRAM, {"convert", in, out});
        EXPECT_EQ(cost.status, 4);
        if (!kSanitized) {
            EXPECT_LT(static_cast<double>(cost.bytes), kProgram);
        }
        EXPECT_EQ(parseRaw(out)["setImageData"].size(), 0u);
    }
}
