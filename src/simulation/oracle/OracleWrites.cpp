#include "simulation/oracle/OracleWrites.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <chrono>
#include <cmath>

#include "simulation/machine/FanKey.h"

namespace airflow::simulation {

namespace {

using concurrency::Duration;
using namespace std::chrono_literals;

bool isSwitch(double value) {
    return value == 0 || value == 1;
}

}  // namespace

AllowedWritesMonitor::AllowedWritesMonitor(const RunModel& judged, Fail told)
    : Monitor(judged, std::move(told)), limits(judged.fans.size()) {}

void AllowedWritesMonitor::requested(const SMCAccess& access) {
    if (access.operation == Fault::Operation::write) return judgeWrite(access);
    const auto key = fanKey(access.key);
    const bool isLimit = key && (key->second == "Mn" || key->second == "Mx");
    if (isLimit && key->first < limits.size()) noteLimit(key->first, access);
}

void AllowedWritesMonitor::started(Duration) {
    for (auto& each : limits) each.clear();
}

void AllowedWritesMonitor::judgeWrite(const SMCAccess& access) const {
    if (access.key == "Ftst" && isSwitch(access.value)) return;
    if (const auto key = fanKey(access.key); key && key->first < limits.size()) {
        const bool isModeKey = key->second == "Md" || key->second == "md";
        if (isModeKey && isSwitch(access.value)) return;
        if (key->second == "Tg") return judgeTarget(key->first, access);
    }
    fail(Property::onlyAllowedWrites, access.time,
         fmt::format("{}={} was written", access.key, access.value));
}

/// A control step uses the limits of its own snapshot, which need not be the latest.
void AllowedWritesMonitor::judgeTarget(std::size_t fan, const SMCAccess& access) const {
    if (access.value == 0) return;
    const auto& known = limits[fan];
    const double rounding = 1 + std::abs(access.value) * 1e-6;  // the SMC's numbers are short
    const bool isWithin = known.empty() || (access.value >= *known.begin() - rounding &&
                                            access.value <= *known.rbegin() + rounding);
    if (std::isfinite(access.value) && isWithin) return;
    fail(Property::onlyAllowedWrites, access.time,
         fmt::format("{}={} was written; the limits read were {}", access.key, access.value,
                     fmt::join(known, ", ")));
}

/// A speed that cannot be read is 0.
void AllowedWritesMonitor::noteLimit(std::size_t fan, const SMCAccess& access) {
    const bool hasFailed = access.result != 0 || access.kernelReturn != 0;
    const bool isNumber = !hasFailed && std::isfinite(access.value);
    const bool isRead = access.operation == Fault::Operation::read;
    if (hasFailed || isRead) limits[fan].insert(isNumber ? access.value : 0);
}

void ForceTestMonitor::requested(const SMCAccess& access) {
    const bool isWrite = access.operation == Fault::Operation::write;
    const bool isRefused = access.result != 0 || access.kernelReturn != 0;
    if (isWrite) lastWrite = run.mark(access.time);
    if (!isWrite && access.key == "FNum") {  // a tick begins, and publishes when it is over
        isTickUnderWay = true;
        isDue = false;
    }
    if (access.key != "Ftst") return;
    if (isWrite && access.value == 1) lastRaised = run.mark(access.time);
    // A write begins with the key's information, and gets no further without it.
    if ((isWrite && access.value == 1) || (!isWrite && isRefused)) isDue = false;
    if (!isWrite) return;
    hasLowered = access.value == 0 && !isRefused;  // or the SMC says so
    if (hasLowered) lastLowered = run.mark(access.time);
}

/// Whether the next mode key that is written 0 can only be of the release that begins now: nothing
/// else has raised Ftst a moment ago, and would go on with that, and no control step is about to
/// give back fans that it has not found.
bool ForceTestMonitor::isNothingElseAtWork(Duration now) const {
    const auto isRetried = [](const RunModel::Fan& fan) { return fan.refusals > 0; };
    const auto isCommand = [](const auto& entry) { return !isRelease(entry.second.method); };
    const bool isReleasing = (lastReason && run.since(*lastReason, now) < 1s) ||
                             (lastRaised && run.since(*lastRaised, now) < 1s);
    return !isReleasing && !isTickUnderWay && !run.clock.isBusy(now) &&
           std::ranges::none_of(run.fans, isRetried) &&
           std::ranges::none_of(run.commands, isCommand);
}

void ForceTestMonitor::reasonArose(Duration now) {
    isDue = run.isListening && isNothingElseAtWork(now);
    lastReason = run.mark(now);
}

void ForceTestMonitor::called(Duration, const Call& call) {
    if (isControl(call.method)) isDue = false;
}

void ForceTestMonitor::started(Duration) {
    isDue = hasLowered = isTickUnderWay = false;
    lastReason.reset();
    lastRaised.reset();
    lastLowered.reset();
}

void ForceTestMonitor::askedToRelease(std::size_t fan, Duration now) {
    if (!isDue) return;
    fail(Property::forceTestComesFirst, now,
         fmt::format("fan {} is given back before Ftst was raised", fan));
}

/// A fan that refuses is given back by itself, and Ftst stays as it is: another may be held.
void ForceTestMonitor::looked(Duration now, SimulatedMac& mac) {
    if (!run.isListening || run.exiting || !run.lastRelease) return;
    if (run.scenario.effectiveUserID != 0) return;
    if (!run.isUnwanted() || run.isAnyForced() || run.isControlUnderWay()) return;
    // Whatever was refused since, a retry that gave the last fan back may have been the end of it.
    const auto& refused = run.lastRefusal;
    const bool isLatest = refused && (!lastLowered || refused->time >= lastLowered->time);
    const bool isRetried = refused && lastRaised && run.since(*refused, lastRaised->time) < 6s;
    const bool wasRefused = isLatest || isRetried;
    const bool isDone = hasLowered || !mac.forceTest();
    if (wasRefused || isDone || run.since(lastWrite, now) <= 3s) return;
    fail(Property::forceTestIsLowered, now, "Ftst is on and no fan is forced");
}

}  // namespace airflow::simulation
