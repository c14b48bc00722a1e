#include <gtest/gtest.h>

#include <concepts>
#include <type_traits>

#include "control/FanControlling.h"

namespace airflow::numbers {
namespace {

template <typename Quantity>
constexpr bool isConvertible =
    std::is_convertible_v<int, Quantity> || std::is_convertible_v<Quantity, double> ||
    std::is_constructible_v<double, Quantity>;

/// Every pair of two units, whichever type their numbers have.
template <typename One, typename Other>
constexpr bool areExchangeable =
    std::is_constructible_v<One, Other> || std::is_constructible_v<Other, One> ||
    std::equality_comparable_with<One, Other>;

TEST(Units, areNeitherMadeOfNumbersNorTurnedIntoThemUnasked) {
    EXPECT_FALSE(isConvertible<FanIndex>);
    EXPECT_FALSE(isConvertible<WholeRPM>);
    EXPECT_FALSE(isConvertible<RPM>);
    EXPECT_FALSE(isConvertible<Percent>);
}

TEST(Units, canBeNeitherComparedNorExchanged) {
    EXPECT_FALSE((areExchangeable<FanIndex, WholeRPM>));
    EXPECT_FALSE((areExchangeable<FanIndex, RPM>));
    EXPECT_FALSE((areExchangeable<FanIndex, Percent>));
    EXPECT_FALSE((areExchangeable<WholeRPM, RPM>));
    EXPECT_FALSE((areExchangeable<WholeRPM, Percent>));
    EXPECT_FALSE((areExchangeable<RPM, Percent>));
}

TEST(Units, keepTheNumbersThatTheyAreMadeOf) {
    EXPECT_EQ(FanIndex(-1).value(), -1);
    EXPECT_EQ(RPM(0.5).value(), 0.5);
    EXPECT_LT(Percent(2.5), Percent(3));
    EXPECT_EQ(WholeRPM(3000), WholeRPM(3000));
}

using control::FanControlling;

template <typename Fan, typename Speed>
concept CanBeHeldAt = requires(FanControlling& controller, Fan fan, Speed speed) {
    controller.setManual(fan, speed);
};

TEST(ACommandForAFan, doesNotCompileWithIndexAndSpeedSwapped) {
    EXPECT_TRUE((CanBeHeldAt<FanIndex, WholeRPM>));
    EXPECT_FALSE((CanBeHeldAt<WholeRPM, FanIndex>));
    EXPECT_FALSE((CanBeHeldAt<int, int>));
}

}  // namespace
}  // namespace airflow::numbers
