#include "tool/replay/ReplayOutput.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "text/Text.h"
#include "tool/replay/DecisionForm.h"
#include "tool/replay/ReplayRun.h"

namespace airflow::tool {

namespace {

constexpr std::size_t sensorColumns = 22;
constexpr std::size_t fanColumns = 10;

/// The sensor that is the hottest, smoothed, or as read where nothing was decided.
std::string hottestText(const sensors::SensorSnapshot& snapshot, const ReplayTick& result) {
    std::optional<evaluation::TemperatureRecord> hottest;
    if (const auto raw = snapshot.hottest())
        hottest = {.sensorID = raw->id(), .celsius = raw->celsius};
    if (result.evaluation) hottest = result.evaluation->hottest;
    if (!hottest) return text::padded("no temperatures", sensorColumns + 11);
    const auto sensor =
        std::ranges::find(snapshot.temps, hottest->sensorID, &sensors::TempSensor::id);
    const auto number = std::abs(hottest->celsius) < 1e4 ? fmt::format("{:.2f}", hottest->celsius)
                                                         : fmt::format("{:.1e}", hottest->celsius);
    const auto name = sensor == snapshot.temps.end() ? hottest->sensorID : sensor->name;
    return fmt::format("{} {:>7} °C", text::padded(text::printable(name), sensorColumns), number);
}

std::string fanText(std::int64_t index, const TraceTick& tick, const ReplayTick& result) {
    if (std::ranges::find(tick.snapshot.fans, index, &sensors::Fan::id) == tick.snapshot.fans.end())
        return "absent";
    const auto fan = result.fans.find(index);
    if (fan == result.fans.end() || !fan->second.isForced) return "Auto";
    return fan->second.targetRPM == 0 ? "stopped" : text::roundedRPM(fan->second.targetRPM);
}

/// The rules for which `is` holds of where they stand, and of whether they were latched before.
template <typename Predicate>
std::vector<std::size_t> rulesThat(const ReplayTick& result, Predicate is) {
    std::vector<std::size_t> found;
    if (!result.evaluation) return found;
    const auto& rules = result.evaluation->rules;
    for (std::size_t i = 0; i < rules.size(); ++i) {
        const bool isLatched = rules[i].phase == evaluation::RuleRecord::Phase::latched;
        if (is(isLatched, rules[i].wasLatched)) found.push_back(i);
    }
    return found;
}

std::vector<std::size_t> latchedNow(const ReplayTick& result) {
    return rulesThat(result, [](bool is, bool was) { return is && !was; });
}

std::vector<std::size_t> releasedNow(const ReplayTick& result) {
    return rulesThat(result, [](bool is, bool was) { return was && !is; });
}

}  // namespace

ReplayJSONLines::ReplayJSONLines(std::ostream& stream, const plan::FanControlPlan& plan)
    : out(stream) {
    for (const plan::FanRule& rule : plan.rules) rules.push_back(rule.id);
}

ReplayOutput::Written ReplayJSONLines::write(const TraceTick& tick, const ReplayTick& result) {
    const auto ids = [this](const std::vector<std::size_t>& indices) {
        std::vector<std::string> texts;
        for (const std::size_t index : indices) texts.push_back(rules[index].text());
        return texts;
    };
    writer.clear();
    writer.object([&] {
        writer.member("time", tick.time);
        writer.objectMember("decisions", [&] {
            if (!result.evaluation) return;
            for (const auto& [fan, record] : result.evaluation->fans) {
                writer.member(std::to_string(fan), EncodedDecision{record.decision});
            }
        });
        writer.objectMember("fans", [&] {
            for (const auto& [index, fan] : result.fans) {
                writer.objectMember(std::to_string(index), [&] {
                    writer.member("isForced", fan.isForced);
                    if (fan.isForced) writer.member("targetRPM", fan.targetRPM);
                });
            }
        });
        writer.member("claimed", result.claimed);
        writer.member("released", result.released);
        writer.member("latchedRules", ids(latchedNow(result)));
        writer.member("releasedRules", ids(releasedNow(result)));
        writer.member("state", result.state);
    });
    return line();
}

ReplayOutput::Written ReplayJSONLines::finish(const RunFigures& figures) {
    writer.clear();
    writer.object([&] { writer.member("summary", figures); });
    return line();
}

ReplayOutput::Written ReplayJSONLines::line() {
    const auto text = writer.view();
    if (!text) {
        return std::unexpected(
            fmt::format("{}: {}", text.error().codingPath, text.error().description));
    }
    out << *text << '\n';
    return {};
}

ReplayEvents::ReplayEvents(const plan::FanControlPlan& plan) {
    for (const plan::FanRule& rule : plan.rules) ruleNames.push_back(text::printable(rule.name));
}

ReplayTable::ReplayTable(std::ostream& stream, const plan::FanControlPlan& plan)
    : out(stream), events(plan) {
    for (const plan::FanPlan& fan : plan.fans) {
        if (std::ranges::find(fans, fan.fanID) == fans.end()) fans.push_back(fan.fanID);
    }
    std::string header = fmt::format("{:>12}  {}", "time (s)",
                                     text::padded("hottest (smoothed)", sensorColumns + 11));
    for (const std::int64_t fan : fans) header += fmt::format("  fan {:<{}}", fan, fanColumns - 4);
    out << header << "  events\n";
}

ReplayOutput::Written ReplayTable::write(const TraceTick& tick, const ReplayTick& result) {
    std::string line = fmt::format("{:>12.1f}  {}", tick.time, hottestText(tick.snapshot, result));
    for (const std::int64_t fan : fans) {
        line += "  " + text::padded(fanText(fan, tick, result), fanColumns);
    }
    line += "  " + events.of(result);
    line.erase(line.find_last_not_of(' ') + 1);
    out << line << '\n';
    return {};
}

std::string ReplayEvents::of(const ReplayTick& result) {
    std::vector<std::string> events;
    for (const std::size_t rule : latchedNow(result)) {
        events.push_back(fmt::format("\"{}\" latched", ruleNames[rule]));
    }
    for (const std::size_t rule : releasedNow(result)) {
        events.push_back(fmt::format("\"{}\" let go", ruleNames[rule]));
    }
    for (const std::int64_t fan : result.claimed) {
        events.push_back(fmt::format("fan {} claimed", fan));
    }
    for (const std::int64_t fan : result.released) {
        events.push_back(fmt::format("fan {} back to Auto", fan));
    }
    if (result.state.lastError && result.state.lastError != lastError)
        events.push_back(*result.state.lastError);
    lastError = result.state.lastError;
    return fmt::format("{}", fmt::join(events, ", "));
}

ReplayOutput::Written ReplayTable::finish(const RunFigures& figures) {
    out << '\n';
    figures.write(out);
    return {};
}

ReplayOutput::Written ReplayPicture::write(const TraceTick& tick, const ReplayTick& result) {
    plot.add(ReplayRun::sampleOf(tick, result));
    if (const auto text = events.of(result); !text.empty()) plot.event(tick.time, text);
    return {};
}

ReplayOutput::Written ReplayPicture::finish(const RunFigures& figures) {
    plot.write(out, columns);
    out << '\n';
    figures.write(out);
    return {};
}

}  // namespace airflow::tool
