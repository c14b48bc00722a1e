#include "tool/simulation/ScenarioTable.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

#include "text/Text.h"
#include "tool/simulation/ScenarioFigures.h"

namespace airflow::tool {

namespace {

using concurrency::Duration;
using simulation::Call;

std::string describe(const Call& call) {
    const auto name = daemon::nameOf(call.method);
    switch (call.method) {
        case Call::Method::setManualRPM:
            return fmt::format("{} fan {} at {} RPM", name, call.fan, call.rpm);
        case Call::Method::setPercent:
            return fmt::format("{} fan {} at {} %", name, call.fan, text::plain(call.percent));
        case Call::Method::applyConfig:
            if (call.document) return fmt::format("{} ({} bytes)", name, call.document->size());
            return fmt::format("{} ({}, {})", name, text::counted(call.plan.fans.size(), "fan"),
                               text::counted(call.plan.rules.size(), "rule"));
        default: return std::string(name);
    }
}

std::string_view modeText(simulation::FanMode mode) {
    switch (mode) {
        case simulation::FanMode::forced: return "forced";
        case simulation::FanMode::reclaimed: return "reclaimed";
        case simulation::FanMode::automatic: break;
    }
    return "Auto";
}

/// What the client is told: of a failure no reason, which is in the state.
std::string answerText(const control::ControlResult& result) {
    const bool hasFailed = result.outcome() == control::ControlResult::Case::failed;
    return hasFailed ? "failed" : result.description();
}

/// "  51.8 °C"; a dash, as wide, where there is no temperature.
std::string celsiusText(std::optional<double> celsius) {
    return celsius ? fmt::format("{:>6.1f} °C", *celsius) : fmt::format("{:>6}   ", "—");
}

}  // namespace

void ScenarioTable::line(Duration time, const std::string& what) {
    if (plotColumns) return plot.event(concurrency::inSeconds(time), what);
    std::string text =
        fmt::format("{:>10.1f}  {}", concurrency::inSeconds(time), text::printable(what));
    text.erase(text.find_last_not_of(' ') + 1);
    out << text << '\n';
}

void ScenarioTable::access(const simulation::SMCAccess& access) {
    releases.access(access);
    if (access.operation != simulation::Fault::Operation::write) return;
    ++writes;
    if (access.kernelReturn == 0 && access.result == 0) return;
    ++refusedWrites;
    noteRefusal(access);
}

void ScenarioTable::modeChanged(Duration time, std::size_t fan, simulation::FanMode mode) {
    lastRefusal.clear();
    releases.modeChanged(time, fan, mode);
    setForced(fan, mode == simulation::FanMode::forced, time);
    switch (mode) {
        case simulation::FanMode::forced: line(time, fmt::format("fan {} forced", fan)); break;
        case simulation::FanMode::automatic:
            line(time, fmt::format("fan {} back to Auto", fan));
            break;
        case simulation::FanMode::reclaimed:
            line(time, fmt::format("fan {} taken back by the firmware", fan));
            break;
    }
}

void ScenarioTable::noteRefusal(const simulation::SMCAccess& access) {
    const auto result = access.kernelReturn == 0
                            ? fmt::format("refused (SMC 0x{:x})", access.result)
                            : fmt::format("failed (kernel 0x{:x})",
                                          static_cast<std::uint32_t>(access.kernelReturn));
    const auto text = fmt::format("{}={} {}", access.key, text::plain(access.value), result);
    if (text == lastRefusal) return;
    lastRefusal = text;
    line(access.time, text);
}

void ScenarioTable::setForced(std::size_t fan, bool isForced, Duration time) {
    fans[fan].isForced = isForced;
    const bool anyForced =
        std::ranges::any_of(fans, [](const auto& entry) { return entry.second.isForced; });
    if (anyForced && !controlSince) controlSince = time;
    if (!anyForced && controlSince) {
        controlled += time - *controlSince;
        controlSince.reset();
    }
}

void ScenarioTable::published(Duration time, const control::ControlState& state) {
    releases.published(time, state);
    if (state.lastError && state.lastError != last.lastError) {
        line(time, "lastError: " + *state.lastError);
    }
    if (!state.lastError && last.lastError) line(time, "lastError is gone");
    if (state.stoppedFans != last.stoppedFans) {
        if (state.stoppedFans)
            line(time, fmt::format("stopped: fans {}", *state.stoppedFans));
        else
            line(time, "no fan is stopped any more");
    }
    last = state;
}

void ScenarioTable::called(Duration time, std::string_view client, const Call& call) {
    releases.called(time, call.method);
    if (call.method == Call::Method::heartbeat) return;
    line(time, fmt::format("{}: {}", client, describe(call)));
}

void ScenarioTable::replied(Duration time, const simulation::Reply& reply) {
    releases.replied(time, reply.method);
    if (!reply.isDelivered) return;
    std::string answer = "done";
    if (reply.result) answer = answerText(*reply.result);
    if (reply.method == Call::Method::readState) answer = "no state";
    if (reply.state) answer = reply.state->isHolding ? "holding" : "not holding";
    if (reply.method == Call::Method::helperVersion) answer = reply.version;
    line(time, fmt::format("{}: {} → {}", reply.client, daemon::nameOf(reply.method), answer));
}

void ScenarioTable::logged(Duration time, std::string_view text) {
    if (text.ends_with('\n')) text.remove_suffix(1);
    line(time, "log: " + std::string(text));
}

void ScenarioTable::second(Duration time, simulation::SimulatedMac& mac) {
    std::string row;
    for (std::size_t fan = 0; fan < mac.fanCount(); ++fan) {
        const auto state = mac.fan(fan);
        row += fmt::format("  fan {} {:>5.0f} RPM {:<9}", fan, state.speed, modeText(state.mode));
        fans[fan].speedSum += state.speed;
        if (samples > 0) continue;  // from then on, changes are told
        releases.modeChanged(time, fan, state.mode);
        setForced(fan, state.mode == simulation::FanMode::forced, time);
    }
    const auto celsius = mac.hottest();
    hottest = std::max(hottest, celsius);  // nothing is less than anything
    if (plotColumns) plot.add(sampleOf(time, mac));
    const auto whole = std::chrono::duration_cast<std::chrono::seconds>(time).count();
    if (samples++ == 0 || whole % interval == 0) {
        if (!plotColumns) line(time, fmt::format("| {}{}", celsiusText(celsius), row));
    }
}

void ScenarioTable::started(Duration time) {
    releases.started(time);
    last = control::ControlState::idle();
    if (time > Duration::zero()) line(time, "the daemon starts");
}

void ScenarioTable::signalled(Duration time, daemon::Signal signal) {
    const std::string name = signal == daemon::Signal::terminate ? "SIGTERM" : "SIGINT";
    releases.ending(time, name);
    line(time, name);
}

void ScenarioTable::ended(const simulation::ProcessEnd& end) {
    if (end.isStop())
        line(end.time, "the daemon stops itself");
    else if (end.bySignal)
        line(end.time, "the daemon is killed");
    else
        line(end.time, fmt::format("the daemon exits with status {}", end.status));
}

void ScenarioTable::connected(Duration time, std::string_view client, bool) {
    line(time, fmt::format("{} connects", client));
}

void ScenarioTable::disconnected(Duration time, std::string_view client) {
    releases.ending(time, "the end of a connection");
    line(time, fmt::format("{} is gone", client));
}

void ScenarioTable::finish(Duration time) {
    if (plotColumns) plot.write(out, *plotColumns);
    if (controlSince) controlled += time - *controlSince;
    out << fmt::format("\nunder control    {:.1f} of {:.1f} s\n",
                       concurrency::inSeconds(controlled), concurrency::inSeconds(time));
    out << (hottest ? fmt::format("hottest          {:.1f} °C\n", *hottest)
                    : "hottest          —\n");
    for (const auto& [fan, record] : fans) {
        out << fmt::format("fan {} mean       {:.0f} RPM\n", fan,
                           record.speedSum / static_cast<double>(samples));
    }
    out << fmt::format("writes           {}, of which {} refused or failed\n", writes,
                       refusedWrites);
    const auto causes = releases.finish();
    if (causes.empty()) out << "releases         none\n";
    for (const auto& [cause, count] : causes) {
        out << fmt::format("releases         {} × {}\n", count, cause);
    }
}

}  // namespace airflow::tool
