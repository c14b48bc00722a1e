#include "simulation/oracle/OracleWatching.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>

namespace airflow::simulation {

namespace {

using concurrency::Duration;
using Mark = DriverClock::Mark;
using namespace std::chrono_literals;

constexpr Duration silenceLimit = 15s;
/// From the limit to the tick that finds it: 1.5 s, with its snapshot and its writes.
constexpr Duration tick = 5s;
/// From the limit to the guard, which waits for the tick first.
constexpr Duration guard = 9s;
/// Once a second, and the look's own requests.
constexpr Duration guardPeriod = 1500ms;
/// From the last completed check to the guard.
constexpr Duration checkLimit = 12s;

}  // namespace

/// The hold loop tells its state after each check, but a retry tells of its own, too: while the HID
/// hub hangs there are no checks.
bool WatchMonitor::areChecksMade(Duration now) const {
    const auto isHung = [now](const HIDHang& hang) {
        return hang.from <= now && (now < hang.until || now - hang.until < tick);
    };
    if (std::ranges::any_of(run.scenario.hidHangs, isHung)) return false;
    return run.since(run.lastCheck, now) <= tick + run.claims(run.lastCheck);
}

void WatchMonitor::looked(Duration now, SimulatedMac&) {
    if (!run.isListening || run.exiting || run.scenario.effectiveUserID != 0) return;
    for (std::size_t i = 0; i < run.fans.size(); ++i) {
        const RunModel::Fan& fan = run.fans[i];
        if (!RunModel::isJudged(fan) || run.isPending(fan, now)) continue;
        judgeSilence(i, now);
        judgeHeat(i, fan, now);
        judgeChecks(i, fan, now);
    }
}

/// A wall clock that was set back keeps the hold loop's watchdog from firing, and checks that are
/// not made do: the guard counts monotonic time.
void WatchMonitor::judgeSilence(std::size_t index, Duration now) const {
    const bool isLeftToGuard = run.clockBack > 0 || !areChecksMade(now);
    const Duration bound =
        silenceLimit + (isLeftToGuard ? guard : tick) + run.claims(run.lastHeard);
    if (run.since(run.lastHeard, now) <= bound) return;
    // What a plan in force takes again meanwhile, the guard gives back with its next look.
    if (isLeftToGuard && run.since(run.fans[index].forcedSince, now) <= guardPeriod) return;
    fail(Property::silenceEndsControl, now,
         fmt::format("fan {} is forced {:.2f} s after the client was last heard", index,
                     concurrency::inSeconds(run.since(run.lastHeard, now))));
}

/// A plan that comes in the heat is held for a tick. Where no check is made, the ceiling cannot
/// be: then the bound is that of overdue checks.
void WatchMonitor::judgeHeat(std::size_t index, const RunModel::Fan& fan, Duration now) const {
    if (!run.hotSince || !areChecksMade(now) || !showsHeat(run.scenario)) return;
    const Mark begin =
        DriverClock::later(DriverClock::later(*run.hotSince, fan.forcedSince), run.lastControl);
    const bool isChecked = run.lastCheck.time > begin.time;
    if (!isChecked || run.since(begin, now) <= tick + run.claims(begin)) return;
    fail(Property::heatEndsControl, now,
         fmt::format("fan {} is forced {:.2f} s after it became too hot", index,
                     concurrency::inSeconds(run.since(*run.hotSince, now))));
}

void WatchMonitor::judgeChecks(std::size_t index, const RunModel::Fan& fan, Duration now) const {
    if (!fan.isKnown) return;  // nobody has forced it in this life: hiddenFansAreFound
    const Mark asked = fan.lastRelease.value_or(Mark{});  // it was pending until then
    const Mark held = DriverClock::later(fan.forcedSince, run.lastControl);
    const Mark begin = DriverClock::later(DriverClock::later(run.lastCheck, held), asked);
    if (run.since(begin, now) <= checkLimit + run.claims(begin)) return;
    fail(Property::overdueChecksEndControl, now,
         fmt::format("fan {} is forced {:.2f} s after the last check", index,
                     concurrency::inSeconds(run.since(begin, now))));
}

}  // namespace airflow::simulation
