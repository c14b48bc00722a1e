#include "tool/replay/Explanation.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <ostream>
#include <utility>

#include "evaluation/FanStopPolicy.h"
#include "text/Text.h"
#include "tool/replay/DecisionForm.h"

namespace airflow::tool {

namespace {

using evaluation::EvaluationRecord;
using evaluation::FanRecord;
using evaluation::RuleRecord;

constexpr double tickSeconds = 1.5;

struct DecisionText {
    std::string operator()(const evaluation::Target& target) const {
        return text::roundedRPM(target.rpm);
    }
    std::string operator()(const evaluation::ReleaseToAuto&) const {
        return "left to the firmware";
    }
    std::string operator()(const evaluation::IdleStopped&) const { return "stopped"; }
};

std::string pointText(const plan::CurvePoint& point) {
    return fmt::format("{} °C → {} %", text::plain(point.celsius), text::plain(point.percent));
}

/// When the fan's target is what its curve asks for, if no temperature changes any more and no rule
/// interferes; nothing if that takes longer than anybody waits.
std::optional<double> secondsToSpeed(const Situation& situation, std::int64_t fan) {
    constexpr int mostTicks = 10'000;
    const EvaluationRecord now = situation.record();
    const FanRecord& first = now.fans.at(fan);
    const bool isLimited = first.limitedRPM && first.limitedRPM != first.wantedRPM;
    if (!isLimited || !first.rules.empty()) return std::nullopt;
    Situation still = situation;
    for (plan::FanRule& rule : still.plan.rules) rule.enabled = false;
    still.plan.tuning.emaAlpha = 0;  // what is smoothed stays as it is now
    for (const auto& [id, sensor] : now.sensors) still.memory.emaBySensor[id] = sensor.smoothed;
    EvaluationRecord record;
    for (int tick = 0; tick <= mostTicks; ++tick) {
        const auto then = situation.now + concurrency::Seconds(tickSeconds * tick);
        (void)still.memory.evaluate(still.plan, still.snapshot, then, &record);
        const FanRecord& made = record.fans.at(fan);
        if (!made.limitedRPM) return std::nullopt;  // the fan stops before
        if (made.limitedRPM == made.wantedRPM) return tickSeconds * tick;
    }
    return std::nullopt;
}

}  // namespace

std::string decisionText(const evaluation::FanDecision& decision) {
    return std::visit(DecisionText{}, decision);
}

std::optional<Explanation> Explanation::of(const Situation& situation, std::int64_t fan) {
    Explanation explanation(situation, fan);
    if (!explanation.all.fans.contains(fan)) return std::nullopt;
    explanation.record = explanation.all.fans.at(fan);
    const auto& latched = explanation.record.rules;
    if (!latched.empty()) {
        // The others stay: one of them may be what the fan does instead.
        const auto without = situation.recordWithout({latched.front()});
        explanation.otherwise = without.fans.at(fan).decision;
    }
    for (const plan::FanPlan& entry : situation.plan.fans) {
        if (entry.fanID == fan) explanation.planned = entry;
    }
    explanation.reachedAfter = tool::secondsToSpeed(situation, fan);
    return explanation;
}

Explanation::Explanation(const Situation& asked, std::int64_t index)
    : situation(asked), fan(index), all(asked.record()) {}

bool Explanation::isTargetedBy(const plan::FanRule& rule) const {
    return rule.fanTarget.fanID.value_or(fan) == fan;
}

std::string Explanation::sensorName(const std::string& id) const {
    const auto& temps = situation.snapshot.temps;
    const auto sensor = std::ranges::find(temps, id, &sensors::TempSensor::id);
    return text::printable(sensor == temps.end() ? id : sensor->name);
}

std::string Explanation::temperatureText(const evaluation::TemperatureRecord& sensor) const {
    const auto& made = all.sensors.at(sensor.sensorID);
    return fmt::format("{} ({}) {:.2f} °C, smoothed {:.2f} °C", sensorName(sensor.sensorID),
                       text::printable(sensor.sensorID), made.raw, made.smoothed);
}

std::string Explanation::curveText() const {
    const std::string percent = fmt::format("{:.1f} %", record.percent.value_or(0));
    if (!record.segment) return "without points: " + percent;
    const auto& [from, to] = *record.segment;
    if (from != to)
        return fmt::format("between {} and {}: {}", pointText(from), pointText(to), percent);
    const double celsius = record.temperature ? record.temperature->celsius : from.celsius;
    const char* const place = celsius < from.celsius   ? "before its first point"
                              : celsius > from.celsius ? "after its last point"
                                                       : "at its point";
    return fmt::format("{}, {}: {}", place, pointText(from), percent);
}

std::string Explanation::ruleText() const {
    const plan::FanRule& rule = situation.plan.rules[record.rules.front()];
    const RuleRecord& state = all.rules[record.rules.front()];
    std::string text = fmt::format("\"{}\" forces {} %", text::printable(rule.name),
                                   text::plain(rule.targetPercent));
    if (state.watched) text += fmt::format("; it watches {}", temperatureText(*state.watched));
    if (state.since)
        text += fmt::format("; rose above {} °C {:.1f} s ago", text::plain(rule.thresholdCelsius),
                            (situation.now - *state.since).count());
    return text;
}

std::string Explanation::stopText() const {
    using namespace evaluation::FanStopPolicy;
    const auto secondsSince = [this](concurrency::Date date) {
        return (situation.now - date).count();
    };
    if (record.zeroSince && !record.isStopped)
        return fmt::format("0 % for {:.1f} s; the fan stops after {:.0f} s",
                           secondsSince(*record.zeroSince), stopDwellSeconds.count());
    if (!record.isStopped) return {};
    if (record.resumeSince)
        return fmt::format("stopped; {:.0f} % or more for {:.1f} s; the fan starts after {:.0f} s",
                           resumePercent.value(), secondsSince(*record.resumeSince),
                           resumeDwellSeconds.count());
    return fmt::format("stopped; {:.0f} % for {:.0f} s would start the fan", resumePercent.value(),
                       resumeDwellSeconds.count());
}

std::string Explanation::limitText() const {
    std::string text =
        fmt::format("at most {} RPM from the last target, {}: {}",
                    text::plain(situation.plan.tuning.maxDeltaRPMPerTick),
                    text::roundedRPM(*record.lastRPM), text::roundedRPM(*record.limitedRPM));
    if (reachedAfter)
        text += fmt::format("; {} reached in {} s", text::roundedRPM(*record.wantedRPM),
                            text::plain(*reachedAfter));
    return text;
}

void Explanation::addSource(Lines& lines) const {
    if (!record.rules.empty()) {
        lines.emplace_back("rule", ruleText());
        if (otherwise) lines.emplace_back("instead of", decisionText(*otherwise));
        return;
    }
    if (const auto* fixed = std::get_if<plan::FixedRPM>(&planned.mode.mode))
        lines.emplace_back("fixed", text::plain(fixed->rpm) + " RPM");
    if (const auto* fixed = std::get_if<plan::FixedPercent>(&planned.mode.mode))
        lines.emplace_back("fixed", text::plain(fixed->percent) + " %");
    if (planned.mode.isAutomatic()) lines.emplace_back("plan", "leaves the fan to the firmware");
    const auto* const curve = std::get_if<plan::FanCurve>(&planned.mode.mode);
    if (!curve) return;
    if (!record.temperature) {
        const auto id = curve->sourceSensorID.value_or("any sensor");
        lines.emplace_back("sensor", text::printable(id) + " is missing");
        return;
    }
    lines.emplace_back("sensor", temperatureText(*record.temperature) +
                                     (curve->sourceSensorID ? "" : ", the hottest"));
    lines.emplace_back("curve", curveText());
}

void Explanation::addSpeed(Lines& lines) const {
    if (const auto stop = stopText(); !stop.empty()) lines.emplace_back("stop", stop);
    if (!record.wantedRPM) return;
    if (record.percent)
        lines.emplace_back(
            "range",
            fmt::format("{:.1f} % of {} to {} RPM: {}", std::clamp(*record.percent, 0.0, 100.0),
                        record.minRPM, record.maxRPM, text::roundedRPM(*record.wantedRPM)));
    const bool isLimited = record.limitedRPM && record.limitedRPM != record.wantedRPM;
    if (isLimited) lines.emplace_back("limit", limitText());
    const auto* const target = std::get_if<evaluation::Target>(&record.decision);
    const double asked = record.limitedRPM.value_or(*record.wantedRPM);
    if (target && target->rpm != asked)
        lines.emplace_back(
            "clamp", fmt::format("{} is outside {} to {} RPM: {}", text::roundedRPM(asked),
                                 record.minRPM, record.maxRPM, text::roundedRPM(target->rpm)));
}

Explanation::Lines Explanation::lines() const {
    Lines lines;
    addSource(lines);
    addSpeed(lines);
    return lines;
}

/// What would start the rule, or end it.
std::string Explanation::changeText(std::size_t index) const {
    const plan::FanRule& rule = situation.plan.rules[index];
    const RuleRecord& state = all.rules[index];
    if (!state.watched || !isTargetedBy(rule)) return {};
    const auto name =
        fmt::format("\"{}\" ({} %)", text::printable(rule.name), text::plain(rule.targetPercent));
    const double celsius = state.watched->celsius;
    const auto sensor = sensorName(state.watched->sensorID);
    if (state.phase == RuleRecord::Phase::latched)
        return fmt::format("{:.1f} °C less on {} ends rule {}", celsius - rule.releaseLevel(),
                           sensor, name);
    if (state.phase == RuleRecord::Phase::waiting) {
        const double left = rule.dwellSeconds - (situation.now - *state.since).count();
        return fmt::format("{:.1f} s more above {} °C on {} start rule {}", left,
                           text::plain(rule.thresholdCelsius), sensor, name);
    }
    return fmt::format("{:.1f} °C more on {} start rule {} in {} s",
                       rule.thresholdCelsius - celsius, sensor, name,
                       text::plain(std::max(0.0, rule.dwellSeconds)));
}

/// By the rules that could win.
std::vector<std::string> Explanation::changes() const {
    std::vector<std::string> texts;
    const std::size_t end =
        record.rules.empty() ? situation.plan.rules.size() : record.rules.front() + 1;
    for (std::size_t rule = 0; rule < end; ++rule) {
        if (auto text = changeText(rule); !text.empty()) texts.push_back(std::move(text));
    }
    return texts;
}

void Explanation::write(std::ostream& out) const {
    out << fmt::format("fan {}: {}\n", fan, decisionText(record.decision));
    for (const auto& [label, text] : lines()) out << fmt::format("  {:<11} {}\n", label, text);
    for (const std::string& text : changes()) out << fmt::format("  {:<11} {}\n", "change", text);
}

void Explanation::encode(json::Writer& writer) const {
    writer.object([&] {
        writer.member("fan", fan);
        writer.member("decision", EncodedDecision{record.decision});
        if (record.temperature) {
            const auto& sensor = all.sensors.at(record.temperature->sensorID);
            writer.objectMember("sensor", [&] {
                writer.member("id", record.temperature->sensorID);
                writer.member("celsius", sensor.raw);
                writer.member("smoothedCelsius", sensor.smoothed);
            });
        }
        if (record.segment) {
            writer.objectMember("segment", [&] {
                writer.member("from", record.segment->from);
                writer.member("to", record.segment->to);
            });
        }
        std::vector<std::string> rules;
        for (const std::size_t rule : record.rules)
            rules.push_back(situation.plan.rules[rule].id.text());
        writer.member("latchedRules", rules);
        if (otherwise) writer.member("runnerUp", EncodedDecision{*otherwise});
        writer.member("percent", record.percent);
        writer.member("isStopped", record.isStopped);
        writer.member("wantedRPM", record.wantedRPM);
        writer.member("lastRPM", record.lastRPM);
        writer.member("limitedRPM", record.limitedRPM);
        writer.member("secondsToSpeed", reachedAfter);
        writer.member("minRPM", record.minRPM);
        writer.member("maxRPM", record.maxRPM);
        writer.member("changes", changes());
    });
}

}  // namespace airflow::tool
