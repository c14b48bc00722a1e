#include <gtest/gtest.h>

#include <concepts>
#include <type_traits>

#include "control/Generation.h"

namespace airflow::control {
namespace {

template <typename Kind>
class AGeneration : public testing::Test {};

using Kinds = testing::Types<ReleaseGeneration, PlanGeneration>;
TYPED_TEST_SUITE(AGeneration, Kinds);

TYPED_TEST(AGeneration, thatWasRememberedEqualsTheOneThatHasNotAdvanced) {
    const TypeParam current;
    const TypeParam remembered = current;
    EXPECT_EQ(remembered, current);
}

TYPED_TEST(AGeneration, thatWasRememberedDiffersFromTheOneThatHasAdvanced) {
    TypeParam current;
    const TypeParam remembered = current;
    current.advance();
    EXPECT_NE(remembered, current);
}

TYPED_TEST(AGeneration, neverComesBack) {
    TypeParam current;
    const TypeParam first = current;
    current.advance();
    const TypeParam second = current;
    for (int event = 0; event < 1000; ++event) {
        current.advance();
        ASSERT_NE(current, first);
        ASSERT_NE(current, second);
    }
}

/// Whether a plan has come says nothing about releases.
TEST(GenerationsOfTwoKinds, canBeNeitherComparedNorExchanged) {
    EXPECT_FALSE((std::equality_comparable_with<ReleaseGeneration, PlanGeneration>));
    EXPECT_FALSE((std::is_convertible_v<ReleaseGeneration, PlanGeneration>));
    EXPECT_FALSE((std::is_constructible_v<PlanGeneration, ReleaseGeneration>));
    EXPECT_FALSE((std::is_assignable_v<ReleaseGeneration&, PlanGeneration>));
}

}  // namespace
}  // namespace airflow::control
