// What the model makes of the machine: requests to the SMC, what they do to the fans, and heat.
#include <algorithm>
#include <chrono>
#include <cmath>

#include "simulation/machine/FanKey.h"
#include "simulation/oracle/RunModel.h"

namespace airflow::simulation {

namespace {

using concurrency::Duration;
using namespace std::chrono_literals;

/// A fault that is over the key at that moment.
bool isOver(const Fault& fault, const std::string& key, Duration time) {
    return (fault.key == key || fault.key == "*") && fault.from <= time && time < fault.until;
}

bool keepsFromReading(const Fault& fault) {
    const bool isOfWrites = fault.operation == Fault::Operation::write;
    const bool isRefused = (fault.result && *fault.result != 0) || fault.kernelReturn;
    return !isOfWrites && (isRefused || fault.reading || fault.size || fault.type);
}

bool isFalseAnswer(const Fault& fault) {
    const bool hidesRefusal = fault.result && *fault.result == 0;
    return hidesRefusal || fault.effect != Fault::Effect::natural;
}

/// The hottest temperature that the daemon reads: the SMC's only where the hub shows none.
std::optional<double> hottestShown(SimulatedMac& mac, const Scenario& scenario) {
    std::optional<double> hottest;
    const auto add = [&](const Temperatures& temperatures) {
        for (const auto& [name, celsius] : temperatures) {
            if (!std::isnan(celsius)) hottest = std::max(hottest.value_or(celsius), celsius);
        }
    };
    (void)mac.hottest();  // brings both up to date
    if (scenario.machine.hasHIDSymbols) add(mac.hid().temperatures().value_or(Temperatures{}));
    if (!hottest) add(mac.smcTemperatures());
    return hottest;
}

}  // namespace

void RunModel::access(const SMCAccess& access) {
    const bool isWrite = access.operation == Fault::Operation::write;
    const bool isRead = access.operation == Fault::Operation::read;
    const bool isRefused = access.result != 0 || access.kernelReturn != 0;
    if (isRefused && !isRead) lastRefusal = mark(access.time);
    const auto key = fanKey(access.key);
    if (key && key->first < fans.size() && fans[key->first].modeKey == access.key) {
        Fan& fan = fans[key->first];
        if (!isWrite) noteProbe(fan, access, isRefused);
        if (isWrite && access.value == 1) noteForceRequest(fan, access, isRefused);
        if (isWrite && access.value == 0) noteReleaseRequest(fan, access, isRefused);
    }
    if (access.key == "FNum" && !isWrite) {
        const bool isCountRefused = isRefused || (isRead && !access.isNumber);
        if (isCountRefused) {
            for (auto& [id, command] : commands) command.wasCountRefused = true;
        }
        const double told = access.value > 0 ? std::min(access.value, 10.0) : 0;  // NaN: 0
        if (isRead && !isCountRefused) noteCount(static_cast<std::size_t>(told));
        if (!isListening) countedFansAtStart = countedFans;
    }
    clock.answered(access.time, access.latency);
}

void RunModel::noteCount(std::size_t told) {
    countedFans = told;
    for (auto& [id, command] : commands) {
        command.counted = std::min(command.counted.value_or(told), told);
    }
}

void RunModel::noteProbe(Fan& fan, const SMCAccess& access, bool isRefused) {
    const bool isRead = access.operation == Fault::Operation::read;
    const bool isWrong = isRead && !isRefused && fan.isForced != (access.value == 1);
    if (isRefused || isWrong) fan.readableSince = mark(access.time);
    if (isRead && !isRefused) {
        if (fan.isDenied) fan.readableSince = mark(access.time);
        fan.isDenied = false;
        // Once the daemon listens, its sensors may read a key that its start could not.
        if (!isListening) fan.isKnown = fan.isInReleases = true;
    }
    if (!isRefused) return;
    fan.hasFailedProbe = true;
    fan.isDenied = access.result == SimulatedSMC::keyNotFound;
    fan.wasDenied = fan.wasDenied || fan.isDenied;
    if (!fan.isKnown || isRead) return;
    // A write begins with the key's information, and gets no further without it.
    fan.lastRelease = fan.lastForceRequest = mark(access.time);
    lastRefusal = lastForceRefusal = mark(access.time);
    if (fan.isForced) ++fan.refusals;
}

void RunModel::noteForceRequest(Fan& fan, const SMCAccess& access, bool isRefused) {
    fan.isKnown = true;
    if (!isRefused) fan.isInReleases = true;
    if (!isRefused || fan.isMachinesOwn) fan.isForcedInSecret = isRefused && fan.isForced;
    fan.isMachinesOwn = false;
    fan.lastForceRequest = mark(access.time);
    fan.refusedForce.reset();
    if (isRefused) {
        fan.refusedForce = lastForceRefusal = mark(access.time);
    } else {
        fan.givenBack.reset();
        fan.refusals = 0;
    }
}

void RunModel::noteReleaseRequest(Fan& fan, const SMCAccess& access, bool isRefused) {
    fan.isKnown = true;
    fan.lastRelease = mark(access.time);
    if (isRefused) {
        ++fan.refusals;
        return;
    }
    fan.refusals = 0;
    fan.givenBack = mark(access.time);
    if (fan.isForced) fan.isFalselyReleased = true;
}

/// The change comes before the request that makes it, if one does.
void RunModel::modeChanged(Duration time, std::size_t index, FanMode mode) {
    Fan& fan = fans.at(index);
    if (fan.isForced) fan.lastForced = mark(time);
    fan.isForced = mode == FanMode::forced;
    fan.isFalselyReleased = fan.isForcedInSecret = false;
    fan.isMachinesOwn = fan.isForced;
    if (!fan.isForced) return;
    fan.forcedSince = mark(time);
    fan.lastForced = mark(time);
}

void RunModel::noteFaults(Duration time) {
    for (Fan& fan : fans) {
        for (const Fault& fault : scenario.faults) {
            if (!isOver(fault, fan.modeKey, time)) continue;
            if (keepsFromReading(fault)) fan.readableSince = mark(time);
            if (isFalseAnswer(fault)) fan.truthfulSince = mark(time);
        }
    }
}

void RunModel::second(Duration time, SimulatedMac& mac) {
    noteFaults(time);
    if (isUnwanted()) lastUnwanted = mark(time);
    const double hottest = hottestShown(mac, scenario).value_or(0);
    if (hottest >= 94.9) lastHot = mark(time);
    if (hottest < 95.5) hotSince.reset();
    if (hottest >= 95.5 && !hotSince) hotSince = mark(time);
}

}  // namespace airflow::simulation
