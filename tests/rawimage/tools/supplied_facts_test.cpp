#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "rawimage/tools/recover.h"
#include "tests/testing/check.h"
#include "tests/testing/raw_frame.h"

// Resolution and channel list for a recovered file that has lost them.

using namespace testing_tools;
using namespace MUtils;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

class SuppliedFacts : public testing::Test {
  protected:
    // Six buckets of 20 x 16 in a frame of 60 x 32; `variant` changes the values.
    static Contents frame(float variant, int height = 32, std::vector<RawChannel> channels = {}) {
        RawFrame frame;
        frame.width = 60, frame.height = height;
        if (!channels.empty()) frame.channels = std::move(channels);
        frame.boxes.clear();
        for (int i = 0; i < 6; ++i)
            frame.boxes.push_back({i % 3 * 20, i / 3 * 16, 20, 16, variant});
        MemoryFile file;
        frame.write(file.path());
        return file.bytes();
    }

    RecoverReport recover(const Contents& bytes, const RecoverOptions& options) {
        input_.fill(bytes);
        output_.fill(Contents());
        return recoverFile(input_.path(), output_.path(), options);
    }
    RecoverOptions like(const Contents& sibling) {
        sibling_.fill(sibling);
        RecoverOptions options;
        options.like = sibling_.path();
        return options;
    }

    const Contents whole_ = frame(1);
    // Never closed, without file header, resolution, bucket size and channel list.
    Contents headless_ = opened(whole_);
    MemoryFile input_, output_, sibling_;

    SuppliedFacts() { std::fill_n(headless_.begin(), 32 + 40 + 40 + 40 + 3 * 80, 0); }
};

TEST_F(SuppliedFacts, AreNamedWhereTheyAreMissing) {
    const RecoverReport report = recover(headless_, {});
    ASSERT_EQ(report.state, RecoverState::kGood);
    EXPECT_EQ(report.tagsOfPixels, 18);
    EXPECT_TRUE(report.lacksResolution && report.lacksChannels);
    EXPECT_THAT(report.supplied, IsEmpty());
    const RecoverReport sound = recover(whole_, {});
    EXPECT_FALSE(sound.lacksResolution || sound.lacksChannels);
}

TEST_F(SuppliedFacts, ComeFromASiblingAsItsTags) {
    const RecoverReport report = recover(headless_, like(frame(2)));
    ASSERT_EQ(report.state, RecoverState::kGood) << report.cause;
    EXPECT_FALSE(report.lacksResolution || report.lacksChannels);
    EXPECT_THAT(report.supplied, ElementsAre(TAG_RESOLUTION, TAG_CHANNEL_INFO));
    EXPECT_EQ(verdict(output_.bytes()), "good");
    const std::vector<std::string> written = tagsOf(opened(whole_)), got = tagsOf(opened(output_.bytes()));
    ASSERT_EQ(got.size(), 2u + 18u);
    EXPECT_EQ(got[0], written[0]) << "the resolution";
    EXPECT_EQ(got[1], written[2]) << "the channel list";
    EXPECT_TRUE(std::equal(got.begin() + 2, got.end(), written.begin() + 3)) << "the pixels";

    // What the input has itself stays.
    EXPECT_THAT(recover(whole_, like(frame(2, 48))).supplied, IsEmpty());
    EXPECT_EQ(difference(output_.bytes(), whole_), "");
}

TEST_F(SuppliedFacts, AResolutionAloneLeavesTheListMissing) {
    RecoverOptions options;
    options.width = 60, options.height = 32;
    const RecoverReport report = recover(headless_, options);
    ASSERT_EQ(report.state, RecoverState::kGood);
    EXPECT_THAT(report.supplied, ElementsAre(TAG_RESOLUTION));
    EXPECT_TRUE(report.lacksChannels && !report.lacksResolution);
    EXPECT_EQ(tagsOf(opened(output_.bytes()))[0], tagsOf(whole_)[0]);
    // It counts for more than the sibling's.
    RecoverOptions both = like(frame(2, 48));
    both.width = 60, both.height = 32;
    EXPECT_EQ(recover(headless_, both).state, RecoverState::kGood);
    EXPECT_EQ(tagsOf(opened(output_.bytes()))[0], tagsOf(whole_)[0]);
}

TEST_F(SuppliedFacts, ThatThePixelsContradictAreRefused) {
    const auto causeOf = [&](const RecoverOptions& options, RecoverState state) {
        const RecoverReport report = recover(headless_, options);
        EXPECT_EQ(report.state, state);
        EXPECT_TRUE(output_.bytes().empty()) << "nothing is written";
        return report.cause;
    };
    const auto sibling = [&](const Contents& bytes) { return causeOf(like(bytes), RecoverState::kMismatch); };
    EXPECT_THAT(sibling(frame(2, 32, {{2, 126, "color"}, {1, 125, "alpha"}, {4, 0, "id"}})),
                HasSubstr("channel 1, alpha, is of another type"));
    EXPECT_THAT(sibling(frame(2, 32, {{2, 126, "color"}})), HasSubstr("channel 1 is not in its list"));
    EXPECT_THAT(sibling(frame(2, 16)), HasSubstr("60x16"));
    EXPECT_THAT(sibling(headless_), HasSubstr("missing there, too"));
    RecoverOptions tooSmall;
    tooSmall.width = tooSmall.height = 32;
    EXPECT_THAT(causeOf(tooSmall, RecoverState::kMismatch), HasSubstr("32x32"));
    RecoverOptions none;
    none.like = "/no/such/file";
    EXPECT_THAT(causeOf(none, RecoverState::kCannotOpen), HasSubstr("/no/such/file: No such file"));
}

// A single tag whose channel or place is damaged does not make a stranger of the right sibling.
TEST_F(SuppliedFacts, ADamagedTagDoesNotDenyTheSibling) {
    const std::size_t pixels = 32 + 40 + 40 + 40 + 3 * 80;
    for (const std::size_t field : {std::size_t{12}, std::size_t{36}}) {
        Contents damaged = headless_;
        damaged[pixels + field + 1] ^= 1;
        EXPECT_EQ(recover(damaged, like(frame(2))).state, RecoverState::kGood) << field;
    }
}

}  // namespace
