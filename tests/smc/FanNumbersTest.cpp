#include <gtest/gtest.h>

#include <cstdint>

#include "smc/FanNumbers.h"
#include "smc/FourCharCode.h"
#include "support/Doubles.h"

namespace airflow::smc {
namespace {

using tests::infinity;
using tests::notANumber;

TEST(FanNumbers, aCountIsBelievedWithoutItsFraction) {
    EXPECT_EQ(believableFanCount(0), 0);
    EXPECT_EQ(believableFanCount(0.9), 0);
    EXPECT_EQ(believableFanCount(1), 1);
    EXPECT_EQ(believableFanCount(2.99), 2);
    EXPECT_EQ(believableFanCount(9.5), 9);
    EXPECT_EQ(believableFanCount(10), 10);
}

TEST(FanNumbers, aCountIsBelievedUpToWhatKeysCanName) {
    EXPECT_EQ(believableFanCount(10.5), 10);
    EXPECT_EQ(believableFanCount(11), 10);
    EXPECT_EQ(believableFanCount(300), 10);
    EXPECT_EQ(believableFanCount(3e9), 10);
    EXPECT_EQ(believableFanCount(0x1p63), 10);
    EXPECT_EQ(believableFanCount(infinity), 10);
}

TEST(FanNumbers, aNegativeCountMeansNoFans) {
    EXPECT_EQ(believableFanCount(-0.0), 0);
    EXPECT_EQ(believableFanCount(-0.5), 0);
    EXPECT_EQ(believableFanCount(-1), 0);
    EXPECT_EQ(believableFanCount(-3e9), 0);
    EXPECT_EQ(believableFanCount(-infinity), 0);
}

TEST(FanNumbers, aCountThatIsNotANumberIsUnreadable) {
    EXPECT_EQ(believableFanCount(notANumber), std::nullopt);
    EXPECT_EQ(believableFanCount(-notANumber), std::nullopt);
}

TEST(FanNumbers, aFanCanBeNamedWhenItsNumberHasOneDigit) {
    for (std::int64_t fan = 0; fan < 10; ++fan) EXPECT_TRUE(isNameable(fan)) << fan;
    for (const std::int64_t fan : {INT64_MIN, std::int64_t{-1}, std::int64_t{10}, INT64_MAX}) {
        EXPECT_FALSE(isNameable(fan)) << fan;
    }
}

TEST(FanNumbers, theKeyOfAFanThatCanBeNamedHasFourCharacters) {
    EXPECT_EQ(fanKey(0, "Ac"), "F0Ac");
    EXPECT_EQ(fanKey(9, "md"), "F9md");
    EXPECT_EQ(toString(fourCharCode(fanKey(9, "Tg"))), "F9Tg");
}

}  // namespace
}  // namespace airflow::smc
