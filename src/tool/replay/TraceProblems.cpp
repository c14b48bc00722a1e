#include "tool/replay/TraceProblems.h"

#include <fmt/format.h>

#include <set>
#include <utility>

#include "text/Text.h"

namespace airflow::tool {

namespace {

void findInTime(double time, std::optional<double> last, std::vector<std::string>& problems) {
    // Times are written with a few digits: 4.5 may lie a little more than 3 behind 1.5.
    constexpr double tolerance = 1e-6;
    if (!last) return;
    const double since = time - *last;
    if (since == 0)
        problems.push_back(
            fmt::format("time: {} s is the time of the line before.", text::plain(time)));
    else if (!(since > 0))
        problems.push_back(fmt::format("time: {} s is before the line before ({} s).",
                                       text::plain(time), text::plain(*last)));
    else if (since > TraceProblems::longestGapSeconds + tolerance)
        problems.push_back(
            fmt::format("time: {} s after the line before. The daemon looks every "
                        "1.5 s; {} s at most can be replayed.",
                        text::plain(since), text::plain(TraceProblems::longestGapSeconds)));
}

void findInFans(const std::vector<sensors::Fan>& fans, std::vector<std::string>& problems) {
    std::set<std::int64_t> seen;
    for (std::size_t i = 0; i < fans.size(); ++i) {
        const sensors::Fan& fan = fans[i];
        if (!seen.insert(fan.id).second)
            problems.push_back(fmt::format("fans[{}].id: there are two fans {}.", i, fan.id));
        if (fan.minRPM > fan.maxRPM)
            problems.push_back(fmt::format("fans[{}].minRPM: {} is above maxRPM ({}).", i,
                                           fan.minRPM, fan.maxRPM));
    }
}

void findInTemps(const std::vector<sensors::TempSensor>& temps,
                 std::vector<std::string>& problems) {
    std::set<std::string> seen;
    for (std::size_t i = 0; i < temps.size(); ++i) {
        const auto id = temps[i].id();
        if (!seen.insert(id).second)
            problems.push_back(
                fmt::format("temps[{}].key: there are two sensors {}.", i, text::printable(id)));
    }
}

}  // namespace

std::vector<std::string> TraceProblems::find(const TraceTick& tick) {
    std::vector<std::string> problems;
    findInTime(tick.time, std::exchange(last, tick.time), problems);
    findInFans(tick.snapshot.fans, problems);
    findInTemps(tick.snapshot.temps, problems);
    return problems;
}

}  // namespace airflow::tool
