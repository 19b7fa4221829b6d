#include "rawimage/format.h"

#include <gtest/gtest.h>

#include <climits>
#include <iterator>
#include <numeric>

#include "tests/testing/bytes.h"

using namespace MUtils;
using namespace testing_tools;

namespace {

// `record` encodes to `expected`, and what that decodes to encodes to it again.
template <class Record>
void expectBytes(void (*encode)(const Record&, unsigned char*), Record (*decode)(const unsigned char*),
                 const Record& record, const Bytes& expected) {
    Bytes bytes;
    bytes.insert(bytes.end(), expected.size(), 0xEE);
    encode(record, bytes.data());
    EXPECT_EQ(difference(bytes, expected), "");
    bytes.assign(expected.size(), 0xEE);
    encode(decode(expected.data()), bytes.data());
    EXPECT_EQ(difference(bytes, expected), "");
}

}  // namespace

TEST(Format, RecordsAreTheirBytes) {
    RIF_HEADER header;
    header.magic = 0x474D4952;
    header.formatFirst = 0x01020304;
    header.formatSecond = 0xFFFFFFFE;
    header.infoTagsOffset = 0x1122334455667788;
    header.flags = 0x80000001;
    header.reserved = 0x99AABBCCDDEEFF00;
    Bytes bytes;
    bytes.text("RIMG\4\3\2\1")
        .u32(0xFFFFFFFE)
        .u64(0x1122334455667788)
        .u32(0x80000001)
        .u64(0x99AABBCCDDEEFF00);
    expectBytes(encodeHeader, decodeHeader, header, bytes);

    INFOTAG entry;
    static_cast<RIF_TAG&>(entry) = {259, 0xFFFFFFFF, 1, -2, 3, INT_MIN, INT_MAX, 6, 7, 8};
    entry.offset = 0x8877665544332211;
    const Bytes tag = Bytes().u32(259).u32(0xFFFFFFFF).i32s({1, -2, 3, INT_MIN, INT_MAX, 6, 7, 8});
    expectBytes<RIF_TAG>(encodeTag, decodeTag, entry, tag);
    expectBytes(encodeInfoTag, decodeInfoTag, entry, Bytes(tag).u64(0x8877665544332211));
}

TEST(Format, ChannelNamesAreCutAt63AndPaddedWithZeros) {
    for (std::size_t length : {0u, 1u, 62u, 63u, 64u, 200u}) {
        const std::string name(length, 'n'), kept = name.substr(0, 63);
        expectBytes(encodeChannel, decodeChannel, makeChannel(7, 6, 126, -1, name.c_str()),
                    Bytes().i32s({7, 6, 126, -1}).text(kept).zeros(64 - kept.size()));
    }
    // A record of another writer may fill its field.
    const std::string name(64, 'x');
    Bytes bytes = Bytes().zeros(16).text(name);
    const RIF_CHANNEL full = decodeChannel(bytes.data());
    EXPECT_EQ(full.name, name);
    encodeChannel(full, bytes.data());
    EXPECT_EQ(difference(bytes, Bytes().zeros(16).text(name.substr(1)).zeros(1)), "");
    EXPECT_STREQ(makeChannel(0, 0, 0, 0, nullptr).name, "");
}

TEST(Format, KindsOfPixels) {
    const struct {
        int type, tag, size;
    } rows[] = {{1, 260, 4}, {2, 258, 12}, {3, 259, 8}, {4, 261, 4}, {5, 258, 12}, {6, 270, 16}};
    for (const auto& row : rows) {
        ASSERT_NE(findChannelKind(row.type), nullptr);
        EXPECT_EQ(static_cast<int>(findChannelKind(row.type)->tagId), row.tag);
        EXPECT_EQ(findChannelKind(row.type)->valueSize, row.size);
        EXPECT_EQ(getChanSize(row.tag), row.size);
        EXPECT_EQ(getChanSize(row.type), -1);  // takes a tag, not a type
    }
    for (int type : {0, 7, -1, 258})
        EXPECT_EQ(findChannelKind(type), nullptr) << type;
    for (int tag : {262, 263, 264, 265, 266, 267, 268, 269, 257, 271, 0, -1, INT_MIN, INT_MAX}) {
        EXPECT_EQ(getChanSize(tag), -1) << tag;
    }
}

TEST(Records, CameraTransformSwapsTwoAxesAndOneSign) {
    RICameraInfo camera{};
    std::iota(std::begin(camera.transform), std::end(camera.transform), 1.0f);
    const MUtils::Transform t = camera.getCameraTransform();
    const float axes[12] = {1, 2, 3, -9, -10, -11, 5, 6, 7, 13, 14, 15};
    EXPECT_EQ(std::memcmp(&t, axes, sizeof axes), 0);
    camera.setCameraTransform(t);
    const float stored[16] = {1, 2, 3, 0, 5, 6, 7, 0, 9, 10, 11, 0, 13, 14, 15, 1};
    EXPECT_EQ(std::memcmp(camera.transform, stored, sizeof stored), 0);
    const MUtils::Matrix one = 1, zero = 0;
    for (int i = 0; i < 9; ++i) {
        EXPECT_EQ(one.axis[i / 3][i % 3], i % 4 == 0 ? 1.0f : 0.0f);
        EXPECT_EQ(zero.axis[i / 3][i % 3], 0.0f);
    }
}

TEST(Records, SceneCopiesItsNameAndKeepsNull) {
    RISceneInfo named(3, "hall"), copy(named);
    EXPECT_NE(copy.name, named.name);
    named.setName(nullptr);
    EXPECT_EQ(copy.value, 3);
    EXPECT_EQ(RISceneInfo(named).name, nullptr);
    EXPECT_STREQ(RISceneInfo(0, "").name, "");
    copy = *&copy;
    copy.setName(copy.name + 1);
    EXPECT_STREQ(copy.name, "all");
    copy = named;
    EXPECT_EQ(copy.name, nullptr);
}
