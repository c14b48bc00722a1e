// Who is told what, and in which order: the model first, so that monitors judge what is.
#include "simulation/oracle/Oracle.h"

#include <fmt/format.h>

#include <bit>
#include <utility>

#include "simulation/machine/FanKey.h"
#include "simulation/oracle/OracleCommands.h"
#include "simulation/oracle/OracleExits.h"
#include "simulation/oracle/OracleGuard.h"
#include "simulation/oracle/OracleReleases.h"
#include "simulation/oracle/OracleStates.h"
#include "simulation/oracle/OracleWatching.h"
#include "simulation/oracle/OracleWrites.h"

namespace airflow::simulation {

using concurrency::Duration;

std::string describe(const Violation& violation) {
    return fmt::format("{} at {:.3f} s: {}", textOf(violation.property).name,
                       concurrency::inSeconds(violation.time), violation.what);
}

template <typename M>
M& Oracle::add() {
    auto monitor =
        std::make_unique<M>(run, [this](Property property, Duration time, std::string what) {
            fail(property, time, std::move(what));
        });
    M& added = *monitor;
    monitors.push_back(std::move(monitor));
    return added;
}

Oracle::Oracle(const Scenario& scenario) : run(scenario) {
    add<AllowedWritesMonitor>();
    add<ForceTestMonitor>();
    add<RecoveryMonitor>();
    add<ExitMonitor>();
    add<ReleaseLastsMonitor>();
    add<ReleaseMonitor>();
    add<HiddenFanMonitor>();
    add<WatchMonitor>();
    add<GuardMonitor>();
    add<AnswerMonitor>();
    add<AppliedMonitor>();
    add<ControlMonitor>();
    add<StateMonitor>();
    add<ReasonMonitor>();
    counter = &add<CountMonitor>();
}

void Oracle::fail(Property property, Duration time, std::string what) {
    if (!first) first = {.property = property, .time = time, .what = std::move(what)};
}

void Oracle::mix(std::string_view text) {
    for (const char c : text) mix(static_cast<std::uint64_t>(static_cast<unsigned char>(c)));
}

void Oracle::access(const SMCAccess& access) {
    mix(access.key);
    mix(static_cast<std::uint64_t>(access.time.count()));
    mix(std::bit_cast<std::uint64_t>(access.value));
    mix(access.result);
    run.access(access);
    for (const auto& monitor : monitors) monitor->requested(access);
    if (access.operation == Fault::Operation::write) tellModeKey(access);
}

void Oracle::tellModeKey(const SMCAccess& access) {
    const auto key = fanKey(access.key);
    if (!key || key->first >= run.fans.size()) return;
    if (run.fans[key->first].modeKey != access.key) return;
    for (const auto& monitor : monitors) {
        if (access.value == 1) monitor->askedToForce(key->first, access.time);
        if (access.value == 0) monitor->askedToRelease(key->first, access.time);
    }
}

void Oracle::modeChanged(Duration time, std::size_t fan, FanMode mode) {
    mix(fan * 4 + static_cast<std::uint64_t>(mode));
    run.modeChanged(time, fan, mode);
    counter->modeChanged(mode);
}

void Oracle::published(Duration time, const control::ControlState& state) {
    for (const auto& monitor : monitors) monitor->telling(time, state);
    run.published(time, state);
    for (const auto& monitor : monitors) monitor->published(time, state);
}

/// Untrusted peers are not heard, and not answered.
void Oracle::called(Duration time, std::string_view client, const Call& call) {
    if (run.untrustedPeers.contains(std::string(client))) return;
    for (const auto& monitor : monitors) {
        if (run.isReason(call.method)) monitor->reasonArose(time);
    }
    run.called(time, client, call);
    for (const auto& monitor : monitors) monitor->called(time, call);
}

void Oracle::replied(Duration time, const Reply& reply) {
    mix(reply.call);
    if (reply.result) mix(static_cast<std::uint64_t>(reply.result->xpcCode()));
    const auto command = run.replied(time, reply);
    for (const auto& monitor : monitors) {
        if (command)
            monitor->answered(time, *command, reply);
        else
            monitor->answeredInVain(time, reply);
    }
}

/// The lines are for people: they count for the hash alone.
void Oracle::logged(Duration, std::string_view line) {
    mix(line);
}

void Oracle::second(Duration time, SimulatedMac& mac) {
    run.second(time, mac);
    for (const auto& monitor : monitors) monitor->looked(time, mac);
}

void Oracle::started(Duration time) {
    run.started(time);
    for (const auto& monitor : monitors) monitor->started(time);
}

void Oracle::listening(Duration time) {
    run.listening(time);
    for (const auto& monitor : monitors) monitor->listening(time);
}

void Oracle::exitBegan(Duration time) {
    run.exitBegan(time);
    for (const auto& monitor : monitors) monitor->exitBegan(time);
}

void Oracle::guarded(Duration time) {
    run.lastGuarded = run.mark(time);
    for (const auto& monitor : monitors) monitor->guarded(time);
}

void Oracle::signalled(Duration time, daemon::Signal signal) {
    for (const auto& monitor : monitors) monitor->reasonArose(time);
    run.signalled(time);
    for (const auto& monitor : monitors) monitor->signalled(time, signal);
}

void Oracle::ended(const ProcessEnd& end) {
    mix(static_cast<std::uint64_t>(end.status));
    run.ending(end.time);
    for (const auto& monitor : monitors) monitor->ended(end);
    run.ended();
}

void Oracle::connected(Duration, std::string_view client, bool isUntrusted) {
    run.connected(client, isUntrusted);
    counter->connected(isUntrusted);
}

void Oracle::disconnected(Duration time, std::string_view client) {
    for (const auto& monitor : monitors) monitor->reasonArose(time);
    counter->disconnecting(client);
    run.disconnected(time, client);
    counter->disconnected();
}

void Oracle::clockJumped(Duration, double seconds) {
    counter->clockJumped(seconds);
    run.clockJumped(seconds);
}

}  // namespace airflow::simulation
