#include "simulation/oracle/OracleCounts.h"

#include <algorithm>
#include <chrono>
#include <variant>

#include "concurrency/Require.h"

namespace airflow::simulation {

using namespace std::chrono_literals;

void CountMonitor::count(std::string_view happening) {
    const auto found = std::ranges::find(sometimes, happening);
    concurrency::require(found != sometimes.end(), "what is counted is in the list");
    ++counters.at(static_cast<std::size_t>(found - sometimes.begin()));
}

void CountMonitor::modeChanged(FanMode mode) {
    if (mode == FanMode::reclaimed) count("the firmware took a fan back");
}

void CountMonitor::askedToRelease(std::size_t index, Duration) {
    const RunModel::Fan& fan = run.fans[index];
    if (fan.refusals == 0 && refusals[index] >= 10) {
        count("a fan refused ten times in a row and then went back");
    }
    if (fan.refusals == 100) count("a fan refused a hundred times in a row");
    refusals[index] = fan.refusals;
    if (fan.isFalselyReleased) count("the SMC said that a fan went back when it did not");
}

void CountMonitor::published(Duration, const control::ControlState& state) {
    if (!state.cause) return;
    if (std::holds_alternative<control::HeartbeatLost>(*state.cause)) {
        count("the watchdog released fans");
    }
    if (std::holds_alternative<control::CeilingExceeded>(*state.cause)) {
        count("the ceiling released fans");
    }
    const auto* const missing = std::get_if<control::TemperaturesMissing>(&*state.cause);
    if (missing && missing->isReleased()) count("missing temperatures released fans");
}

void CountMonitor::called(Duration, const Call& call) {
    if (!isControl(call.method) || call.document) return;
    if (run.exiting) count("a command came while the process exited");
    const bool isOthers = std::ranges::any_of(run.commands, [&](const auto& entry) {
        return entry.second.isControl() && entry.second.client != call.client;
    });
    if (isOthers) count("two clients had commands under way at once");
}

void CountMonitor::answered(Duration, const RunModel::Command& command, const Reply& reply) {
    const bool isUnreadable = reply.result && reply.result->xpcCode() == 7;
    if (command.isGarbage && isUnreadable) count("garbage was answered with 7");
}

/// A claim asks every 100 ms.
void CountMonitor::reasonArose(Duration now) {
    const bool isClaiming = std::ranges::any_of(run.fans, [&](const RunModel::Fan& fan) {
        return fan.refusedForce && run.since(*fan.refusedForce, now) <= 150ms;
    });
    if (isClaiming) count("a release came in the middle of a claim");
}

void CountMonitor::connected(bool isUntrusted) {
    if (isUntrusted) count("an untrusted peer connected");
}

void CountMonitor::disconnecting(std::string_view client) {
    const auto waiting = std::ranges::count_if(
        run.commands, [&](const auto& entry) { return entry.second.client == client; });
    if (waiting > 10) count("a client went with more than ten commands waiting");
}

void CountMonitor::clockJumped(double seconds) {
    if (seconds < 0 && run.isAnyForced()) {
        count("the wall clock was set back while a fan was forced");
    }
}

void CountMonitor::guarded(Duration) {
    count("the guard gave fans back");
}

void CountMonitor::disconnected() {
    if (!run.isControlUnderWay()) return;
    count("a connection ended during a claim");
    if (run.nobodyThere) count("the last connection ended while commands were under way");
}

void CountMonitor::looked(Duration now, SimulatedMac&) {
    const auto isNow = [now](const HIDHang& hang) { return hang.from <= now && now < hang.until; };
    if (run.isAnyForced() && std::ranges::any_of(run.scenario.hidHangs, isNow)) {
        count("the HID hub hung while a fan was forced");
    }
    const auto isRefusing = [](const RunModel::Fan& fan) {
        return fan.isForced && fan.refusals > 0;
    };
    if (run.hotSince && std::ranges::any_of(run.fans, isRefusing)) {
        count("the ceiling came while a fan refused to go back");
    }
}

void CountMonitor::signalled(Duration now, daemon::Signal) {
    const bool hasReleasedOne = std::ranges::any_of(run.fans, [&](const RunModel::Fan& fan) {
        return !fan.isForced && fan.lastRelease && now - fan.lastRelease->time < 10ms;
    });
    if (hasReleasedOne && run.isAnyForced()) {
        count("a signal came between the releases of two fans");
    }
}

void CountMonitor::ended(const ProcessEnd& end) {
    if (end.bySignal && !run.isListening) count("the process was killed during recovery");
    if (end.bySignal && run.isAnyForced()) count("the process was killed while a fan was forced");
    if (end.status == 0) count("an upgrade ended the process");
    if (end.status == 1) count("a start failed");
    if (run.exiting && end.time - run.exiting->time >= 3s) {
        count("an exit ran into its limit of 3 s");
    }
}

}  // namespace airflow::simulation
