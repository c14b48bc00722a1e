#include <gtest/gtest.h>

#include <cmath>

#include "sensors/RawReading.h"

namespace airflow::sensors {
namespace {

TEST(RawReading, aMovingChannelHasTheMeanOfItsSamples) {
    const RawReading reading{.label = "die", .samples = {40.0, 41.0, 42.0}};
    EXPECT_EQ(reading.celsius(), 41.0);
    EXPECT_FALSE(reading.isConstant());
}

TEST(RawReading, equalSamplesAreConstant) {
    const RawReading reading{.label = "die", .samples = {40.0, 40.0, 40.0}};
    EXPECT_EQ(reading.celsius(), 40.0);
    EXPECT_TRUE(reading.isConstant());
}

TEST(RawReading, noSamplesAreConstantAtZero) {
    const RawReading reading{.label = "die", .samples = {}};
    EXPECT_EQ(reading.celsius(), 0.0);
    EXPECT_TRUE(reading.isConstant());
}

TEST(RawReading, oneSampleIsConstant) {
    const RawReading reading{.label = "die", .samples = {55.5}};
    EXPECT_EQ(reading.celsius(), 55.5);
    EXPECT_TRUE(reading.isConstant());
}

TEST(RawReading, theSmallestDifferenceInAnySampleIsMovement) {
    const double next = std::nextafter(40.0, 41.0);
    EXPECT_FALSE((RawReading{.label = "die", .samples = {40.0, next, 40.0}}.isConstant()));
    EXPECT_FALSE((RawReading{.label = "die", .samples = {40.0, 40.0, next}}.isConstant()));
    EXPECT_FALSE((RawReading{.label = "die", .samples = {next, 40.0, 40.0}}.isConstant()));
}

}  // namespace
}  // namespace airflow::sensors
