#include "simulation/Oracle.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <bit>
#include <chrono>
#include <cmath>
#include <utility>

#include "concurrency/Require.h"

namespace airflow::simulation {

namespace {

using concurrency::Duration;
using Method = Call::Method;
using namespace std::chrono_literals;

constexpr Duration promptly = 1s;
constexpr Duration retryPeriod = 2500ms;
constexpr Duration exitLimit = 3s;

double inSeconds(Duration time) {
    return std::chrono::duration<double>(time).count();
}

bool isControl(Method method) {
    return method == Method::setManualRPM || method == Method::setPercent ||
           method == Method::fullBlast || method == Method::applyConfig;
}

bool isRelease(Method method) {
    return method == Method::automatic || method == Method::restoreAuto ||
           method == Method::shutdownForUpgrade;
}

bool managesAny(const plan::FanControlPlan& plan) {
    const auto isManaged = [](const plan::FanPlan& fan) {
        return fan.mode != plan::FanControlModePlan::automatic();
    };
    return !plan.rules.empty() || std::ranges::any_of(plan.fans, isManaged);
}

/// The fan that a key belongs to, and what it holds of it.
std::optional<std::pair<std::size_t, std::string_view>> fanKey(const std::string& key) {
    if (key.size() != 4 || key[0] != 'F' || key[1] < '0' || key[1] > '9') return std::nullopt;
    return std::pair(static_cast<std::size_t>(key[1] - '0'), std::string_view(key).substr(2));
}

bool reachesCeiling(const Scenario& scenario) {
    const auto isHot = [](const auto& reading) {
        return std::optional<double>(reading.second).value_or(0) >= 94.9;
    };
    if (scenario.thermal) return true;
    if (std::ranges::any_of(scenario.machine.hid.value_or(Temperatures{}), isHot)) return true;
    if (std::ranges::any_of(scenario.machine.smc, isHot)) return true;
    return std::ranges::any_of(scenario.temperatures, [&](const TemperatureChange& change) {
        return std::ranges::any_of(change.hid, isHot) || std::ranges::any_of(change.smc, isHot);
    });
}

}  // namespace

Oracle::Oracle(const Scenario& judged)
    : scenario(judged),
      perFan(10s * static_cast<std::int64_t>(judged.machine.fans.size())),
      canBeHot(reachesCeiling(judged)),
      fans(judged.machine.fans.size()) {
    for (std::size_t i = 0; i < fans.size(); ++i) {
        fans[i].isForced = judged.machine.fans[i].mode == 1;
    }
}

void Oracle::fail(Property property, Duration time, std::string what) {
    if (!first) first = {.property = property, .time = time, .what = std::move(what)};
}

void Oracle::count(std::string_view happening) {
    const auto found = std::ranges::find(sometimes, happening);
    concurrency::require(found != sometimes.end(), "what is counted is in the list");
    ++counters.at(static_cast<std::size_t>(found - sometimes.begin()));
}

void Oracle::mix(std::string_view text) {
    for (const char c : text) mix(static_cast<std::uint64_t>(static_cast<unsigned char>(c)));
}

bool Oracle::isControlUnderWay() const {
    return std::ranges::any_of(commands,
                               [](const auto& entry) { return isControl(entry.second.method); });
}

void Oracle::endWatch(Duration time) {
    // A second end while the first is being dealt with asks for nothing sooner.
    if (!watchEnded) watchEnded = mark(time);
}

void Oracle::access(const SMCAccess& access) {
    mix(access.key);
    mix(static_cast<std::uint64_t>(access.time.count()));
    mix(std::bit_cast<std::uint64_t>(access.value));
    mix(access.result);
    if (access.operation == Fault::Operation::write) judgeWrite(access);
    const auto key = fanKey(access.key);
    const bool isWrite = access.operation == Fault::Operation::write;
    const bool isRefused = access.result != 0 || access.kernelReturn != 0;
    if (isRefused && access.operation != Fault::Operation::read) lastRefusal = mark(access.time);
    if (!isWrite && key && key->first < fans.size()) {
        noteReading(fans[key->first], key->second, access);
    }
    busyUntil = std::max(busyUntil, access.time) + access.latency;
    busy += access.latency;
}

void Oracle::noteReading(Fan& fan, std::string_view kind, const SMCAccess& access) {
    const bool hasFailed = access.result != 0 || access.kernelReturn != 0;
    if (kind == "Md" || kind == "md") {
        // Once the daemon listens, its sensors may read a key that its start could not.
        if (!hasFailed && !isListening) fan.isUnknown = false;
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

void Oracle::judgeWrite(const SMCAccess& access) {
    lastWrite = mark(access.time);
    const auto key = fanKey(access.key);
    const bool isSwitch = access.value == 0 || access.value == 1;
    if (access.key == "Ftst" && isSwitch) return;
    if (key && key->first < fans.size()) {
        Fan& fan = fans[key->first];
        const bool isModeKey = key->second == "Md" || key->second == "md";
        if (isModeKey && isSwitch) return noteModeWrite(fan, access);
        if (key->second == "Tg") return judgeTarget(fan, access);
    }
    fail(Property::onlyAllowedWrites, access.time,
         fmt::format("{}={} was written", access.key, access.value));
}

void Oracle::noteModeWrite(Fan& fan, const SMCAccess& access) {
    const bool isRefused = access.result != 0 || access.kernelReturn != 0;
    if (access.value != 0) {
        fan.isForcedInSecret = isRefused && fan.isForced;
        return;
    }
    fan.lastRequest = mark(access.time);
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

void Oracle::modeChanged(Duration time, std::size_t index, FanMode mode) {
    mix(index * 4 + static_cast<std::uint64_t>(mode));
    Fan& fan = fans.at(index);
    fan.isForced = mode == FanMode::forced;
    fan.isLiedAbout = false;
    fan.isOvertaken = false;
    fan.isForcedInSecret = false;
    if (mode == FanMode::reclaimed) count("the firmware took a fan back");
    if (!fan.isForced) return;
    fan.forcedSince = mark(time);
    fan.isUnknown = false;
    // Two commands at once: the older one's step may force a fan that the newer one gave back.
    const bool isCollision =
        isControlUnderWay() && fan.lastRequest && since(*fan.lastRequest, time) < promptly;
    const bool isOvertaken =
        watchEnded || isCollision || (wasReleasedUnderWay && isControlUnderWay());
    if (!isOvertaken || !isRunning) return;
    fan.isOvertaken = true;
    count("a claim succeeded after the release that overtook it");
    if (watchEnded && since(*watchEnded, time) > 12s + perFan) {
        fail(Property::releaseLasts, time,
             fmt::format("fan {} was forced {:.2f} s after the last reason to", index,
                         inSeconds(since(*watchEnded, time))));
    }
}

void Oracle::published(Duration time, const control::ControlState& state) {
    if (!state.lastError) return;
    const std::string& error = *state.lastError;
    const bool isReleased = error.ends_with("released to Auto");
    if (isReleased && !isControlUnderWay()) endWatch(time);
    // A refusal hides the message of the safety check.
    const bool isRelease = isReleased || error.starts_with("failed to restore Auto");
    if (isRelease && isControlUnderWay()) wasReleasedUnderWay = true;
    if (error.starts_with("no heartbeat")) {
        count("the watchdog released fans");
        // The silence may have ended after the release began.
        const bool wasSilent = longSilence && since(*longSilence, time) < 3s;
        if (!wasSilent && inSeconds(time - lastHeartbeat) + clockForward <= 15) {
            fail(Property::reasonsAreTrue, time, "the client had been heard: " + error);
        }
    }
    if (error.starts_with("thermal ceiling")) {
        count("the ceiling released fans");
        if (!canBeHot) fail(Property::reasonsAreTrue, time, "nothing is hot: " + error);
    }
    if (error.starts_with("temperature ") && error.ends_with("released to Auto")) {
        count("missing temperatures released fans");
    }
}

void Oracle::called(Duration time, std::string_view client, const Call& call) {
    if (strangers.contains(std::string(client))) return;
    if (isControl(call.method) && !call.document) {
        watchEnded.reset();
        wasReleasedUnderWay = false;
        for (auto& [id, command] : commands) command.wasControlUnderWay = true;
        const bool isOthers = std::ranges::any_of(commands, [&](const auto& entry) {
            return isControl(entry.second.method) && entry.second.client != client;
        });
        if (isOthers) count("two clients had commands under way at once");
    }
    if ((isControl(call.method) && !call.document) || call.method == Method::heartbeat) {
        lastWatch = mark(time);
    }
    if (call.method == Method::heartbeat) {
        if (inSeconds(time - lastHeartbeat) + clockForward > 15) longSilence = mark(time);
        lastHeartbeat = time;
        clockBack = clockForward = 0;
    }
    if (isRelease(call.method)) endWatch(time);
    if (call.method == Method::heartbeat) return;
    commands[call.id] = {.method = call.method,
                         .isGarbage = call.document.has_value(),
                         .managesFans = call.method != Method::applyConfig || managesAny(call.plan),
                         .client = std::string(client),
                         .called = mark(time),
                         .wasControlUnderWay = isControlUnderWay()};
}

void Oracle::replied(Duration time, const Reply& reply) {
    mix(reply.call);
    if (reply.result) mix(static_cast<std::uint64_t>(reply.result->xpcCode()));
    if (!isListening) {
        fail(Property::recoveryComesFirst, time,
             fmt::format("{} was answered before the daemon listened", nameOf(reply.method)));
    }
    const auto found = commands.find(reply.call);
    if (found == commands.end()) {
        fail(Property::everyCommandIsAnsweredOnce, time,
             fmt::format("{} was answered twice, or to a stranger", nameOf(reply.method)));
        return;
    }
    const Command command = found->second;
    commands.erase(found);
    if (isControl(command.method) && !command.isGarbage) {
        const bool isInForce = reply.result && reply.result->isApplied();
        if (isInForce && command.managesFans) {
            lastHeartbeat = std::max(lastHeartbeat, command.called.time);
        }
        // It may have come into force after a release that came while it was under way.
        if (isInForce) watchEnded.reset();
        lastWatch = mark(time);  // a plan in force counts as one heard
    }
    if (command.isGarbage && reply.result && reply.result->xpcCode() == 7) {
        count("garbage was answered with 7");
    }
    if (reply.state) judgeState(command, reply, time);
}

void Oracle::judgeState(const Command& question, const Reply& reply, Duration now) {
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
    const bool isIdle = !reply.state->isHolding && !reply.state->lastError;
    if (!isIdle || question.wasControlUnderWay || scenario.effectiveUserID != 0) return;
    for (std::size_t i = 0; i < fans.size(); ++i) {
        const Fan& fan = fans[i];
        if (!isJudged(fan) || since(fan.forcedSince, question.called.time) < 2s) continue;
        if (fan.refusals > 0 || fan.isForcedInSecret || !scenario.machine.fans[i].modeKey) continue;
        fail(Property::stateIsTrue, now, fmt::format("fan {} is held, and the state is idle", i));
    }
}

void Oracle::logged(Duration time, std::string_view line) {
    mix(line);
    constexpr std::string_view prefix = "[com.brisquell.helper] ";
    if (!line.starts_with(prefix)) return;
    line.remove_prefix(prefix.size());
    if (line.starts_with("listening on ")) judgeListening(time);
    if (line.ends_with(": restoring Auto...\n") && !exiting) exiting = mark(time);
    if (line.starts_with("startup Auto recovery failed") || line.starts_with("failed to open")) {
        count("a start failed");
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
        if (!fan.isForced || !scenario.machine.fans[i].modeKey) continue;
        if (wasTried && !isJudged(fan)) continue;
        fail(Property::recoveryComesFirst, time,
             fmt::format("the daemon listens while fan {} is forced", i));
    }
}

void Oracle::judgeFan(std::size_t index, const Fan& fan, Duration now) {
    if (!isJudged(fan) || !scenario.machine.fans[index].modeKey) return;
    const bool wasAsked = watchEnded && fan.lastRequest &&
                          fan.lastRequest->time >= std::max(watchEnded->time, fan.forcedSince.time);
    if (watchEnded && !isControlUnderWay()) {
        if (wasAsked && since(*fan.lastRequest, now) > retryPeriod) {
            fail(Property::releaseIsRetried, now,
                 fmt::format("fan {} was last asked to go back {:.2f} s ago", index,
                             inSeconds(since(*fan.lastRequest, now))));
        }
        const bool isCommandLast = lastWatch.time > watchEnded->time;
        const Mark reason = isCommandLast ? lastWatch : *watchEnded;
        if (!wasAsked && since(reason, now) > promptly) {
            fail(Property::releaseBegins, now,
                 fmt::format("fan {} is forced {:.2f} s after the last reason to", index,
                             inSeconds(since(reason, now))));
        }
    }
    const auto silence = 15s + Duration(std::llround(clockBack * 1e9)) + 5s + perFan;
    const bool isPending = fan.lastRequest && fan.lastRequest->time >= fan.forcedSince.time &&
                           since(*fan.lastRequest, now) <= retryPeriod;
    if (isListening && !isControlUnderWay() && since(lastWatch, now) > silence && !isPending) {
        fail(Property::silenceEndsControl, now,
             fmt::format("fan {} is forced {:.2f} s after the client was last heard", index,
                         inSeconds(since(lastWatch, now))));
    }
}

void Oracle::second(Duration now, SimulatedMac& mac) {
    const bool isHot = mac.hottest().value_or(0) >= 95;
    const auto isRefusing = [](const Fan& fan) { return fan.isForced && fan.refusals > 0; };
    if (isHot && std::ranges::any_of(fans, isRefusing)) {
        count("the ceiling came while a fan refused to go back");
    }
    if (!isRunning || scenario.effectiveUserID != 0) return;
    if (!exiting) {
        for (std::size_t i = 0; i < fans.size(); ++i) judgeFan(i, fans[i], now);
    }
    if (!isListening) return;
    for (const auto& [id, command] : commands) {
        if (since(command.called, now) <= 60s + 2 * perFan) continue;
        fail(Property::everyCommandIsAnsweredOnce, now,
             fmt::format("{} has not been answered", nameOf(command.method)));
    }
    const bool wasRefused = watchEnded && lastRefusal && since(*lastRefusal, watchEnded->time) < 5s;
    const bool isAnyForced = std::ranges::any_of(fans, [](const Fan& fan) { return fan.isForced; });
    if (watchEnded && !wasRefused && !isAnyForced && !isControlUnderWay() &&
        since(lastWrite, now) > 3s && mac.forceTest()) {
        fail(Property::forceTestIsLowered, now, "Ftst is on and no fan is forced");
    }
}

void Oracle::started(Duration time) {
    isRunning = true;
    watchEnded = mark(time);
    for (Fan& fan : fans) {
        fan.targets.clear();
        fan.isOvertaken = false;
        fan.isLiedAbout = false;
        fan.isUnknown = true;
        fan.hasFailedProbe = false;
        fan.limits.clear();
        fan.hasUnwrittenTarget = false;
        fan.lastRequest.reset();
    }
}

void Oracle::signalled(Duration time, daemon::Signal) {
    const bool hasReleasedOne = std::ranges::any_of(fans, [&](const Fan& fan) {
        return !fan.isForced && fan.lastRequest && time - fan.lastRequest->time < 10ms;
    });
    const bool isAnyForced = std::ranges::any_of(fans, [](const Fan& fan) { return fan.isForced; });
    if (hasReleasedOne && isAnyForced) count("a signal came between the releases of two fans");
}

void Oracle::ended(const ProcessEnd& end) {
    mix(static_cast<std::uint64_t>(end.status));
    const bool isAnyForced = std::ranges::any_of(fans, [](const Fan& fan) { return fan.isForced; });
    if (end.bySignal && !isListening) count("the process was killed during recovery");
    if (end.bySignal && isAnyForced) count("the process was killed while a fan was forced");
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

void Oracle::connected(Duration, std::string_view client, bool isStranger) {
    if (!isStranger) return;
    strangers.emplace(client);
    count("a stranger connected");
}

void Oracle::disconnected(Duration time, std::string_view client) {
    strangers.erase(std::string(client));
    if (isControlUnderWay()) count("a connection ended during a claim");
    endWatch(time);
}

void Oracle::clockJumped(Duration, double seconds) {
    (seconds < 0 ? clockBack : clockForward) += std::abs(seconds);
}

}  // namespace airflow::simulation
