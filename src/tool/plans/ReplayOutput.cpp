#include "tool/plans/ReplayOutput.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cmath>

#include "text/Text.h"

namespace airflow::tool {

namespace {

constexpr std::size_t sensorColumns = 22;
constexpr std::size_t fanColumns = 10;

struct DecisionEncoder {
    json::Writer& writer;

    void operator()(const evaluation::Target& target) const {
        writer.object(
            [&] { writer.objectMember("target", [&] { writer.member("rpm", target.rpm); }); });
    }
    void operator()(const evaluation::ReleaseToAuto&) const { writer.emptyCase("releaseToAuto"); }
    void operator()(const evaluation::IdleStopped&) const { writer.emptyCase("idleStopped"); }
};

/// Gives a decision its JSON form.
struct EncodedDecision {
    const evaluation::FanDecision& decision;

    void encode(json::Writer& writer) const { std::visit(DecisionEncoder{writer}, decision); }
};

void encodeActions(json::Writer& writer, const evaluation::FanHoldActions& actions) {
    writer.member("toClaim", actions.toClaim);
    writer.member("toRelease", actions.toRelease);
    writer.member("targets", actions.targets);
    writer.member("forceTestEnabled", actions.forceTestEnabled);
    writer.member("stoppedFans", actions.stoppedFans);
    writer.member("isGlobalIdle", actions.isGlobalIdle);
}

struct DecisionText {
    std::string operator()(const evaluation::Target& target) const {
        const bool isUsual = std::abs(target.rpm) < 1e5;
        return isUsual ? fmt::format("{:.0f} RPM", target.rpm)
                       : fmt::format("{:.0e} RPM", target.rpm);
    }
    std::string operator()(const evaluation::ReleaseToAuto&) const { return "Auto"; }
    std::string operator()(const evaluation::IdleStopped&) const { return "stopped"; }
};

/// The sensor whose smoothed temperature is the largest, and that temperature.
std::string hottestText(const sensors::SensorSnapshot& snapshot,
                        const evaluation::PlanEvaluator& memory) {
    if (memory.emaBySensor.empty()) return text::padded("no temperatures", sensorColumns + 11);
    const auto hottest = memory.hottest();
    for (const sensors::TempSensor& sensor : snapshot.temps) {
        if (memory.emaBySensor.at(sensor.id()) != hottest) continue;
        const auto number = std::abs(*hottest) < 1e4 ? fmt::format("{:.2f}", *hottest)
                                                     : fmt::format("{:.1e}", *hottest);
        return fmt::format("{} {:>7} °C", text::padded(text::printable(sensor.name), sensorColumns),
                           number);
    }
    return text::padded("not a number", sensorColumns + 11);
}

}  // namespace

std::expected<void, std::string> ReplayJSONLines::write(const TraceTick& tick,
                                                        const ReplayTick& result,
                                                        const evaluation::PlanEvaluator&) {
    writer.clear();
    writer.object([&] {
        writer.member("time", tick.time);
        writer.objectMember("decisions", [&] {
            for (const auto& [fan, decision] : result.decisions) {
                writer.member(std::to_string(fan), EncodedDecision{decision});
            }
        });
        writer.objectMember("actions", [&] { encodeActions(writer, result.actions); });
    });
    const auto text = writer.view();
    if (!text) {
        return std::unexpected(
            fmt::format("{}: {}", text.error().codingPath, text.error().description));
    }
    out << *text << '\n';
    return {};
}

ReplayTable::ReplayTable(std::ostream& out, const plan::FanControlPlan& plan) : out(out) {
    for (const plan::FanPlan& fan : plan.fans) {
        if (std::ranges::find(fans, fan.fanID) == fans.end()) fans.push_back(fan.fanID);
    }
    for (const plan::FanRule& rule : plan.rules) ruleNames.push_back(text::printable(rule.name));
    std::string header = fmt::format("{:>12}  {}", "time (s)",
                                     text::padded("hottest (smoothed)", sensorColumns + 11));
    for (const std::int64_t fan : fans) header += fmt::format("  fan {:<{}}", fan, fanColumns - 4);
    out << header << "  events\n";
}

std::expected<void, std::string> ReplayTable::write(const TraceTick& tick, const ReplayTick& result,
                                                    const evaluation::PlanEvaluator& memory) {
    std::string line = fmt::format("{:>12.1f}  {}", tick.time, hottestText(tick.snapshot, memory));
    for (const std::int64_t fan : fans) {
        const auto decision = result.decisions.find(fan);
        const bool absent = decision == result.decisions.end();
        line +=
            "  " + text::padded(absent ? "absent" : std::visit(DecisionText{}, decision->second),
                                fanColumns);
    }
    line += "  " + events(result);
    line.erase(line.find_last_not_of(' ') + 1);
    out << line << '\n';
    return {};
}

std::string ReplayTable::events(const ReplayTick& result) const {
    std::vector<std::string> events;
    for (const std::size_t rule : result.latchedRules) {
        events.push_back(fmt::format("\"{}\" latched", ruleNames[rule]));
    }
    for (const std::size_t rule : result.releasedRules) {
        events.push_back(fmt::format("\"{}\" let go", ruleNames[rule]));
    }
    for (const std::int64_t fan : result.actions.toClaim) {
        events.push_back(fmt::format("fan {} claimed", fan));
    }
    for (const std::int64_t fan : result.actions.toRelease) {
        events.push_back(fmt::format("fan {} back to Auto", fan));
    }
    return fmt::format("{}", fmt::join(events, ", "));
}

}  // namespace airflow::tool
