// What the oracle hears of clients and of the process. OracleMachine.cpp holds what it sees of the
// machine, OracleJudgements.cpp its bounds.
#include "simulation/Oracle.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <utility>

#include "concurrency/Require.h"

namespace airflow::simulation {

namespace {

using concurrency::Duration;
using Method = Call::Method;
using namespace std::chrono_literals;

bool isControl(Method method) {
    return method == Method::setManualRPM || method == Method::setPercent ||
           method == Method::fullBlast || method == Method::applyConfig;
}

bool isRelease(Method method) {
    return method == Method::automatic || method == Method::restoreAuto ||
           method == Method::shutdownForUpgrade;
}

bool isGarbage(const Call& call) {
    return call.method == Method::applyConfig && call.document;
}

bool isEmptyPlan(const Call& call) {
    return call.method == Method::applyConfig && !call.document && !managesAny(call.plan);
}

bool isHonestMachine(const Scenario& scenario) {
    const auto isHonest = [](const Fault& fault) {
        return fault.effect == Fault::Effect::natural && fault.result != 0;
    };
    return scenario.firmware.empty() && !scenario.machine.reclaimAfter &&
           std::ranges::all_of(scenario.faults, isHonest);
}

}  // namespace

Oracle::Oracle(const Scenario& judged)
    : scenario(judged),
      perFan(10s * static_cast<std::int64_t>(judged.machine.fans.size())),
      canBeHot(reachesCeiling(judged)),
      isReadWhole(readsEverything(judged)),
      isHeatShown(showsHeat(judged)),
      isHonest(isHonestMachine(judged)),
      fans(judged.machine.fans.size()),
      heldFans(judged.machine.fans.size()) {
    for (std::size_t i = 0; i < fans.size(); ++i) {
        fans[i].isForced = judged.machine.fans[i].mode == 1;
        if (fans[i].isForced) fans[i].lastForced = Mark{};
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

bool Oracle::isAnyForced() const {
    return std::ranges::any_of(fans, [](const Fan& fan) { return fan.isForced; });
}

bool Oracle::isControlUnderWay() const {
    return std::ranges::any_of(commands, [](const auto& entry) {
        return isControl(entry.second.method) && !entry.second.isGarbage;
    });
}

/// No command is being worked on, and no release.
bool Oracle::isUndisturbed(Duration now) const {
    return commands.empty() && !(lastRelease && since(*lastRelease, now) < 1s);
}

/// A release or a retry may be in its last write.
bool Oracle::isAskedBack(Duration now) const {
    return std::ranges::any_of(
        fans, [&](const Fan& fan) { return fan.lastRequest && since(*fan.lastRequest, now) < 1s; });
}

/// One of several commands may go on with a claim that a release has overtaken.
bool Oracle::isReleasedMeanwhile() const {
    return std::ranges::any_of(commands, [&](const auto& entry) {
        const Command& command = entry.second;
        return command.wasDisturbed && isControl(command.method) && lastRelease &&
               lastRelease->time >= command.called.time;
    });
}

/// By the wall clock, as far as that can be said while it jumps.
bool Oracle::isSilent(Duration now) const {
    return std::chrono::duration<double>(now - lastHeartbeat).count() + clockForward > 15;
}

/// A claim asks every 100 ms.
bool Oracle::isBeingClaimed(const Fan& fan, Duration now) const {
    return fan.refusedForce && since(*fan.refusedForce, now) <= 150ms;
}

void Oracle::endWatch(Duration time) {
    // No claim is left that could have overtaken this one, too.
    for (Fan& fan : fans) {
        if (fan.overtaken == Overtaken::no || isControlUnderWay()) continue;
        if (since(fan.forcedSince, time) <= 12s + perFan) continue;
        fan.overtaken = Overtaken::no;
        watchEnded.reset();
    }
    // A second end while the first is being dealt with asks for nothing sooner.
    if (!watchEnded) {
        watchEnded = mark(time);
        latecomers.clear();
        hasBegunRelease = false;
        const auto isClaimed = [&](const Fan& fan) { return isBeingClaimed(fan, time); };
        claimsUnderWay = static_cast<std::size_t>(std::ranges::count_if(fans, isClaimed));
        wasOvertaken = false;
    }
    isPlanless = true;
    lastRelease = mark(time);
    heldFans.release();
}

void Oracle::called(Duration time, std::string_view client, const Call& call) {
    if (strangers.contains(std::string(client))) return;
    if (isControl(call.method) && !isGarbage(call)) noteControl(time, call);
    noteWatch(time, call);
    if (isRelease(call.method)) endWatch(time);
    if (call.method == Method::heartbeat) return;
    commands[call.id] = {.method = call.method,
                         .isGarbage = isGarbage(call),
                         .managesFans = !isGarbage(call) && !isEmptyPlan(call),
                         .client = std::string(client),
                         .called = mark(time),
                         .wasDisturbed = !isUndisturbed(time),
                         .wasControlUnderWay = isControlUnderWay()};
}

void Oracle::noteControl(Duration time, const Call& call) {
    isPlanless = isEmptyPlan(call);
    if (isPlanless)
        loseOvertaken();
    else
        watchEnded.reset();
    wasReleasedUnderWay = isUndone = false;
    if (scenario.effectiveUserID == 0) {
        heldFans.command(call, isUndisturbed(time) && !isAskedBack(time));
    }
    for (auto& [id, command] : commands) command.wasDisturbed = command.wasControlUnderWay = true;
    const bool isOthers = std::ranges::any_of(commands, [&](const auto& entry) {
        return isControl(entry.second.method) && entry.second.client != call.client;
    });
    if (isOthers) count("two clients had commands under way at once");
}

void Oracle::noteWatch(Duration time, const Call& call) {
    const bool isHeartbeat = call.method == Method::heartbeat;
    if (isHeartbeat || (isControl(call.method) && !isGarbage(call))) {
        if (isSilent(time)) longSilence = mark(time);
        lastWatch = mark(time);
    }
    if (isControl(call.method) && !isGarbage(call)) lastCommand = mark(time);
    if (!isHeartbeat) return;
    lastHeartbeat = time;
    clockBack = clockForward = 0;
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
    noteAnswer(command, reply, time);
    if (reply.state) judgeState(command, reply, time);
}

void Oracle::noteAnswer(const Command& command, const Reply& reply, Duration time) {
    if (command.isGarbage && reply.result && reply.result->xpcCode() == 7) {
        count("garbage was answered with 7");
    }
    if (!isControl(command.method) || !command.managesFans) return;
    const bool isInForce = reply.result && reply.result->isApplied();
    judgeApplied(command, reply, time);
    if (!isInForce) loseOvertaken();
    if (isInForce) {
        if (isSilent(command.called.time)) longSilence = mark(time);
        lastHeartbeat = std::max(lastHeartbeat, command.called.time);
    }
    // It may have come into force after a release that came in the same moment, or while it still
    // counted the fans.
    const Duration counting = command.method == Method::fullBlast ? 1ms : 0ms;
    const bool mayBeNewer =
        watchEnded && lastRelease && DriverClock::between(command.called, *lastRelease) <= counting;
    if (mayBeNewer) {
        watchEnded.reset();
        isPlanless = false;
    }
    lastWatch = lastCommand = mark(time);  // a plan in force counts as one heard
}

/// A fan that a command claimed after a release is watched by the hold loop that this command has
/// started. Not if it could not claim every fan: what it claims later, in its control step, no one
/// watches. And not if a plan without fans ends that loop.
void Oracle::loseOvertaken() {
    heldFans.lose();
    for (Fan& fan : fans) {
        if (fan.overtaken == Overtaken::byCommand) fan.overtaken = Overtaken::byControlStep;
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

void Oracle::started(Duration time) {
    isRunning = true;
    watchEnded.reset();
    endWatch(time);
    countedFans = fans.size();
    for (Fan& fan : fans) {
        fan.targets.clear();
        fan.overtaken = Overtaken::no;
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
    if (hasReleasedOne && isAnyForced()) count("a signal came between the releases of two fans");
    endWatch(time);
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
