#include "review/TuningChecks.h"

#include <fmt/format.h>

#include <string>

#include "text/Text.h"

namespace airflow::review {

namespace {

using plan::ControlTuning;
using text::plain;

/// Each tick leaves 1 - alpha of the distance between sensor and smoothed temperature.
void checkSmoothing(double alpha, Report& report) {
    const std::string advice =
        fmt::format("Write a number above 0 and up to 1, such as {}; 1 does not smooth at all.",
                    plain(ControlTuning::defaults().emaAlpha));
    if (alpha <= 0) {
        const char* const effect = alpha == 0 ? "temperatures stay at their first reading"
                                              : "temperatures run away from the sensors";
        report.add(
            Subject::smoothingNotPositive, "/tuning/emaAlpha",
            fmt::format("With a weight of {} for the newest reading, {}.", plain(alpha), effect),
            advice);
    } else if (alpha > 1) {
        const char* const effect = alpha < 2    ? "overshoot the sensors at every change"
                                   : alpha == 2 ? "swing around the sensors for ever"
                                                : "swing around the sensors ever more widely";
        report.add(Subject::smoothingAboveOne, "/tuning/emaAlpha",
                   fmt::format("With a weight of {} for the newest reading, temperatures {}.",
                               plain(alpha), effect),
                   advice);
    }
}

void checkRateLimit(double rpm, Report& report) {
    if (rpm > 0) return;
    const char* const effect =
        rpm < 0 ? "every tick lowers a curve's speed by as much, whatever the temperature"
                : "a curve's speed stays where it begins";
    report.add(Subject::rateLimitNotPositive, "/tuning/maxDeltaRPMPerTick",
               fmt::format("With {} RPM a tick, {}. Fixed speeds and rules are not limited.",
                           plain(rpm), effect),
               fmt::format("Write a number above 0, such as {}.",
                           plain(ControlTuning::defaults().maxDeltaRPMPerTick)));
}

/// Every plan has to have these, so that only a value that somebody has chosen is worth a line.
void checkUnread(double value, double standard, const char* key, Report& report) {
    if (value == standard) return;
    report.add(
        Subject::unreadValue, std::string("/tuning/") + key,
        fmt::format("Nothing reads {}: the daemon only keeps it.", key),
        fmt::format("Write the standard value, {}; the key itself is required.", plain(standard)));
}

}  // namespace

void checkTuning(const ControlTuning& tuning, Report& report) {
    const ControlTuning standard = ControlTuning::defaults();
    checkSmoothing(tuning.emaAlpha, report);
    checkRateLimit(tuning.maxDeltaRPMPerTick, report);
    checkUnread(tuning.hysteresisCelsius, standard.hysteresisCelsius, "hysteresisCelsius", report);
    checkUnread(tuning.minDwellSeconds, standard.minDwellSeconds, "minDwellSeconds", report);
}

}  // namespace airflow::review
