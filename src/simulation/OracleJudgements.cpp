// What the oracle judges, and by which bounds.
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <chrono>
#include <cmath>

#include "simulation/Oracle.h"

namespace airflow::simulation {

namespace {

using concurrency::Duration;
using namespace std::chrono_literals;

constexpr Duration promptly = 1s;
constexpr Duration retryPeriod = 2500ms;
constexpr Duration exitLimit = 3s;

double inSeconds(Duration time) {
    return std::chrono::duration<double>(time).count();
}

}  // namespace

void Oracle::judgeWrite(const SMCAccess& access) {
    lastWrite = mark(access.time);
    const bool isRefused = access.result != 0 || access.kernelReturn != 0;
    const bool isSwitch = access.value == 0 || access.value == 1;
    if (access.key == "Ftst" && isSwitch) {
        hasLoweredForceTest = access.value == 0 && !isRefused;  // or the SMC says so
        return;
    }
    if (const auto key = fanKey(access.key); key && key->first < fans.size()) {
        const bool isModeKey = key->second == "Md" || key->second == "md";
        if (isModeKey && access.value == 1) return noteForceRequest(key->first, access, isRefused);
        if (isModeKey && isSwitch) return noteReleaseRequest(key->first, access, isRefused);
        if (key->second == "Tg") return judgeTarget(fans[key->first], access);
    }
    fail(Property::onlyAllowedWrites, access.time,
         fmt::format("{}={} was written", access.key, access.value));
}

void Oracle::judgeTarget(Fan& fan, const SMCAccess& access) {
    fan.targets.insert(access.value);  // the state tells what was written, taken or not
    if (access.value == 0) return;
    const bool isFinite = std::isfinite(access.value);
    // A control step uses the limits of its own snapshot, which need not be the latest.
    const double rounding = 1 + std::abs(access.value) * 1e-6;  // the SMC's numbers are short
    const bool isWithin = fan.limits.empty() || (access.value >= *fan.limits.begin() - rounding &&
                                                 access.value <= *fan.limits.rbegin() + rounding);
    if (isFinite && isWithin) return;
    fail(Property::onlyAllowedWrites, access.time,
         fmt::format("{}={} was written; the limits read were {}", access.key, access.value,
                     fmt::join(fan.limits, ", ")));
}

/// A fan that a client wants forced is asked to go back.
void Oracle::judgeReason(std::size_t index, const SMCAccess& access) {
    const Duration now = access.time;
    const bool mayBeUnsafe =
        canBeHot || !isReadWhole || isSilent(now) || (longSilence && since(*longSilence, now) < 5s);
    const bool isReleased = watchEnded || (lastRelease && since(*lastRelease, now) < promptly);
    const bool isIdle = commands.empty() && isListening && !exiting;
    if (mayBeUnsafe || isReleased || !isIdle || !heldFans.fans().contains(index)) return;
    fail(Property::controlLasts, now,
         fmt::format("fan {} is given back, and no one has asked for that", index));
}

/// A command was answered: are its fans forced, if it was applied?
void Oracle::judgeApplied(const Command& command, const Reply& reply, Duration now) {
    const bool isApplied = reply.result && reply.result->isApplied();
    if (!isApplied || !isHonest || watchEnded || !commands.empty()) return;
    for (const std::size_t fan : heldFans.fans()) {
        if (fan >= fans.size()) continue;
        const auto& last = fans[fan].lastForced;
        if (fans[fan].isForced || (last && last->time >= command.called.time)) continue;
        fail(Property::appliedIsTrue, now,
             fmt::format("{} was applied, and fan {} is not forced", nameOf(reply.method), fan));
    }
}

void Oracle::judgeTargets(const Reply& reply, Duration now) {
    for (const auto& [index, target] : reply.state->targets) {
        const auto fan = static_cast<std::size_t>(index);
        const auto isTold = [&](double written) {
            const auto told = static_cast<double>(target);
            return std::abs(written - told) <= 1 + std::abs(told) * 1e-6;
        };
        if (fan < fans.size() && fans[fan].hasUnwrittenTarget) continue;
        if (fan < fans.size() && std::ranges::any_of(fans[fan].targets, isTold)) continue;
        fail(Property::stateIsTrue, now,
             fmt::format("fan {} was never told to turn at {} RPM", index, target));
    }
}

void Oracle::judgeState(const Command& question, const Reply& reply, Duration now) {
    judgeTargets(reply, now);
    if (question.wasControlUnderWay || scenario.effectiveUserID != 0) return;
    const bool isIdle = !reply.state->isHolding && !reply.state->lastError;
    for (std::size_t i = 0; isIdle && i < fans.size(); ++i) {
        const Fan& fan = fans[i];
        if (!isJudged(fan) || since(fan.forcedSince, question.called.time) < 2s) continue;
        if (fan.refusals > 0 || fan.isForcedInSecret || !scenario.machine.fans[i].modeKey) continue;
        // A control step tells of its first fan when it has claimed its last.
        const bool isStepUnderWay = lastForceRefusal &&
                                    lastForceRefusal->time >= fan.forcedSince.time &&
                                    since(fan.forcedSince, question.called.time) < 2s + perFan;
        if (isStepUnderWay) continue;
        fail(Property::stateIsTrue, now, fmt::format("fan {} is held, and the state is idle", i));
    }
    // A retry that succeeds leaves the fan in the state until the next full release; so does a
    // claim that a release overtook.
    const bool isOver = watchEnded && since(*watchEnded, question.called.time) > 3s;
    const bool wasRefused = isOver && lastRefusal && lastRefusal->time >= watchEnded->time;
    if (!isOver || wasRefused || wasOvertaken || isAnyForced()) return;
    if (!reply.state->isHolding && reply.state->perFanMode.empty()) return;
    fail(Property::stateIsTrue, now, "no fan is held any more, and the state tells of some");
}

void Oracle::published(Duration time, const control::ControlState& state) {
    const bool isEmpty = !state.isHolding && state.perFanMode.empty();
    if (isEmpty && !isPlanless && !isControlUnderWay()) isUndone = true;
    if (!state.lastError) return;
    const std::string& error = *state.lastError;
    const bool isReleased = error.ends_with("released to Auto");
    if (isReleased && !isControlUnderWay()) endWatch(time);
    // A refusal hides the message of the safety check.
    const bool isRelease = isReleased || error.starts_with("failed to restore Auto");
    if (isRelease) heldFans.lose();
    if (isRelease && isControlUnderWay()) wasReleasedUnderWay = true;
    if (error.starts_with("no heartbeat")) {
        count("the watchdog released fans");
        // The silence may have ended after the release began.
        const bool wasSilent = longSilence && since(*longSilence, time) < 3s;
        if (!wasSilent && !isSilent(time)) {
            fail(Property::reasonsAreTrue, time, "the client had been heard: " + error);
        }
    }
    if (error.starts_with("thermal ceiling")) {
        count("the ceiling released fans");
        if (!canBeHot) fail(Property::reasonsAreTrue, time, "nothing is hot: " + error);
    }
    if (error.starts_with("temperature ") && isReleased) {
        count("missing temperatures released fans");
        if (isReadWhole) fail(Property::reasonsAreTrue, time, "temperatures are there: " + error);
    }
}

void Oracle::judgeListening(Duration time) {
    isListening = true;
    lastWatch = mark(time);
    lastHeartbeat = time;
    for (auto& [id, command] : commands) command.called = mark(time);
    for (std::size_t i = 0; i < fans.size(); ++i) {
        const Fan& fan = fans[i];
        const bool wasTried = !fan.isUnknown || fan.hasFailedProbe;
        if (!fan.isForced || !scenario.machine.fans[i].modeKey || i >= countedFans) continue;
        if (wasTried && !isJudged(fan)) continue;
        fail(Property::recoveryComesFirst, time,
             fmt::format("the daemon listens while fan {} is forced", i));
    }
}

void Oracle::judgeFan(std::size_t index, const Fan& fan, Duration now) {
    if (!isJudged(fan) || !watchEnded || isControlUnderWay()) return;
    const bool wasAsked = fan.lastRequest &&
                          fan.lastRequest->time >= std::max(watchEnded->time, fan.forcedSince.time);
    if (wasAsked && since(*fan.lastRequest, now) > retryPeriod) {
        fail(Property::releaseIsRetried, now,
             fmt::format("fan {} was last asked to go back {:.2f} s ago", index,
                         inSeconds(since(*fan.lastRequest, now))));
    }
    const bool isCommandLast = lastCommand.time > watchEnded->time;
    const Mark reason = isCommandLast ? lastCommand : *watchEnded;
    if (!wasAsked && since(reason, now) > promptly) {
        fail(Property::releaseBegins, now,
             fmt::format("fan {} is forced {:.2f} s after the last reason to", index,
                         inSeconds(since(reason, now))));
    }
}

void Oracle::judgeSilence(std::size_t index, const Fan& fan, Duration now) {
    const bool isHeld = isJudged(fan) || (fan.isForced && fan.overtaken == Overtaken::byCommand);
    if (!isHeld || fan.isLiedAbout || fan.isForcedInSecret) return;
    if (!isListening || isControlUnderWay()) return;
    const auto silence = 15s + Duration(std::llround(clockBack * 1e9)) + 5s + perFan;
    const bool isPending = fan.lastRequest && fan.lastRequest->time >= fan.forcedSince.time &&
                           since(*fan.lastRequest, now) <= retryPeriod;
    if (since(lastWatch, now) <= silence || isPending) return;
    fail(Property::silenceEndsControl, now,
         fmt::format("fan {} is forced {:.2f} s after the client was last heard", index,
                     inSeconds(since(lastWatch, now))));
}

void Oracle::judgeHeat(std::size_t index, const Fan& fan, Duration now) {
    const bool isWatched = isJudged(fan) && isListening && isHeatShown && !isControlUnderWay();
    if (!isWatched || !hotSince || since(fan.forcedSince, now) <= 5s + perFan) return;
    const bool isPending = fan.lastRequest && since(*fan.lastRequest, now) <= retryPeriod;
    // A plan that comes in the heat is held for a tick, even over fans that refuse to go back.
    const bool isNewlyHeld = since(lastCommand, now) <= 5s + perFan;
    if (isPending || isNewlyHeld || since(*hotSince, now) <= 5s + perFan) return;
    fail(Property::heatEndsControl, now,
         fmt::format("fan {} is forced {:.2f} s after it became too hot", index,
                     inSeconds(since(*hotSince, now))));
}

void Oracle::judgeForceTest(Duration now, const SimulatedMac& mac) {
    const bool wasRefused = watchEnded && lastRefusal && since(*lastRefusal, watchEnded->time) < 5s;
    const bool isOver = watchEnded && !wasRefused && !isAnyForced() && !isControlUnderWay();
    const bool isDone = hasLoweredForceTest || !mac.forceTest();
    if (!isOver || isDone || since(lastWrite, now) <= 3s) return;
    fail(Property::forceTestIsLowered, now, "Ftst is on and no fan is forced");
}

void Oracle::second(Duration now, SimulatedMac& mac) {
    const double hottest = mac.hottest().value_or(0);
    const bool isHot = hottest >= 95;
    if (hottest < 95.5) hotSince.reset();
    if (hottest >= 95.5 && !hotSince) hotSince = mark(now);
    const auto isRefusing = [](const Fan& fan) { return fan.isForced && fan.refusals > 0; };
    if (isHot && std::ranges::any_of(fans, isRefusing)) {
        count("the ceiling came while a fan refused to go back");
    }
    if (!isRunning || scenario.effectiveUserID != 0) return;
    for (std::size_t i = 0; !exiting && i < fans.size(); ++i) {
        if (!scenario.machine.fans[i].modeKey) continue;
        judgeFan(i, fans[i], now);
        judgeSilence(i, fans[i], now);
        judgeHeat(i, fans[i], now);
    }
    if (!isListening) return;
    for (const auto& [id, command] : commands) {
        if (since(command.called, now) <= 60s + 2 * perFan) continue;
        fail(Property::everyCommandIsAnsweredOnce, now,
             fmt::format("{} has not been answered", nameOf(command.method)));
    }
    judgeForceTest(now, mac);
}

void Oracle::ended(const ProcessEnd& end) {
    mix(static_cast<std::uint64_t>(end.status));
    if (end.bySignal && !isListening) count("the process was killed during recovery");
    if (end.bySignal && isAnyForced()) count("the process was killed while a fan was forced");
    if (end.status == 0) count("an upgrade ended the process");
    const Duration taken = exiting ? end.time - exiting->time : Duration::zero();
    if (exiting && taken >= exitLimit) count("an exit ran into its limit of 3 s");
    if (taken > exitLimit) {
        fail(Property::exitIsInTime, end.time,
             fmt::format("the exit took {:.2f} s", inSeconds(taken)));
    }
    for (std::size_t i = 0; !end.bySignal && i < fans.size(); ++i) {
        const Fan& fan = fans[i];
        const bool mayStay = !isJudged(fan) || !scenario.machine.fans[i].modeKey ||
                             scenario.effectiveUserID != 0 || taken >= exitLimit ||
                             !isListening;  // recovery does not know every fan yet
        const bool wasAsked = exiting && fan.lastRequest && fan.lastRequest->time >= exiting->time;
        if (mayStay || wasAsked) continue;
        fail(Property::exitRestoresFirst, end.time,
             fmt::format("the process exits and fan {} was not asked to go back", i));
    }
    isRunning = isListening = false;
    exiting.reset();
    commands.clear();
    strangers.clear();
}

}  // namespace airflow::simulation
