#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "json/Decoder.h"
#include "json/Reasons.h"

namespace airflow::json {

TEST(Decoder, everyWrittenFormOfANumberIsANumber) {
    EXPECT_EQ(decode<double>("2"), 2.0);
    EXPECT_EQ(decode<double>("-2"), -2.0);
    EXPECT_EQ(decode<double>("0.1"), 0.1);
    EXPECT_EQ(decode<double>("1e2"), 100.0);
    EXPECT_EQ(decode<double>("18446744073709551615"), 18446744073709551616.0);
    EXPECT_EQ(decode<double>("18446744073709551616"), 18446744073709551616.0);
    EXPECT_EQ(decode<double>("-9223372036854775809"), -9223372036854775808.0);
    EXPECT_EQ(decode<double>("1e-400"), 0.0);
    EXPECT_TRUE(std::signbit(decode<double>("-0").value_or(1)));
    EXPECT_FALSE(std::signbit(decode<double>("0").value_or(-1)));
}

TEST(Decoder, anIntegerIsWholeHoweverItIsWritten) {
    EXPECT_EQ(decode<Integer>("2"), 2);
    EXPECT_EQ(decode<Integer>("2.0"), 2);
    EXPECT_EQ(decode<Integer>("1e2"), 100);
    EXPECT_EQ(decode<Integer>("1.5e1"), 15);
    EXPECT_EQ(decode<Integer>("-0"), 0);
    EXPECT_EQ(decode<Integer>("-0.0"), 0);
    EXPECT_EQ(decode<Integer>("-3.0"), -3);
    EXPECT_EQ(decode<Integer>("1e18"), 1000000000000000000);
}

TEST(Decoder, aNumberThatIsNotWholeIsNoInteger) {
    EXPECT_EQ(reasonOf<Integer>("1.5"), "The number 1.5 is not whole.");
    EXPECT_EQ(reasonOf<Integer>("-0.5"), "The number -0.5 is not whole.");
    EXPECT_EQ(reasonOf<Integer>("1e-3"), "The number 0.001 is not whole.");
    EXPECT_EQ(reasonOf<Integer>("5e-324"), "The number 5e-324 is not whole.");
}

TEST(Decoder, anIntegerHas64BitsAndASign) {
    using Limits = std::numeric_limits<Integer>;
    EXPECT_EQ(decode<Integer>("9223372036854775807"), Limits::max());
    EXPECT_EQ(decode<Integer>("-9223372036854775808"), Limits::min());
    EXPECT_EQ(decode<Integer>("-9223372036854775808.0"), Limits::min());
    EXPECT_EQ(decode<Integer>("9.223372036854775e18"), 9223372036854774784);
    EXPECT_EQ(reasonOf<Integer>("9223372036854775808"),
              "The number 9223372036854775808 does not fit a signed 64-bit integer.");
    EXPECT_EQ(reasonOf<Integer>("18446744073709551615"),
              "The number 18446744073709551615 does not fit a signed 64-bit integer.");
    EXPECT_EQ(reasonOf<Integer>("18446744073709551616"),
              "The number 1.8446744073709552e+19 does not fit a signed 64-bit integer.");
    EXPECT_EQ(reasonOf<Integer>("-9223372036854775809"),
              "The number -9.223372036854776e+18 does not fit a signed 64-bit integer.");
    EXPECT_EQ(reasonOf<Integer>("9.223372036854776e18"),
              "The number 9.223372036854776e+18 does not fit a signed 64-bit integer.");
    EXPECT_EQ(reasonOf<Integer>("-9.3e18"),
              "The number -9.3e+18 does not fit a signed 64-bit integer.");
    EXPECT_EQ(reasonOf<Integer>("1e300"),
              "The number 1e+300 does not fit a signed 64-bit integer.");
}

}  // namespace airflow::json
