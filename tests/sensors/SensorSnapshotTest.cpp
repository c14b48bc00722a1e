#include <gmock/gmock.h>
#include <rapidcheck/gtest.h>

#include <cmath>
#include <cstddef>
#include <initializer_list>
#include <limits>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "sensors/SensorSnapshot.h"
#include "support/Doubles.h"

namespace airflow::sensors {
namespace {

using concurrency::Date;
using concurrency::Seconds;
using tests::infinity;
using tests::notANumber;

/// Readings with the keys "0", "1" and so on.
SensorSnapshot readings(const std::vector<double>& temperatures) {
    SensorSnapshot snapshot;
    for (const double celsius : temperatures) {
        snapshot.temps.push_back({.key = std::to_string(snapshot.temps.size()),
                                  .name = "",
                                  .celsius = celsius,
                                  .category = SensorCategory::cpu,
                                  .source = SensorSource::smc});
    }
    return snapshot;
}

/// The key of the hottest of these readings.
std::string hottest(std::initializer_list<double> temperatures) {
    const auto found = readings(temperatures).hottest();
    return found ? found->key : "absent";
}

TEST(SensorSnapshot, emptyHoldsNothingFromTheDistantPast) {
    const SensorSnapshot& empty = SensorSnapshot::empty();
    EXPECT_TRUE(empty.fans.empty());
    EXPECT_TRUE(empty.temps.empty());
    EXPECT_EQ(empty.timestamp, concurrency::distantPast);
    EXPECT_EQ(empty.timestamp.time_since_epoch().count(), -std::numeric_limits<double>::max());
}

TEST(SensorSnapshot, emptyIsCreatedOnce) {
    const SensorSnapshot* elsewhere = nullptr;
    std::thread([&elsewhere] { elsewhere = &SensorSnapshot::empty(); }).join();
    EXPECT_EQ(&SensorSnapshot::empty(), elsewhere);
    EXPECT_EQ(&SensorSnapshot::empty(), &SensorSnapshot::empty());
}

TEST(SensorSnapshot, theHottestOfNoneIsAbsent) {
    EXPECT_EQ(SensorSnapshot::empty().hottest(), std::nullopt);
}

TEST(SensorSnapshot, theHottestIsTheWholeReading) {
    const auto found = readings({40, 71}).hottest();
    EXPECT_EQ(found, (TempSensor{.key = "1",
                                 .name = "",
                                 .celsius = 71,
                                 .category = SensorCategory::cpu,
                                 .source = SensorSource::smc}));
}

TEST(SensorSnapshot, theHottestMayStandAnywhere) {
    EXPECT_EQ(hottest({50}), "0");
    EXPECT_EQ(hottest({71, 50, 60}), "0");
    EXPECT_EQ(hottest({50, 71, 60}), "1");
    EXPECT_EQ(hottest({50, 60, 71}), "2");
}

TEST(SensorSnapshot, theFirstOfEqualsIsTheHottest) {
    EXPECT_EQ(hottest({71.0, 71.0}), "0");
    EXPECT_EQ(hottest({50.0, 71.0, 71.0, 60.0, 71.0}), "1");
    EXPECT_EQ(hottest({-0.0, 0.0}), "0");
}

TEST(SensorSnapshot, theLeastBitHotterIsHotter) {
    EXPECT_EQ(hottest({71.0, std::nextafter(71.0, 72.0)}), "1");
    EXPECT_EQ(hottest({71.0, std::nextafter(71.0, 70.0)}), "0");
}

TEST(SensorSnapshot, frostAndInfinityAreTemperaturesToo) {
    EXPECT_EQ(hottest({-20, -10, -30}), "1");
    EXPECT_EQ(hottest({-infinity, -273.15}), "1");
    EXPECT_EQ(hottest({95, infinity, infinity}), "1");
}

TEST(SensorSnapshot, aLaterReadingThatIsNotANumberIsNeverTheHottest) {
    EXPECT_EQ(hottest({50, notANumber}), "0");
    EXPECT_EQ(hottest({50, notANumber, 71}), "2");
    EXPECT_EQ(hottest({-infinity, notANumber}), "0");
}

TEST(SensorSnapshot, aFirstReadingThatIsNotANumberIsTheHottest) {
    EXPECT_EQ(hottest({notANumber}), "0");
    EXPECT_EQ(hottest({notANumber, 95}), "0");
    EXPECT_EQ(hottest({notANumber, infinity, notANumber}), "0");
}

RC_GTEST_PROP(SensorSnapshot, nothingIsHotterThanTheHottestNorAsHotBeforeIt, ()) {
    // Few values, so that equals are common; 9 stands for a reading that is not a number.
    auto temperatures = *rc::gen::nonEmpty(rc::gen::container<std::vector<double>>(rc::gen::map(
        rc::gen::inRange(0, 10), [](int n) { return n == 9 ? notANumber : double(n); })));
    const auto found = readings(temperatures).hottest();
    RC_ASSERT(found.has_value());
    const std::size_t position = std::stoul(found->key);
    if (std::isnan(found->celsius)) {
        RC_ASSERT(position == 0u);
        return;
    }
    for (std::size_t at = 0; at < temperatures.size(); ++at) {
        RC_ASSERT(!(temperatures[at] > found->celsius));
        RC_ASSERT(at >= position || temperatures[at] != found->celsius);
    }
}

TEST(SensorSnapshot, everyFieldTakesPartInEquality) {
    const SensorSnapshot snapshot{
        .fans = {Fan{}}, .temps = readings({50}).temps, .timestamp = Date(Seconds(100))};
    SensorSnapshot other = snapshot;
    EXPECT_EQ(other, snapshot);
    other.fans.clear();
    EXPECT_NE(other, snapshot);
    other = snapshot;
    other.temps.clear();
    EXPECT_NE(other, snapshot);
    other = snapshot;
    other.timestamp += Seconds(1);
    EXPECT_NE(other, snapshot);
}

TEST(SensorSnapshot, theOrderOfReadingsTakesPartInEquality) {
    SensorSnapshot turned = readings({50, 60});
    std::swap(turned.temps[0], turned.temps[1]);
    EXPECT_NE(turned, readings({50, 60}));
}

}  // namespace
}  // namespace airflow::sensors
