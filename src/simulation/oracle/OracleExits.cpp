#include "simulation/oracle/OracleExits.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <variant>

namespace airflow::simulation {

namespace {

using concurrency::Duration;
using namespace std::chrono_literals;

constexpr Duration exitLimit = 3s;
constexpr int stoppedByBug = 134;

int statusOf(daemon::Signal signal) {
    return signal == daemon::Signal::terminate ? 143 : 130;
}

/// Something in the scenario stops the process as a bug does: it is no signal, kill or start.
bool stopsProcess(const Scenario& scenario) {
    using Kind = ProcessEvent::Kind;
    return std::ranges::any_of(scenario.events, [](const Event& event) {
        const auto* const process = std::get_if<ProcessEvent>(&event);
        return process && process->kind != Kind::terminate && process->kind != Kind::interrupt &&
               process->kind != Kind::kill && process->kind != Kind::start;
    });
}

}  // namespace

/// What the SMC conceals is found afterwards: a mode key that could not be read, a count that was
/// too low, a fan of which it said that it went back.
void RecoveryMonitor::listening(Duration now) {
    for (std::size_t i = 0; i < run.fans.size(); ++i) {
        const RunModel::Fan& fan = run.fans[i];
        const bool isConcealed = i >= run.countedFansAtStart || fan.isFalselyReleased ||
                                 (!fan.isKnown && fan.hasFailedProbe);
        if (!fan.isForced || fan.modeKey.empty() || fan.isMachinesOwn || isConcealed) continue;
        fail(Property::recoveryComesFirst, now,
             fmt::format("the daemon listens while fan {} is forced", i));
    }
}

void RecoveryMonitor::answered(Duration now, const RunModel::Command&, const Reply& reply) {
    if (run.isListening) return;
    fail(Property::recoveryComesFirst, now,
         fmt::format("{} was answered before the daemon listened", nameOf(reply.method)));
}

/// What was in the driver's queue when the exit began is followed by the restoration's own request;
/// while the driver was busy all the time nothing else can have come.
void ExitMonitor::askedToForce(std::size_t index, Duration now) {
    if (!run.exiting || run.since(*run.exiting, now) <= 0s) return;
    fail(Property::exitRestoresFirst, now,
         fmt::format("fan {} is to be forced while the process exits", index));
}

void ExitMonitor::looked(Duration now, SimulatedMac&) {
    if (run.exiting) judgeTime(now);
}

void ExitMonitor::started(Duration) {
    signalStatus.reset();
    expectedStatus.reset();
    isUpgraded = isAnySignal = false;
}

void ExitMonitor::called(Duration, const Call& call) {
    if (call.method == Call::Method::shutdownForUpgrade) isUpgraded = true;
}

void ExitMonitor::listening(Duration now) {
    if (!run.exiting) return;
    fail(Property::exitRestoresFirst, now, "the daemon begins to listen while it exits");
}

void ExitMonitor::signalled(Duration, daemon::Signal signal) {
    if (signalStatus && *signalStatus != statusOf(signal)) isAnySignal = true;
    if (!signalStatus) signalStatus = statusOf(signal);
}

/// A start that fails and an upgrade may end in the moment in which the signal comes, and then
/// either of the two is first. Of two signals that nobody has handled yet either may be.
void ExitMonitor::exitBegan(Duration) {
    expectedStatus = signalStatus.value_or(1);
    isExpectationSure = !signalStatus || (run.isListening && !isUpgraded && !isAnySignal);
}

void ExitMonitor::judgeTime(Duration now) const {
    const Duration taken = now - run.exiting->time;
    if (taken <= exitLimit) return;
    fail(Property::exitIsInTime, now,
         fmt::format("the exit takes {:.2f} s", concurrency::inSeconds(taken)));
}

/// A fan that the SMC keeps: it refused it, lied about it, or hid it.
bool ExitMonitor::mayStayForced(std::size_t index) const {
    const RunModel::Fan& fan = run.fans[index];
    if (fan.modeKey.empty() || fan.isMachinesOwn || fan.isFalselyReleased || fan.isDenied)
        return true;
    const Mark begin = run.exiting.value_or(Mark{});
    const bool wasAsked = run.exiting && fan.lastRelease && fan.lastRelease->time >= begin.time;
    if (wasAsked && fan.refusals > 0) return true;
    const bool isHidden = !fan.isKnown && run.exiting && fan.readableSince.time >= begin.time;
    const bool isConcealed = !fan.isKnown && index >= run.countedFansAtStart;
    // The guard looks for it again after the next release, 2 s later.
    const bool isThoughtAbsent = !fan.isKnown && fan.wasDenied;
    return isHidden || isConcealed || isThoughtAbsent;
}

void ExitMonitor::judgeFans(Duration now) const {
    const bool isOver = run.exiting && now - run.exiting->time >= exitLimit;
    if (isOver || run.scenario.effectiveUserID != 0) return;
    for (std::size_t i = 0; i < run.fans.size(); ++i) {
        if (!run.fans[i].isForced || mayStayForced(i)) continue;
        fail(Property::exitRestoresFirst, now,
             fmt::format("the process has ended, and fan {} is forced", i));
    }
}

void ExitMonitor::judgeStatus(const ProcessEnd& end) const {
    if (!expectedStatus || !isExpectationSure) return;
    const bool isOfSignal = end.status == 143 || end.status == 130;
    const bool isExpected = *expectedStatus == 1 ? !isOfSignal : end.status == *expectedStatus;
    if (isExpected) return;
    fail(Property::firstExitCounts, end.time,
         fmt::format("the status is {} and not that of the exit that began", end.status));
}

void ExitMonitor::ended(const ProcessEnd& end) {
    if (end.status == stoppedByBug && !stopsProcess(run.scenario)) {
        fail(Property::inputNeverStopsTheProcess, end.time, "the process has stopped itself");
    }
    // Nobody restores in a process that was killed or has stopped itself: the next start does.
    if (end.bySignal || end.status == stoppedByBug) return;
    if (run.exiting) judgeTime(end.time);
    judgeFans(end.time);
    judgeStatus(end);
}

}  // namespace airflow::simulation
