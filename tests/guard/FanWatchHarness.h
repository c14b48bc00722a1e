// FanWatchHarness: what a watch is told, and time that passes meanwhile.
#pragma once

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <cstdint>

#include "guard/FanWatch.h"

namespace airflow::guard {

using namespace std::chrono_literals;
using concurrency::Duration;

inline ModeWrite forcing(std::int64_t fan = 0, bool isTaken = true) {
    return {.fan = fan, .key = "F0Md", .isForcing = true, .isTaken = isTaken};
}
inline ModeWrite givingBack(std::int64_t fan = 0, bool isTaken = true) {
    return {.fan = fan, .key = "F0Md", .isForcing = false, .isTaken = isTaken};
}

/// Looks once a second for so long, with the fan held meanwhile, or a client heard.
struct Course {
    bool isHeard = false;
    bool isChecked = false;
    bool isAsserted = false;
};
inline void pass(FanWatch& watch, Duration time, Course course) {
    for (Duration left = time; left > Duration::zero(); left -= std::min(left, Duration(1s))) {
        if (course.isHeard) watch.heard();
        if (course.isChecked) watch.checked();
        if (course.isAsserted) watch.wrote(forcing());
        watch.elapsed(std::min(left, Duration(1s)), Duration::zero());
    }
}

class FanWatchOfAForcedFan : public testing::Test {
protected:
    FanWatchOfAForcedFan() {
        watch.heard();
        watch.wrote(forcing());
    }
    FanWatch watch;
};

}  // namespace airflow::guard
