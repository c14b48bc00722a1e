#include "simulation/Oracle.h"

#include <fmt/format.h>

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
    if (!isWrite && key && key->first < fans.size()) {
        noteReading(fans[key->first], key->second, access);
    }
    busyUntil = std::max(busyUntil, access.time) + access.latency;
    busy += access.latency;
}

void Oracle::noteReading(Fan& fan, std::string_view kind, const SMCAccess& access) {
    const bool hasFailed = access.result != 0 || access.kernelReturn != 0;
    if (kind == "Md" || kind == "md") {
        // A write begins with the key's information, and gets no further without it.
        if (!hasFailed) return;
        lastRefusal = mark(access.time);
        if (isListening || exiting) fan.lastRequest = mark(access.time);
        if (!isListening && !exiting) fan.isUnknown = true;
    }
    if (hasFailed || access.operation != Fault::Operation::read) return;
    if (kind == "Mn") fan.minimum = access.value;
    if (kind == "Mx") fan.maximum = access.value;
}

void Oracle::judgeWrite(const SMCAccess& access) {
    const bool isRefused = access.result != 0 || access.kernelReturn != 0;
    if (isRefused) lastRefusal = mark(access.time);
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
    if (access.value != 0) return;
    const bool isRefused = access.result != 0 || access.kernelReturn != 0;
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
    constexpr double rounding = 1;  // RPM: the SMC's numbers are short
    const bool isFinite = std::isfinite(access.value);
    const bool isWithin =
        !fan.minimum || !fan.maximum || !(*fan.minimum <= *fan.maximum) ||
        (access.value >= *fan.minimum - rounding && access.value <= *fan.maximum + rounding);
    if (isFinite && isWithin) return;
    fail(Property::onlyAllowedWrites, access.time,
         fmt::format("{}={} was written; the limits are {} to {}", access.key, access.value,
                     fan.minimum.value_or(NAN), fan.maximum.value_or(NAN)));
}

void Oracle::modeChanged(Duration time, std::size_t index, FanMode mode) {
    mix(index * 4 + static_cast<std::uint64_t>(mode));
    Fan& fan = fans.at(index);
    fan.isForced = mode == FanMode::forced;
    fan.isLiedAbout = false;
    fan.isOvertaken = false;
    fan.isUnknown = false;
    if (mode == FanMode::reclaimed) count("the firmware took a fan back");
    if (!fan.isForced) return;
    fan.forcedSince = time;
    if (!watchEnded || !isRunning) return;
    fan.isOvertaken = true;
    count("a claim succeeded after the release that overtook it");
    if (since(*watchEnded, time) > 12s + perFan) {
        fail(Property::releaseLasts, time,
             fmt::format("fan {} was forced {:.2f} s after the last reason to", index,
                         inSeconds(since(*watchEnded, time))));
    }
}

void Oracle::published(Duration time, const control::ControlState& state) {
    if (!state.lastError) return;
    const std::string& error = *state.lastError;
    if (error.starts_with("no heartbeat")) {
        count("the watchdog released fans");
        if (inSeconds(time - lastHeartbeat) + clockForward <= 15) {
            fail(Property::reasonsAreTrue, time, "the client had been heard: " + error);
        }
    }
    if (error.starts_with("thermal ceiling")) {
        count("the ceiling released fans");
        if (!canBeHot) fail(Property::reasonsAreTrue, time, "nothing is hot: " + error);
        const bool isRefusing =
            std::ranges::any_of(fans, [](const Fan& fan) { return fan.refusals > 0; });
        if (isRefusing) count("the ceiling came while a fan refused to go back");
    }
    if (error.starts_with("temperature ") && error.ends_with("released to Auto")) {
        count("missing temperatures released fans");
    }
}

