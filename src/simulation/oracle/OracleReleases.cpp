#include "simulation/oracle/OracleReleases.h"

#include <fmt/format.h>

#include <chrono>

namespace airflow::simulation {

namespace {

using concurrency::Duration;
using Mark = DriverClock::Mark;
using namespace std::chrono_literals;

constexpr Duration promptly = 1s;
constexpr Duration retryPeriod = 2500ms;
/// The guard looks every 2.0 s.
constexpr Duration lookPeriod = 2500ms;
/// A fan that the SMC said had gone back is looked at 2.0 s after that, and then as any other.
constexpr Duration secondLook = 4500ms;
/// Of a fan whose 1 was refused: 5.0 s, with the guard's period.
constexpr Duration lookAfterRefusal = 6500ms;

/// Whether fans are judged at all: an exit is by its own bound, and only root controls fans.
bool isJudging(const RunModel& run) {
    return run.isRunning && !run.exiting && run.scenario.effectiveUserID == 0;
}

}  // namespace

void ReleaseMonitor::looked(Duration now, SimulatedMac&) {
    for (std::size_t i = 0; isJudging(run) && i < run.fans.size(); ++i) {
        const RunModel::Fan& fan = run.fans[i];
        if (RunModel::isJudged(fan) && fan.unwantedSince) judge(i, fan, now);
    }
}

void ReleaseMonitor::judge(std::size_t index, const RunModel::Fan& fan, Duration now) const {
    const Mark reason = DriverClock::later(*fan.unwantedSince, fan.forcedSince);
    const bool wasAsked = fan.lastRelease && fan.lastRelease->time >= reason.time;
    // A fan that the SMC forced and denied is found by the guard alone.
    if (fan.isForcedInSecret) return;
    if (wasAsked && run.since(*fan.lastRelease, now) > retryPeriod) {
        fail(Property::releaseIsRetried, now,
             fmt::format("fan {} was last asked to go back {:.2f} s ago", index,
                         concurrency::inSeconds(run.since(*fan.lastRelease, now))));
    }
    const Duration looked =
        fan.refusedForce ? lookAfterRefusal + run.claims(*fan.refusedForce) : lookPeriod;
    const Duration bound = fan.isInReleases ? promptly : looked;
    if (!wasAsked && run.since(reason, now) > bound) {
        fail(Property::releaseBegins, now,
             fmt::format("fan {} is forced {:.2f} s after the last reason to", index,
                         concurrency::inSeconds(run.since(reason, now))));
    }
}

/// A request that was in the driver's queue when the reason arose is followed by the release's own;
/// while the driver was busy all the time nothing else can have come. What waited for the daemon to
/// listen comes in any order. Nothing else is let pass.
void ReleaseLastsMonitor::askedToForce(std::size_t index, Duration now) {
    const RunModel::Fan& fan = run.fans[index];
    if (!fan.unwantedSince || !run.isListening || run.since(run.listeningSince, now) <= 0s) return;
    const Duration late = run.since(*fan.unwantedSince, now);
    if (late <= 0s) return;
    fail(Property::releaseLasts, now,
         fmt::format("fan {} is to be forced {:.3f} s after the last reason to", index,
                     concurrency::inSeconds(late)));
}

/// A safety release is published when it is over: was any fan forced after its part of it?
void ReleaseLastsMonitor::published(Duration now, const control::ControlState& state) {
    if (!state.cause || !control::isSafetyRelease(*state.cause)) return;
    for (std::size_t i = 0; i < run.fans.size(); ++i) {
        const RunModel::Fan& fan = run.fans[i];
        if (!fan.unwantedSince || !fan.lastRelease || !fan.lastForceRequest) continue;
        const bool isOfIt = fan.lastRelease->time >= fan.unwantedSince->time;
        if (!isOfIt || fan.lastForceRequest->time <= fan.lastRelease->time) continue;
        fail(Property::releaseLasts, now,
             fmt::format("fan {} was to be forced behind its safety release", i));
    }
}

void HiddenFanMonitor::looked(Duration now, SimulatedMac&) {
    for (std::size_t i = 0; isJudging(run) && run.isListening && i < run.fans.size(); ++i) {
        const RunModel::Fan& fan = run.fans[i];
        // Without a key it is the firmware's own. One that the SMC says does not exist is looked
        // for again after the next release.
        const bool canBeFound = !fan.modeKey.empty() && !fan.isDenied && !fan.isMachinesOwn;
        if (!fan.isForced || !fan.unwantedSince || !canBeFound) continue;
        // A fan that the SMC forced and denied is not known to be held: a plan may leave it out.
        const bool isReleased = run.lastRelease && run.lastRelease->time >= fan.forcedSince.time;
        const bool isSecret = fan.isForcedInSecret && isReleased;
        if (fan.isFalselyReleased || isSecret)
            judgeLiedAbout(i, fan, now);
        else if (!fan.isKnown)
            judgeHidden(i, fan, now);
    }
}

void HiddenFanMonitor::judgeHidden(std::size_t index, const RunModel::Fan& fan,
                                   Duration now) const {
    const Mark seen = DriverClock::later(DriverClock::later(*fan.unwantedSince, fan.forcedSince),
                                         DriverClock::later(fan.readableSince, fan.truthfulSince));
    if (run.since(seen, now) <= lookPeriod) return;
    fail(Property::hiddenFansAreFound, now,
         fmt::format("fan {} could be seen to be forced for {:.2f} s", index,
                     concurrency::inSeconds(run.since(seen, now))));
}

void HiddenFanMonitor::judgeLiedAbout(std::size_t index, const RunModel::Fan& fan,
                                      Duration now) const {
    const Mark asked = DriverClock::later(*fan.unwantedSince, fan.lastRelease.value_or(Mark{}));
    Mark seen = DriverClock::later(asked, DriverClock::later(fan.readableSince, fan.truthfulSince));
    Duration bound = secondLook;
    if (fan.isForcedInSecret || fan.refusedForce) {
        seen = DriverClock::later(seen, fan.lastForceRequest.value_or(Mark{}));
        bound = lookAfterRefusal + run.claims(seen);
    }
    if (run.since(seen, now) <= bound) return;
    fail(Property::hiddenFansAreFound, now,
         fmt::format("the SMC has not told the truth of fan {}, and it is forced for {:.2f} s",
                     index, concurrency::inSeconds(run.since(seen, now))));
}

}  // namespace airflow::simulation
