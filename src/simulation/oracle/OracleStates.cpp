#include "simulation/oracle/OracleStates.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <variant>

#include "simulation/machine/FanKey.h"

namespace airflow::simulation {

namespace {

using concurrency::Duration;
using control::ControlMode;
using control::ControlState;
using namespace std::chrono_literals;
using Mark = DriverClock::Mark;

/// Something after which the state has to be published again.
constexpr Duration settling = 3s;

}  // namespace

StateMonitor::StateMonitor(const RunModel& judged, Fail told)
    : Monitor(judged, std::move(told)), targets(judged.fans.size()) {}

void StateMonitor::requested(const SMCAccess& access) {
    const bool isWrite = access.operation == Fault::Operation::write;
    const bool isRefused = access.result != 0 || access.kernelReturn != 0;
    if (access.key == "Ftst" && isWrite && access.value == 0) isForceTestRefused = isRefused;
    const auto key = fanKey(access.key);
    if (!key || key->second != "Tg" || key->first >= targets.size()) return;
    if (isWrite)
        targets[key->first].insert(access.value);  // the state tells what was written, taken or not
    else if (isRefused)
        unwritten.insert(key->first);  // a write gets no further without the key's information
}

void StateMonitor::started(Duration) {
    for (auto& each : targets) each.clear();
    unwritten.clear();
    isForceTestRefused = false;
    standing.reset();
}

void StateMonitor::called(Duration, const Call& call) {
    if (isControl(call.method)) standing.reset();
}

void StateMonitor::reasonArose(Duration now) {
    standing.reset();
    lastReason = run.mark(now);
}

/// A step that was superseded does not wipe the reason of the release that superseded it.
void StateMonitor::published(Duration now, const ControlState& state) {
    lastCause = state.cause;
    const bool isRefused =
        state.cause && std::holds_alternative<control::NotRestored>(*state.cause);
    const bool isSafety = state.cause && control::isSafetyRelease(*state.cause);
    if (isRefused || isSafety) {
        // A plan in force tells of itself with its next step.
        standing.reset();
        // Another release that is under way publishes when it is over.
        const bool isAlone = !lastReason || run.since(*lastReason, now) > 5s;
        const bool isLast = isSafety ? isAlone : run.isUnwanted();
        if (!run.isControlUnderWay() && isLast) standing = state.cause;
        return;
    }
    const bool isQuiet = !run.isControlUnderWay() && !run.exiting;
    const auto* refused = standing ? std::get_if<control::NotRestored>(&*standing) : nullptr;
    const auto isPending = [this](const control::Refusal& refusal) {
        const auto key = fanKey(refusal.key);
        if (!key) return isForceTestRefused;
        if (key->first >= run.fans.size()) return false;
        // Where the SMC has said that the fan went back, and it did not, the reason may go. The
        // guard finds the fan 2 s later, and its request may be the one that is refused.
        const RunModel::Fan& fan = run.fans[key->first];
        return fan.refusals > 0 && !fan.isFalselyReleased;
    };
    const bool isOver = refused && std::ranges::none_of(refused->refusals, isPending);
    if (standing && isQuiet && !isOver) {
        fail(Property::stateIsTrue, now, "the reason is gone: " + description(*standing));
    }
    standing.reset();
}

void StateMonitor::answered(Duration now, const RunModel::Command& command, const Reply& reply) {
    if (!reply.state) return;
    judgeTargets(now, *reply.state);
    // A release publishes when it is over.
    const bool isInBetween = command.wasControlUnderWay || run.isReleaseUnderWay();
    if (isInBetween || run.scenario.effectiveUserID != 0) return;
    judgeIdle(now, *reply.state, command.called);
    judgeHolding(now, *reply.state, command.called);
    judgeGivenBack(now, *reply.state, command.called);
    judgeModes(now, *reply.state);
}

void StateMonitor::judgeTargets(Duration now, const State& state) const {
    for (const auto& [index, target] : state.targets) {
        const auto fan = static_cast<std::size_t>(index);
        const auto isPublished = [rpm = static_cast<double>(target)](double written) {
            return std::abs(written - rpm) <= 1 + std::abs(rpm) * 1e-6;
        };
        const bool isWritten =
            fan < targets.size() &&
            (unwritten.contains(fan) || std::ranges::any_of(targets[fan], isPublished));
        if (isWritten) continue;
        fail(Property::stateIsTrue, now,
             fmt::format("fan {} was never told to turn at {} RPM", index, target));
    }
}

/// A fan that the SMC forced and denied is unknown to the daemon; one that refuses is told of as an
/// error. A control step tells of its first fan when it has claimed its last.
void StateMonitor::judgeIdle(Duration now, const State& state, const Mark& asked) const {
    if (state.isHolding || state.lastError || run.clock.isBusy(now)) return;
    for (std::size_t i = 0; i < run.fans.size(); ++i) {
        const RunModel::Fan& fan = run.fans[i];
        if (!RunModel::isJudged(fan) || fan.refusals > 0 || fan.isForcedInSecret) continue;
        if (!fan.isInReleases) continue;
        if (run.since(fan.forcedSince, asked.time) < 2s + run.claims(fan.forcedSince)) continue;
        fail(Property::stateIsTrue, now, fmt::format("fan {} is held, and the state is idle", i));
    }
}

/// Not where the SMC said that it had forced a fan, and had not.
void StateMonitor::judgeHolding(Duration now, const State& state, const Mark& asked) const {
    const auto isLongAgo = [&](const std::optional<Mark>& mark) {
        return mark && run.since(*mark, asked.time) > settling;
    };
    const auto isOver = [&](const RunModel::Fan& fan) {
        const bool isBack = !fan.lastForceRequest || isLongAgo(fan.givenBack);
        return !fan.isForced && isLongAgo(fan.unwantedSince) && isBack;
    };
    // A tick without temperatures says "holding", whatever it holds.
    const bool isTickOver =
        !lastCause || !std::holds_alternative<control::TemperaturesMissing>(*lastCause);
    if (!state.isHolding || !isTickOver || !std::ranges::all_of(run.fans, isOver)) return;
    fail(Property::stateIsTrue, now, "no fan is held any more, and the state tells of some");
}

void StateMonitor::judgeGivenBack(Duration now, const State& state, const Mark& asked) const {
    std::set<std::int64_t> named;
    for (const auto& [fan, mode] : state.perFanMode) named.insert(fan);
    for (const auto& [fan, target] : state.targets) named.insert(fan);
    // A release of every fan leaves the list of stopped fans to the next control step.
    const auto stopped = run.isUnwanted() ? std::vector<std::int64_t>{}
                                          : state.stoppedFans.value_or(std::vector<std::int64_t>{});
    for (const std::int64_t fan : stopped) {
        const auto index = static_cast<std::size_t>(fan);
        // A plan in force stops a fan that it has not got yet.
        if (index >= run.fans.size() || !run.fans[index].unwantedSince) continue;
        const auto& back = run.fans[index].givenBack;
        const bool isUnwantedSince =
            back && run.lastUnwanted && run.lastUnwanted->time >= back->time;
        const bool isOfRelease = back && run.lastRelease && back->time >= run.lastRelease->time &&
                                 back->time - run.lastRelease->time < 1s;
        if (!isUnwantedSince && !isOfRelease) named.insert(fan);
    }
    for (const std::int64_t fan : named) {
        const auto index = static_cast<std::size_t>(fan);
        const auto back = index < run.fans.size() ? run.fans[index].givenBack : std::nullopt;
        // A tick gives fans back before it claims others, and publishes at its end.
        if (!back || run.since(*back, asked.time) <= settling + run.claims(*back)) continue;
        if (run.fans[index].refusals > 0) continue;  // refused although it is back
        fail(Property::stateIsTrue, now,
             fmt::format("fan {} was given back, and the state tells of it", fan));
    }
}

void StateMonitor::judgeModes(Duration now, const State& state) const {
    for (const auto& [fan, mode] : state.perFanMode) {
        const auto index = static_cast<std::size_t>(fan);
        // A release may be at it.
        if (!run.heldFans.fans().contains(index) || !run.fans[index].isForced) continue;
        const bool isFull = run.heldFans.isAtFullBlast(index);
        if (isFull == (mode == ControlMode::fullBlast)) continue;
        fail(Property::stateIsTrue, now,
             fmt::format("fan {} is {}held at 100 %, and the state tells another mode", fan,
                         isFull ? "" : "not "));
    }
}

void ReasonMonitor::telling(Duration now, const ControlState& state) {
    if (!state.cause && state.lastError) {
        fail(Property::reasonsAreTrue, now, "a text without a reason: " + *state.lastError);
    }
    if (!state.cause) return lastJudged.reset();
    if (state.lastError != description(*state.cause)) {
        fail(Property::reasonsAreTrue, now,
             "the text is not that of the reason: " + description(*state.cause));
    }
    // What is published again was judged when it was new.
    if (lastJudged != state.cause) {
        std::visit([&](const auto& error) { judge(now, error); }, *state.cause);
    }
    lastJudged = state.cause;
}

/// A fan that was forced before is asserted by a step, unless a command claims it anew.
void ReasonMonitor::askedToForce(std::size_t fan, Duration now) {
    const bool isClaim = run.isControlUnderWay() || now - run.lastControl.time < 5s;
    const bool wasForced = run.fans[fan].isForced && now - run.fans[fan].forcedSince.time > 1s;
    if (wasForced && !isClaim) lastStep = now;
}

void ReasonMonitor::started(Duration) {
    lastStep.reset();
    lastJudged.reset();
}

/// The silence may have ended after the release began.
void ReasonMonitor::judge(Duration now, const control::HeartbeatLost&) const {
    const bool wasSilent = run.longSilence && run.since(*run.longSilence, now) < 3s;
    if (wasSilent || run.isSilent(now)) return;
    fail(Property::reasonsAreTrue, now, "no heartbeat is missing");
}

void ReasonMonitor::judge(Duration now, const control::CeilingExceeded& error) const {
    if (error.celsius >= 95 && reachesCeiling(run.scenario)) return;
    fail(Property::reasonsAreTrue, now,
         fmt::format("nothing is too hot, not {} °C either", error.celsius));
}

void ReasonMonitor::judge(Duration now, const control::TemperaturesMissing& error) const {
    if (!error.isReleased() || !readsEverything(run.scenario)) return;
    fail(Property::reasonsAreTrue, now, "temperatures are there");
}

void ReasonMonitor::guarded(Duration now) {
    sinceStep = lastStep ? std::optional(now - *lastStep) : std::nullopt;
}

/// A check that is completed is followed by its step, which asserts what is held. The guard counts
/// the driver's time, too; and a check may come when it has just made up its mind.
void ReasonMonitor::judge(Duration now, const control::ChecksOverdue&) const {
    if (!sinceStep || *sinceStep > 5s) return;
    fail(Property::reasonsAreTrue, now,
         fmt::format("the last check was {:.2f} s before", concurrency::inSeconds(*sinceStep)));
}

/// The fan is given back by now. One that is held counts where nobody has written to it for long: a
/// tick may hang, or have no temperatures.
void ReasonMonitor::judge(Duration now, const control::FanUnattended&) const {
    const auto& held = run.heldFans.fans();
    for (std::size_t i = 0; i < run.fans.size(); ++i) {
        const RunModel::Fan& fan = run.fans[i];
        const bool wasForced = fan.lastForced && run.since(*fan.lastForced, now) < 5s;
        const bool isNeglected = fan.lastForceRequest && run.since(*fan.lastForceRequest, now) > 9s;
        if ((fan.isForced || wasForced) && (isNeglected || !held.contains(i))) return;
    }
    fail(Property::reasonsAreTrue, now, "no fan was forced that nobody held");
}

}  // namespace airflow::simulation