void Oracle::called(Duration time, std::string_view client, const Call& call) {
    if (strangers.contains(std::string(client))) return;
    if (isControl(call.method) && !call.document) {
        watchEnded.reset();
        for (auto& [id, command] : commands) command.wasControlUnderWay = true;
        const bool isOthers = std::ranges::any_of(commands, [&](const auto& entry) {
            return isControl(entry.second.method) && entry.second.client != client;
        });
        if (isOthers) count("two clients had commands under way at once");
    }
    if ((isControl(call.method) && !call.document) || call.method == Method::heartbeat) {
        lastWatch = mark(time);
        lastHeartbeat = time;
        clockBack = clockForward = 0;
    }
    if (isRelease(call.method)) endWatch(time);
    if (call.method == Method::heartbeat) return;
    commands[call.id] = {.method = call.method,
                         .isGarbage = call.document.has_value(),
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
        lastWatch = mark(time);  // a plan in force counts as one heard
        if (watchEnded) watchEnded = mark(time);
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
            return std::abs(written - static_cast<double>(target)) <= 1;
        };
        if (fan < fans.size() && std::ranges::any_of(fans[fan].targets, isTold)) continue;
        fail(Property::stateIsTrue, now,
             fmt::format("fan {} was never told to turn at {} RPM", index, target));
    }
    const bool isIdle = !reply.state->isHolding && !reply.state->lastError;
    if (!isIdle || question.wasControlUnderWay || scenario.effectiveUserID != 0) return;
    for (std::size_t i = 0; i < fans.size(); ++i) {
        const Fan& fan = fans[i];
        if (!isJudged(fan) || fan.forcedSince >= question.called.time) continue;
        if (fan.refusals > 0 || !scenario.machine.fans[i].modeKey) continue;
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
        if (!isJudged(fans[i]) || !scenario.machine.fans[i].modeKey) continue;
        fail(Property::recoveryComesFirst, time,
             fmt::format("the daemon listens while fan {} is forced", i));
    }
}

void Oracle::judgeFan(std::size_t index, const Fan& fan, Duration now) {
    if (!isJudged(fan) || !scenario.machine.fans[index].modeKey) return;
    const bool wasAsked = watchEnded && fan.lastRequest &&
                          fan.lastRequest->time >= std::max(watchEnded->time, fan.forcedSince);
    if (watchEnded && !isControlUnderWay()) {
        if (wasAsked && since(*fan.lastRequest, now) > retryPeriod) {
            fail(Property::releaseIsRetried, now,
                 fmt::format("fan {} was last asked to go back {:.2f} s ago", index,
                             inSeconds(since(*fan.lastRequest, now))));
        }
        if (!wasAsked && since(*watchEnded, now) > promptly) {
            fail(Property::releaseBegins, now,
                 fmt::format("fan {} is forced {:.2f} s after the last reason to", index,
                             inSeconds(since(*watchEnded, now))));
        }
    }
    const auto silence = 15s + Duration(std::llround(clockBack * 1e9)) + 5s + perFan;
    const bool isPending = fan.lastRequest && fan.lastRequest->time >= fan.forcedSince &&
                           since(*fan.lastRequest, now) <= retryPeriod;
    if (!isControlUnderWay() && since(lastWatch, now) > silence && !isPending) {
        fail(Property::silenceEndsControl, now,
             fmt::format("fan {} is forced {:.2f} s after the client was last heard", index,
                         inSeconds(since(lastWatch, now))));
    }
}

void Oracle::second(Duration now, SimulatedMac& mac) {
    for (const Event& event : scenario.events) {
        const auto* jump = std::get_if<WallClockJump>(&event);
        if (!jump || jump->at < now - 1s || jump->at >= now || now == 0s) continue;
        (jump->seconds < 0 ? clockBack : clockForward) += std::abs(jump->seconds);
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
    const bool wasRefused = watchEnded && lastRefusal && lastRefusal->time >= watchEnded->time;
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
        fan.isUnknown = false;
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
                             scenario.effectiveUserID != 0 || taken >= exitLimit;
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

}  // namespace airflow::simulation
