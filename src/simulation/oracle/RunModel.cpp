// What the model makes of clients and of the process. RunModelMachine.cpp holds the machine.
#include "simulation/oracle/RunModel.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <utility>

namespace airflow::simulation {

namespace {

using concurrency::Duration;
using Method = Call::Method;
using namespace std::chrono_literals;

const std::int64_t rejectedCode = control::ControlResult::rejected(0).xpcCode();

bool isGarbage(const Call& call) {
    return call.method == Method::applyConfig && call.document;
}

}  // namespace

bool isControl(Method method) {
    return method == Method::setManualRPM || method == Method::setPercent ||
           method == Method::fullBlast || method == Method::applyConfig;
}

bool isRelease(Method method) {
    return method == Method::automatic || method == Method::restoreAuto ||
           method == Method::shutdownForUpgrade;
}

bool RunModel::Command::isControl() const {
    return simulation::isControl(method) && !isGarbage;
}

RunModel::RunModel(const Scenario& played)
    : scenario(played),
      perFan(10s * static_cast<std::int64_t>(played.machine.fans.size())),
      fans(played.machine.fans.size()),
      countedFans(fans.size()),
      countedFansAtStart(fans.size()),
      heldFans(fans.size()) {
    for (std::size_t i = 0; i < fans.size(); ++i) {
        fans[i].modeKey = played.machine.fans[i].modeKey.value_or("");
        fans[i].isForced = played.machine.fans[i].mode == 1;
        if (fans[i].isForced) fans[i].lastForced = Mark{};
    }
}

bool RunModel::isAnyForced() const {
    return std::ranges::any_of(fans, [](const Fan& fan) { return fan.isForced; });
}

bool RunModel::isControlUnderWay() const {
    return std::ranges::any_of(commands,
                               [](const auto& entry) { return entry.second.isControl(); });
}

bool RunModel::isReleaseUnderWay() const {
    return std::ranges::any_of(commands,
                               [this](const auto& entry) { return isReason(entry.second.method); });
}

bool RunModel::isUndisturbed(Duration now) const {
    return commands.empty() && !(lastRelease && since(*lastRelease, now) < 1s);
}

bool RunModel::isUnwanted() const {
    return std::ranges::all_of(fans, [](const Fan& fan) { return fan.unwantedSince.has_value(); });
}

bool RunModel::isReason(Method method) const {
    return isRelease(method) && (method != Method::automatic || scenario.effectiveUserID == 0);
}

bool RunModel::isSilent(Duration now) const {
    return concurrency::inSeconds(now - lastHeartbeat) + clockForward > 15;
}

bool RunModel::isPending(const Fan& fan, Duration now) const {
    return fan.lastRelease && fan.lastRelease->time >= fan.forcedSince.time &&
           since(*fan.lastRelease, now) <= 2500ms;
}

Duration RunModel::claims(const Mark& from) const {
    const bool isClaiming = lastForceRefusal && lastForceRefusal->time >= from.time;
    return isClaiming ? (isControlUnderWay() ? 2 : 1) * perFan : Duration::zero();
}

/// A reason to give every fan back. A second one while the first is being dealt with asks for
/// nothing sooner. A command that came in the same moment may be the newer of the two, where there
/// is somebody left who could have sent it.
void RunModel::release(const Mark& reason, bool mayBeOlder) {
    std::set<std::size_t> wanted;
    for (const auto& [id, command] : commands) {
        if (!mayBeOlder || !command.isControl() || command.called.time < reason.time) continue;
        wanted.insert(command.manages.begin(), command.manages.end());
    }
    for (std::size_t i = 0; i < fans.size(); ++i) {
        // The guard looks again for one that the SMC denied.
        if (std::exchange(fans[i].isDenied, false)) fans[i].readableSince = reason;
        if (!wanted.contains(i) && !fans[i].unwantedSince) fans[i].unwantedSince = reason;
    }
    lastRelease = reason;
    heldFans.release();
    if (!wanted.empty()) heldFans.lose();
}

void RunModel::called(Duration time, std::string_view client, const Call& call) {
    Command command{.method = call.method,
                    .isGarbage = isGarbage(call),
                    .client = std::string(client),
                    .called = mark(time),
                    .wasControlUnderWay = isControlUnderWay()};
    if (command.isControl()) noteControl(time, call, command);
    if (command.isControl() || call.method == Method::heartbeat) {
        if (isSilent(time)) longSilence = mark(time);
        lastHeard = mark(time);
    }
    if (call.method == Method::heartbeat) return heard(time);
    if (isReason(call.method)) release(mark(time), true);
    commands[call.id] = std::move(command);
}

void RunModel::noteControl(Duration time, const Call& call, Command& command) {
    command.manages = managedFans(call, fans.size());
    command.fixes = fixedFans(call, fans.size());
    lastCommand = lastControl = mark(time);
    for (const std::size_t fan : command.manages) {
        if (fan >= fans.size() || !fans[fan].unwantedSince) continue;
        command.unwantedBefore[fan] = *fans[fan].unwantedSince;
        fans[fan].unwantedSince.reset();
    }
    if (scenario.effectiveUserID == 0) heldFans.command(call, isUndisturbed(time));
    for (auto& [id, other] : commands) {
        if (other.isControl()) other.wasDisturbed = command.wasDisturbed = true;
        other.wasControlUnderWay = true;
    }
}

void RunModel::heard(Duration time) {
    lastHeartbeat = std::max(lastHeartbeat, time);
    clockBack = clockForward = 0;
}

std::optional<RunModel::Command> RunModel::replied(Duration time, const Reply& reply) {
    const auto found = commands.find(reply.call);
    if (found == commands.end()) return std::nullopt;
    Command command = std::move(found->second);
    commands.erase(found);
    if (command.isControl()) noteAnswer(time, command, reply);
    return command;
}

void RunModel::noteAnswer(Duration time, const Command& command, const Reply& reply) {
    const bool isNewest = lastCommand.time <= command.called.time;
    const bool isOverdue = lastRelease && command.called.time < lastRelease->time;
    const bool hasFailed = !reply.result || reply.result->xpcCode() == 7;
    // It may not have counted the fans, and have changed nothing; a tick counts them, too.
    const bool mayBeUncounted =
        command.method == Method::fullBlast && hasFailed && command.wasCountRefused;
    if (mayBeUncounted && !command.counted && isNewest) noteUncounted(command);
    if (!reply.result || !reply.result->isApplied()) heldFans.lose();
    const bool hasLeftOut = command.counted.value_or(fans.size()) < fans.size();
    if (command.method == Method::fullBlast && hasLeftOut) heldFans.lose();
    if (isOverdue && isNewest) return;  // a release has ended it, and nobody is heard by that
    // A plan in force counts as one heard. One that was rejected may have been superseded before.
    const bool isRejected = reply.result && reply.result->xpcCode() == rejectedCode;
    const bool mayBeUnheard = isRejected || mayBeUncounted;
    if (!mayBeUnheard && isSilent(command.called.time)) longSilence = mark(time);
    if (!mayBeUnheard) lastHeartbeat = std::max(lastHeartbeat, command.called.time);
    lastHeard = lastControl = mark(time);
    if (command.method != Method::applyConfig || command.wasDisturbed || !isNewest) return;
    for (std::size_t i = 0; i < fans.size(); ++i) {
        if (command.manages.contains(i) || fans[i].unwantedSince) continue;
        fans[i].unwantedSince = command.called;  // it was given back before the others were claimed
    }
}

void RunModel::noteUncounted(const Command& command) {
    for (const auto& [fan, since] : command.unwantedBefore) {
        const bool isOthers = std::ranges::any_of(commands, [fan](const auto& entry) {
            return entry.second.isControl() && entry.second.manages.contains(fan);
        });
        if (isOthers) continue;
        const auto& asked = fans[fan].lastForceRequest;
        const bool wasAsked = asked && asked->time >= command.called.time;
        if (!wasAsked && !fans[fan].unwantedSince) fans[fan].unwantedSince = since;
    }
}

/// The daemon tells its state after each check of the hold loop, and after what commands have done.
void RunModel::published(Duration time, const control::ControlState& state) {
    lastCheck = mark(time);
    if (!state.cause) return;
    const bool isRefused = std::holds_alternative<control::NotRestored>(*state.cause);
    if (isRefused) heldFans.lose();
    if (control::isSafetyRelease(*state.cause)) noteSafetyRelease(time);
}

/// It is published when it is over. A command that came meanwhile is newer.
void RunModel::noteSafetyRelease(Duration time) {
    Mark begin = mark(time);
    for (const Fan& fan : fans) {
        const bool isOfIt = fan.lastRelease && since(*fan.lastRelease, time) < 1s;
        if (isOfIt && fan.lastRelease->time < begin.time) begin = *fan.lastRelease;
    }
    heldFans.lose();
    if (isControlUnderWay() || lastControl.time >= begin.time) return;
    release(begin, true);
}

void RunModel::started(Duration time) {
    isRunning = true;
    isListening = false;
    exiting.reset();
    connections.clear();
    nobodyThere.reset();
    clock.abandon(time);
    for (Fan& fan : fans) {
        fan.unwantedSince.reset();
        fan.lastRelease.reset();
        fan.lastForceRequest.reset();
        fan.refusedForce.reset();
        fan.givenBack.reset();
        fan.isMachinesOwn = fan.isFalselyReleased = false;
        fan.isKnown = fan.isInReleases = fan.hasFailedProbe = fan.wasDenied = false;
        fan.refusals = 0;
    }
    countedFansAtStart = fans.size();
    lastCheck = lastHeard = mark(time);
    release(mark(time), false);
}

void RunModel::listening(Duration time) {
    isListening = true;
    listeningSince = lastHeard = lastCheck = mark(time);
    lastHeartbeat = time;
    // What came before waited until now, and so did the ends of connections.
    for (Fan& fan : fans) {
        if (fan.unwantedSince) fan.unwantedSince = mark(time);
    }
    for (auto& [id, command] : commands) {
        command.called = mark(time);
        // In which order they come, and the ends of connections, is not known. When all clients
        // are gone nothing is forced any more.
        if (!command.isControl() || connections.empty()) continue;
        for (const std::size_t fan : command.manages) {
            if (fan < fans.size()) fans[fan].unwantedSince.reset();
        }
        heldFans.lose();
    }
}

void RunModel::exitBegan(Duration time) {
    if (!exiting) exiting = mark(time);
}

void RunModel::signalled(Duration time) {
    release(mark(time), true);
}

void RunModel::ended() {
    isRunning = isListening = false;
    exiting.reset();
    commands.clear();
    untrustedPeers.clear();
    connections.clear();
    nobodyThere.reset();
}

void RunModel::connected(std::string_view client, bool isUntrusted) {
    connections.emplace(client);
    nobodyThere.reset();
    if (isUntrusted) untrustedPeers.emplace(client);
}

void RunModel::disconnected(Duration time, std::string_view client) {
    untrustedPeers.erase(std::string(client));
    connections.erase(std::string(client));
    if (connections.empty() && isListening) nobodyThere = mark(time);
    release(mark(time), !nobodyThere);
}

void RunModel::clockJumped(double seconds) {
    (seconds < 0 ? clockBack : clockForward) += std::abs(seconds);
}

}  // namespace airflow::simulation
