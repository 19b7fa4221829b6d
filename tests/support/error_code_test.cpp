#include "support/error_code.h"

#include <gtest/gtest.h>

#include <string>

TEST(ErrorCode, ChainIsIndexedFromTheOutside) {
    ErrorCode error;
    EXPECT_TRUE(error.empty());
    EXPECT_EQ(error.getError(), 0);
    EXPECT_EQ(error.describe(), "");
    error.setCause(ErrorCode());
    EXPECT_TRUE(error.empty());
    error.setCause(ErrorCode("outer", -1, "failed at %i of %s", 3, "ten"));
    error.setCause(ErrorCode("middle", 28, "full"));
    error.setCause(ErrorCode("inner", -7, "why\n"));  // goes to the end of the chain
    error.setCause(ErrorCode());
    const ErrorCode copy = error;
    error.setError("again", 5, "was: %s",
                   error.message());  // drops the chain, and may quote what it replaces
    EXPECT_EQ(error.describe(), "again: was: failed at 3 of ten (5)");
    EXPECT_EQ(copy.describe(), "outer: failed at 3 of ten (-1); middle: full (28); inner: why (-7)");
    EXPECT_STREQ(copy.message(2), "why\n");
    EXPECT_EQ(copy.cause()->cause()->getError(), copy.getError(2));
    for (int outside : {-1, 3, 1000}) {
        EXPECT_EQ(copy.getError(outside), 0);
        EXPECT_STREQ(copy.message(outside), "");
    }
}

TEST(ErrorCode, FormatterWritesThroughNothingAndKnowsNoLimit) {
    int untouched = 42;
    EXPECT_STREQ(ErrorCode("", -1, "Id: %n", 7).message(), "Id: %n");
    EXPECT_STREQ(ErrorCode("", -1, "%s%% %-08.3hhn", "100", &untouched).message(), "100% %-08.3hhn");
    EXPECT_EQ(untouched, 42);
    EXPECT_STREQ(ErrorCode("", -1, "%i%%n", 1).message(), "1%n");
    const std::string name(100000, 'x');
    EXPECT_EQ(ErrorCode("", -1, "<%s>", name.c_str()).message(), "<" + name + ">");
    EXPECT_STREQ(ErrorCode(nullptr, -1, nullptr).message(), "");
}
