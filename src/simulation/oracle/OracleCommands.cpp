#include "simulation/oracle/OracleCommands.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>

namespace airflow::simulation {

namespace {

using concurrency::Duration;
using namespace std::chrono_literals;
using Method = Call::Method;

/// Whether the SMC may have said of a fan that it is forced when it was not, or took it back.
bool mayBeWrong(const Scenario& scenario, const std::string& modeKey) {
    const auto isFalseAnswer = [&](const Fault& fault) {
        const bool isOfKey = fault.key == modeKey || fault.key == "*";
        return isOfKey && (fault.effect != Fault::Effect::natural || fault.result == 0);
    };
    const auto isOfKey = [&](const FirmwareChange& change) { return change.key == modeKey; };
    return scenario.machine.reclaimAfter || std::ranges::any_of(scenario.faults, isFalseAnswer) ||
           std::ranges::any_of(scenario.firmware, isOfKey);
}

}  // namespace

void AnswerMonitor::answeredInVain(Duration now, const Reply& reply) {
    fail(Property::everyCommandIsAnsweredOnce, now,
         fmt::format("{} was answered twice, or to an untrusted peer", nameOf(reply.method)));
}

/// A command claims each fan before its first step and in it, for up to 10 s.
void AnswerMonitor::looked(Duration now, SimulatedMac&) {
    if (!run.isRunning || !run.isListening || run.scenario.effectiveUserID != 0) return;
    for (const auto& [id, command] : run.commands) {
        if (run.since(command.called, now) <= 60s + 2 * run.perFan) continue;
        fail(Property::everyCommandIsAnsweredOnce, now,
             fmt::format("{} has not been answered", nameOf(command.method)));
    }
}

void AppliedMonitor::answered(Duration now, const RunModel::Command& command, const Reply& reply) {
    const bool isApplied = reply.result && reply.result->isApplied();
    if (!isApplied || !command.isControl() || command.manages.empty()) return;
    if (run.scenario.effectiveUserID != 0) return;
    // The guard does not ask what a command is about to hold.
    const bool isGuarded = run.lastGuarded && run.since(*run.lastGuarded, now) < 10s;
    if (!command.wasDisturbed && !isGuarded) judgeFans(now, command);
}

void AppliedMonitor::judgeFans(Duration now, const RunModel::Command& command) const {
    for (const std::size_t index : command.fixes) {
        const bool isCounted = command.method != Method::fullBlast ||
                               index < command.counted.value_or(run.fans.size());
        if (index >= run.fans.size() || !isCounted) continue;
        const RunModel::Fan& fan = run.fans[index];
        const bool wasForced = fan.lastForced && fan.lastForced->time >= command.called.time;
        if (fan.isForced || wasForced || mayBeWrong(run.scenario, fan.modeKey)) continue;
        fail(
            Property::appliedIsTrue, now,
            fmt::format("{} was applied, and fan {} is not forced", nameOf(command.method), index));
    }
}

bool ControlMonitor::mayBeUnsafe(Duration now) const {
    const bool isHot = run.lastHot && run.since(*run.lastHot, now) < 5s;
    // A table may be hot between two looks at the machine.
    const bool mayBeHot = isHot || (reachesCeiling(run.scenario) && !run.scenario.thermal);
    const bool wasSilent = run.longSilence && run.since(*run.longSilence, now) < 5s;
    // The first check comes with the first tick, not with the plan's own step.
    const auto isHung = [now](const HIDHang& hang) {
        return hang.from <= now && (now < hang.until || now - hang.until < 5s);
    };
    const bool areChecksOverdue =
        now - run.lastCheck.time > 5s || std::ranges::any_of(run.scenario.hidHangs, isHung);
    return mayBeHot || !readsEverything(run.scenario) || run.isSilent(now) || wasSilent ||
           areChecksOverdue;
}

void ControlMonitor::askedToRelease(std::size_t index, Duration now) {
    const bool isReleased = run.lastRelease && run.since(*run.lastRelease, now) < 1s;
    const bool isIdle = run.commands.empty() && run.isListening && !run.exiting;
    if (!run.heldFans.fans().contains(index) || isReleased || !isIdle) return;
    if (mayBeUnsafe(now)) return;
    fail(Property::controlLasts, now,
         fmt::format("fan {} is given back, and no one has asked for that", index));
}

}  // namespace airflow::simulation
