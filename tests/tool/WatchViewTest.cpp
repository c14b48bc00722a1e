#include <gmock/gmock.h>

#include "tool/client/WatchView.h"

namespace airflow::tool {
namespace {

using control::ControlMode;
using control::ControlState;
using testing::ElementsAre;

ControlState held() {
    return {.perFanMode = {{0, ControlMode::curve}, {1, ControlMode::curve}},
            .targets = {{0, 3000}, {1, 0}},
            .isHolding = true,
            .lastError = "F0Md=1 rejected",
            .stoppedFans = {{1}}};
}

MachineSight machine() {
    return {.fans = {{.id = 0, .rpm = 2950.4, .maxRPM = 6000, .mode = "forced"},
                     {.id = 1, .rpm = 0, .maxRPM = 6200, .mode = "forced"}},
            .temperatures = {{"CPU", 71.25}, {"Battery", 31}}};
}

TEST(WatchView, showsFansTemperaturesAndTheLastError) {
    WatchView view;
    view.add({.seconds = 1, .state = held(), .machine = machine()});
    auto later = machine();
    later.temperatures = {{"CPU", 82}, {"Battery", 31}};
    view.add({.seconds = 2, .state = held(), .machine = later});
    EXPECT_THAT(
        view.frame(80, 24),
        ElementsAre("2.0 s  held", "fan 0  curve       ██████████░░░░░░░░░░   2950 RPM  → 3000 RPM",
                    "fan 1  curve       ░░░░░░░░░░░░░░░░░░░░      0 RPM  → stopped",
                    "CPU                    82.0 °C  ▅▆", "Battery                31.0 °C  ▁▁",
                    "last error: F0Md=1 rejected",
                    "The end of this view gives the fans back to Auto."));
    EXPECT_EQ(view.line(),
              "2.0 s  held  fan 0 curve → 3000 RPM (2950 RPM)  fan 1 curve → stopped (0 RPM)  "
              "CPU 82.0 °C  last error: F0Md=1 rejected");
}

TEST(WatchView, withoutAMachineItShowsTheStateAlone) {
    WatchView view;
    view.add({.seconds = 0.5, .state = held()});
    EXPECT_THAT(view.frame(80, 24),
                ElementsAre("0.5 s  held", "fan 0  curve       → 3000 RPM",
                            "fan 1  curve       → stopped", "last error: F0Md=1 rejected",
                            "The end of this view gives the fans back to Auto."));
    EXPECT_EQ(view.line(),
              "0.5 s  held  fan 0 curve → 3000 RPM  fan 1 curve → stopped  last "
              "error: F0Md=1 rejected");
}

TEST(WatchView, anIdleDaemonOfAMachineShowsTheMachinesModes) {
    WatchView view;
    const MachineSight automatic{
        .fans = {{.id = 0, .rpm = 1200, .maxRPM = 6000, .mode = "automatic"}}};
    view.add({.state = ControlState::idle(), .machine = automatic});
    EXPECT_THAT(
        view.frame(80, 24),
        ElementsAre("0.0 s  not held", "fan 0  automatic   ████░░░░░░░░░░░░░░░░   1200 RPM"));
    EXPECT_EQ(view.line(), "0.0 s  not held  fan 0 automatic (1200 RPM)");
}

TEST(WatchView, aSpeedWithoutAMaximumHasNoBar) {
    WatchView view;
    view.add({.state = ControlState::idle(),
              .machine = MachineSight{.fans = {{.id = 3, .rpm = 900, .mode = "forced"}}}});
    EXPECT_THAT(view.frame(80, 24), ElementsAre("0.0 s  not held", "fan 3  forced        900 RPM"));
}

TEST(WatchView, saysWhyThereIsNoState) {
    WatchView view;
    view.add({.trouble = "noHelper: /run/helper.sock: nobody listens there\x1B"});
    EXPECT_THAT(view.frame(80, 24),
                ElementsAre("0.0 s  noHelper: /run/helper.sock: nobody listens there\uFFFD"));
    EXPECT_EQ(view.line(), "0.0 s  noHelper: /run/helper.sock: nobody listens there\uFFFD");
}

TEST(WatchView, noLineIsWiderThanTheScreen) {
    WatchView view;
    view.add({.state = held(), .machine = machine()});
    for (const std::string& line : view.frame(12, 24)) {
        std::size_t characters = 0;
        for (const char byte : line)
            characters += (static_cast<unsigned char>(byte) & 0xC0U) != 0x80;
        EXPECT_LE(characters, 12u) << line;
    }
    EXPECT_EQ(view.frame(12, 24).at(1), "fan 0  curv…");
}

TEST(WatchView, temperaturesThatDoNotFitAreCounted) {
    WatchView view;
    MachineSight many;
    for (const char* name : {"a", "b", "c", "d"}) many.temperatures.emplace_back(name, 40);
    view.add({.state = ControlState::idle(), .machine = many});
    EXPECT_EQ(view.frame(80, 5).size(), 5u);
    EXPECT_EQ(view.frame(80, 5).back(), "d                      40.0 °C  ▂");
    EXPECT_THAT(view.frame(80, 4),
                ElementsAre("0.0 s  not held", "a                      40.0 °C  ▂",
                            "b                      40.0 °C  ▂", "and 2 more"));
    EXPECT_THAT(view.frame(80, 2), ElementsAre("0.0 s  not held", "and 4 more"));
    EXPECT_THAT(view.frame(80, 1), ElementsAre("0.0 s  not held"));
}

TEST(WatchView, aSparklineKeepsTheThirtyNewestReadings) {
    WatchView view;
    for (int reading = 0; reading < 31; ++reading) {
        view.add({.state = ControlState::idle(),
                  .machine = MachineSight{.temperatures = {{"CPU", reading == 0 ? 100.0 : 40.0}}}});
    }
    std::string thirty;
    for (int each = 0; each < 30; ++each) thirty += "▂";
    EXPECT_EQ(view.frame(80, 24).at(1), "CPU                    40.0 °C  " + thirty);
}

TEST(WatchView, aBarIsFilledByItsShare) {
    EXPECT_EQ(barText(0), "░░░░░░░░░░░░░░░░░░░░");
    EXPECT_EQ(barText(0.024), "░░░░░░░░░░░░░░░░░░░░");
    EXPECT_EQ(barText(0.026), "█░░░░░░░░░░░░░░░░░░░");
    EXPECT_EQ(barText(1), "████████████████████");
    EXPECT_EQ(barText(1.5), "████████████████████");
    EXPECT_EQ(barText(-1), "░░░░░░░░░░░░░░░░░░░░");
}

TEST(WatchView, aStepOfASparklineIsTenDegrees) {
    EXPECT_EQ(sparkline({}), "");
    EXPECT_EQ(sparkline({-5, 39.9, 40, 49.9, 50, 60, 70, 80, 90, 99.9, 100, 120}), "▁▁▂▂▃▄▅▆▇▇██");
}

}  // namespace
}  // namespace airflow::tool
