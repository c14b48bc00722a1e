#include <gtest/gtest.h>

#include "simulation/machine/ThermalModel.h"

namespace airflow::simulation {
namespace {

using namespace std::chrono_literals;

constexpr double ambient = 25;
constexpr double lowest = 0.2;

/// Goes on in steps of 0.1 s.
void run(ThermalModel& model, concurrency::Duration from, concurrency::Duration until,
         double airflow) {
    for (auto now = from; now < until; now += 100ms) model.step(now + 100ms, 100ms, airflow);
}

double settled(double watts, double airflow) {
    ThermalModel model({{0s, watts}}, ambient);
    run(model, 0s, 3h, airflow);
    return model.dieCelsius();
}

TEST(ThermalModel, heavyLoadSettlesNearSeventyFiveDegreesAtFullSpeed) {
    EXPECT_NEAR(settled(45, 1), 75, 1);
}

TEST(ThermalModel, heavyLoadSettlesWellAboveNinetyFiveDegreesAtTheLowestSpeed) {
    EXPECT_NEAR(settled(45, lowest), 121, 1);
}

TEST(ThermalModel, withoutAnyFanItGetsHotterStill) {
    EXPECT_GT(settled(45, 0), 150);
}

TEST(ThermalModel, startsWhereIdlingAtTheLowestSpeedSettles) {
    ThermalModel model({}, ambient);
    const double start = model.dieCelsius();
    run(model, 0s, 3h, lowest);
    EXPECT_NEAR(model.dieCelsius(), start, 0.1);
    EXPECT_NEAR(start, 42, 1);
}

TEST(ThermalModel, followsItsLoadFromEachMomentOn) {
    ThermalModel model({{10s, 45.0}, {20s, 8.0}}, ambient);
    const double start = model.dieCelsius();
    run(model, 0s, 9900ms, lowest);
    EXPECT_NEAR(model.dieCelsius(), start, 0.1);
    run(model, 9900ms, 19900ms, lowest);
    const double hot = model.dieCelsius();
    EXPECT_GT(hot, start + 15);
    run(model, 19900ms, 30s, lowest);
    EXPECT_LT(model.dieCelsius(), hot - 10);
}

TEST(ThermalModel, theDieWarmsAtOnceAndTheSinkSlowly) {
    ThermalModel model({{0s, 45.0}}, ambient);
    const double die = model.dieCelsius();
    const double sink = model.sinkCelsius();
    run(model, 0s, 10s, lowest);
    EXPECT_GT(model.dieCelsius() - die, 15);
    EXPECT_LT(model.sinkCelsius() - sink, 3);
}

TEST(ThermalModel, aLoadMayBeGivenForEachMoment) {
    ThermalModel listed({{0s, 10.0}, {30s, 45.0}}, ambient);
    auto asked = ThermalModel::withLoad(
        [](concurrency::Duration now) { return now < 30s ? 10.0 : 45.0; }, ambient);
    run(listed, 0s, 1min, lowest);
    run(asked, 0s, 1min, lowest);
    EXPECT_EQ(asked.dieCelsius(), listed.dieCelsius());
    EXPECT_EQ(asked.sinkCelsius(), listed.sinkCelsius());
}

TEST(ThermalModel, everythingIsRelativeToTheAirAround) {
    ThermalModel cold({{0s, 30.0}}, 5);
    ThermalModel warm({{0s, 30.0}}, 35);
    run(cold, 0s, 10min, 0.5);
    run(warm, 0s, 10min, 0.5);
    EXPECT_NEAR(warm.dieCelsius() - cold.dieCelsius(), 30, 1e-9);
}

}  // namespace
}  // namespace airflow::simulation
