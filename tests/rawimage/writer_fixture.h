#pragma once

#include <gtest/gtest.h>
#include <zlib.h>

#include <functional>
#include <memory>
#include <numeric>

#include "rawimage/writer.h"
#include "tests/testing/bytes.h"
#include "tests/testing/fault_stream.h"

// What the tests of the writer write with, what they write, and the bytes they expect of it.
namespace testing_tools {

// A writer whose state the tests may look at.
struct Writer : RIFile {
    using RIFile::header;
    using RIFile::infoTags;
    using RIFile::lastError;
    using RIFile::stream;
    using RIFile::writeMode;
};

using Act = std::function<ErrorCode(Writer&)>;

// What a row of calls said, in their order; "" when all succeeded.
inline std::string said(std::initializer_list<ErrorCode> errors) {
    std::string text;
    for (const ErrorCode& error : errors)
        text += error.describe();
    return text;
}

// A file on a caller's stream, its header written.
struct Session {
    FaultStream stream;
    Writer file;
    Session() {
        stream.Open();
        EXPECT_EQ(said({file.Create(nullptr, &stream), file.WriteHeader(0)}), "");
        stream.clearLog();
    }
};

// Values in blocks of 64 bytes, and the same bytes in one piece.
struct Values : MBVTable {
    Bytes bytes;
    Values(int values, int size, int seed = 0) : MBVTable(size, 64) {
        setCount(values);
        bytes.zeros(static_cast<std::size_t>(values * size));
        std::iota(bytes.begin(), bytes.end(), static_cast<unsigned char>(seed));
        loadFromBuffer(bytes.data(), values);
    }
};

// Channels "c0" to "c5" of the types 1 to 6, aliases 100 to 105 and flags 0 to 5; the last two have no data.
struct Region : MRRegionData {
    std::vector<std::unique_ptr<Values>> values;
    int announced = 6;
    Region(int x, int y, int w, int h) {
        for (int i = 0; i < 6; ++i) {
            values.push_back(
                std::make_unique<Values>(w * h + 1, MUtils::findChannelKind(i + 1)->valueSize, 3 * i + w));
            RegionChannel channel;
            channel.type = static_cast<RegionChannelType>(i + 1);
            channel.alias = static_cast<RegionChannelAlias>(100 + i);
            channel.flags = i;
            std::memcpy(channel.name, "c0", 2);
            channel.name[1] = static_cast<char>('0' + i);
            if (i < 4) channel.data = values.back().get();
            channels.Add(channel);
        }
        x0 = x, x1 = x + w, y0 = y, y1 = y + h, width = w, height = h;
    }
    int numChannels() const override { return announced; }
};

struct Described : MUtils::RegionChannelCallback {
    RegionChannelType getType() override { return RCT_VECTOR; }
    RegionChannelAlias getAlias() override { return RCA_DEPTH; }
    const char* getName() override { return "N.x"; }
    int getFlags() override { return 2; }
};

// What the operations are given.
struct Inputs {
    Values ints{6, 4}, pairs{6, 8}, triples{6, 12}, quads{6, 16}, none{0, 4};
    Region region{10, 20, 3, 2};
    Described described;
    MUtils::Table<MUtils::RegionChannelCallback*, 100> channels;
    RICameraInfo camera{{1, 2, 3, 4, 5, 6, 7, 8, 9, 1, 2, 3, 4, 5, 6, 7}, 8, 9, 1, 2, 3, 4, 5, 6, 7, 8};
    RIRegionInfo box{1, -2, 3, 4, 5};
    RISceneInfo scene{9, "hall"}, unnamed{9, nullptr};
    char blob[7] = {'b', 'l', 'o', 'b', 0, 1, 2};
    MUtils::RGB24 pixels[2] = {{1, 2, 3}, {4, 5, 6}};
    float floats[6] = {1, 2, 3, 4, 5, 6};
    std::string note = std::string(400, 'n');
    Inputs() { channels.Add(&described), channels.Add(nullptr); }
};
inline Inputs in;

// The expected file, tag by tag, and its table.
struct File : Bytes {
    Bytes table;
    int entries = 0;
    File() { fileHeader(0); }
    File& unlisted(std::uint32_t id, const Bytes& payload, std::initializer_list<std::int32_t> p = {}) {
        tag(id, static_cast<std::uint32_t>(payload.size()), p).raw(payload.data(), payload.size());
        return *this;
    }
    File& listed(std::uint32_t id, const Bytes& payload, std::initializer_list<std::int32_t> p = {}) {
        table.tag(id, static_cast<std::uint32_t>(payload.size()), p).u64(size());
        ++entries;
        return unlisted(id, payload, p);
    }
    File& closed() {
        const std::uint64_t offset = size();
        std::memcpy(data() + 12, &offset, 8);
        return unlisted(263, table, {entries});
    }
    // The data of `region`, last channel first, down to the channel `lowest`.
    File& zipped(const Region& region, int p6, int p7, int lowest = 0) {
        const std::uint32_t tags[] = {260, 258, 259, 261};
        for (int i = 3; i >= lowest; --i) {
            const Values& values = *region.values[static_cast<std::size_t>(i)];
            const auto size = static_cast<uLong>(region.width * region.height * values.itemSize);
            uLongf length = compressBound(size);
            Bytes zip = Bytes().zeros(length);
            EXPECT_EQ(compress2(zip.data(), &length, values.bytes.data(), size, 9), Z_OK);
            zip.resize(length);
            listed(tags[i], zip, {i + 1, region.x0, region.y0, region.width, region.height, p6, p7, i});
        }
        return *this;
    }
};

constexpr const char* kTagFailed = "WriteTagHeader: Error writing tag header. (-1)";

}  // namespace testing_tools
