// What the oracle sees of the machine: requests to the SMC, and what they do to the fans.
#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <chrono>
#include <cmath>

#include "simulation/Oracle.h"

namespace airflow::simulation {

using concurrency::Duration;
using namespace std::chrono_literals;

void Oracle::access(const SMCAccess& access) {
    mix(access.key);
    mix(static_cast<std::uint64_t>(access.time.count()));
    mix(std::bit_cast<std::uint64_t>(access.value));
    mix(access.result);
    const bool isWrite = access.operation == Fault::Operation::write;
    if (isWrite) judgeWrite(access);
    const bool isRefused = access.result != 0 || access.kernelReturn != 0;
    if (isRefused && access.operation != Fault::Operation::read) lastRefusal = mark(access.time);
    if (const auto key = fanKey(access.key); !isWrite && key && key->first < fans.size()) {
        noteReading(fans[key->first], key->second, access);
    }
    if (access.key == "FNum" && !isRefused && access.operation == Fault::Operation::read) {
        const double told = access.value > 0 ? std::min(access.value, 10.0) : 0;  // NaN: 0
        const auto count = static_cast<std::size_t>(told);
        if (!isListening) countedFans = count;
        if (count != fans.size()) heldFans.lose();  // a full blast holds those that it is told of
    }
    clock.answered(access.time, access.latency);
}

void Oracle::noteReading(Fan& fan, std::string_view kind, const SMCAccess& access) {
    const bool hasFailed = access.result != 0 || access.kernelReturn != 0;
    if (kind == "Md" || kind == "md") {
        // Once the daemon listens, its sensors may read a key that its start could not.
        const bool isRead = access.operation == Fault::Operation::read;
        if (!hasFailed && isRead && !isListening) fan.isUnknown = false;
        if (!hasFailed) return;
        fan.hasFailedProbe = true;
        // A write begins with the key's information, and gets no further without it.
        fan.lastRequest = mark(access.time);
    }
    if (kind == "Tg" && hasFailed) fan.hasUnwrittenTarget = true;
    const bool isLimit = kind == "Mn" || kind == "Mx";
    if (!isLimit) return;
    // A speed that cannot be read is 0.
    const bool isNumber = !hasFailed && std::isfinite(access.value);
    const bool isRead = access.operation == Fault::Operation::read;
    if (hasFailed || isRead) fan.limits.insert(isNumber ? access.value : 0);
}

void Oracle::noteForceRequest(std::size_t index, const SMCAccess& access, bool isRefused) {
    Fan& fan = fans[index];
    fan.isForcedInSecret = isRefused && fan.isForced;
    fan.refusedForce.reset();
    if (isRefused) fan.refusedForce = lastForceRefusal = mark(access.time);
    const bool isLate = watchEnded && access.time > watchEnded->time && !isControlUnderWay();
    if (!isLate || !isListening) return;
    if (!isRefused) wasOvertaken = true;  // as far as the daemon knows
    // What comes before the release's own was asked before: the driver takes one request at a time.
    if (!hasBegunRelease) return;
    latecomers.insert(index);
    if (latecomers.size() <= std::max(claimsUnderWay, std::size_t{1})) return;
    fail(Property::releaseLasts, access.time,
         fmt::format("another fan, {}, is to be forced after a release", index));
}

void Oracle::noteReleaseRequest(std::size_t index, const SMCAccess& access, bool isRefused) {
    Fan& fan = fans[index];
    judgeReason(index, access);
    fan.lastRequest = mark(access.time);
    hasBegunRelease = true;
    if (isRefused) {
        ++fan.refusals;
        return;
    }
    if (fan.refusals >= 10) count("a fan refused ten times in a row and then went back");
    fan.refusals = 0;
    if (!fan.isForced) return;
    fan.isLiedAbout = true;
    count("the SMC said that a fan went back when it did not");
}

void Oracle::modeChanged(Duration time, std::size_t index, FanMode mode) {
    mix(index * 4 + static_cast<std::uint64_t>(mode));
    Fan& fan = fans.at(index);
    if (fan.isForced) fan.lastForced = mark(time);
    fan.isForced = mode == FanMode::forced;
    fan.isLiedAbout = false;
    fan.overtaken = Overtaken::no;
    fan.isForcedInSecret = false;
    if (mode == FanMode::reclaimed) count("the firmware took a fan back");
    if (!fan.isForced) return;
    fan.forcedSince = mark(time);
    fan.isUnknown = false;
    if (isRunning) noteOvertaken(time, index);
    fan.lastForced = mark(time);
}

/// The only command under way, if there is one and nothing got in its way.
const Oracle::Command* Oracle::undisturbedCommand() const {
    const bool isAlone = commands.size() == 1 && !commands.begin()->second.wasDisturbed;
    return isAlone ? &commands.begin()->second : nullptr;
}

/// A command's own claim is followed by its hold loop, which then watches. Not so what its control
/// step claims: that comes behind the beginning of the loop, which the release has ended. Such a
/// fan was forced when the command came, or just before, or by the command: a release that is not
/// over yet has not told the daemon that a fan went back. And of several commands each
/// may go on with a claim that another has lost; a plan without fans claims none.
bool Oracle::isCommandsOwn(const Fan& fan) const {
    const Command* const command = undisturbedCommand();
    if (!command || !isControlUnderWay() || !command->managesFans) return false;
    return !fan.lastForced || DriverClock::between(*fan.lastForced, command->called) >= 1s;
}

void Oracle::noteOvertaken(Duration time, std::size_t index) {
    Fan& fan = fans[index];
    const Command* const command = undisturbedCommand();
    // Two commands at once, or a command and a control step: the older one may force a fan that the
    // newer one gave back. Or a step and a retry that gives back what it should not.
    const bool isCollision =
        fan.lastRequest && (command ? fan.lastRequest->time >= command->called.time
                                    : since(*fan.lastRequest, time) < 1s);
    const bool isReleased = (isControlUnderWay() && wasReleasedUnderWay) || isReleasedMeanwhile();
    if (!isPlanless && !isCollision && !isReleased && !isUndone) return;
    wasOvertaken = true;
    fan.overtaken = isCommandsOwn(fan) ? Overtaken::byCommand : Overtaken::byControlStep;
    count("a claim succeeded after the release that overtook it");
    if (watchEnded && since(*watchEnded, time) > 12s + perFan) {
        const double late = std::chrono::duration<double>(since(*watchEnded, time)).count();
        fail(Property::releaseLasts, time,
             fmt::format("fan {} was forced {:.2f} s after the last reason to", index, late));
    }
}

}  // namespace airflow::simulation
