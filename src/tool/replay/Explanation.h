// Explanation: why a fan is told what it is told, and what would change it.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "evaluation/EvaluationRecord.h"
#include "json/Writer.h"
#include "tool/replay/Situation.h"

namespace airflow::tool {

/// Of one fan in one evaluation. Every number in it comes from the evaluator.
class Explanation {
public:
    /// Nothing for a fan without a decision: the plan does not plan it, or the machine lacks it.
    [[nodiscard]] static std::optional<Explanation> of(const Situation& situation,
                                                       std::int64_t fan);

    /// What the fan would do in this evaluation if the rule that won let go now.
    [[nodiscard]] const std::optional<evaluation::FanDecision>& runnerUp() const {
        return otherwise;
    }
    /// When a curve's target is no longer limited, if nothing changes, seconds.
    [[nodiscard]] const std::optional<double>& secondsToSpeed() const { return reachedAfter; }

    /// A block of lines for people, the first with the fan and its decision.
    void write(std::ostream& out) const;
    void encode(json::Writer& writer) const;

private:
    Explanation(const Situation& situation, std::int64_t fan);

    using Lines = std::vector<std::pair<std::string, std::string>>;  ///< label and text

    [[nodiscard]] bool isTargetedBy(const plan::FanRule& rule) const;
    [[nodiscard]] std::string sensorName(const std::string& id) const;
    [[nodiscard]] std::string temperatureText(const evaluation::TemperatureRecord& sensor) const;
    [[nodiscard]] std::string curveText() const;
    [[nodiscard]] std::string ruleText() const;
    [[nodiscard]] std::string stopText() const;
    [[nodiscard]] std::string limitText() const;
    void addSource(Lines& lines) const;
    void addSpeed(Lines& lines) const;
    [[nodiscard]] Lines lines() const;
    [[nodiscard]] std::string changeText(std::size_t rule) const;
    [[nodiscard]] std::vector<std::string> changes() const;

    Situation situation;
    std::int64_t fan;
    evaluation::EvaluationRecord all;
    evaluation::FanRecord record;
    plan::FanPlan planned;  ///< the entry that counts
    std::optional<evaluation::FanDecision> otherwise;
    std::optional<double> reachedAfter;
};

/// "2101 RPM", "stopped", "left to the firmware".
[[nodiscard]] std::string decisionText(const evaluation::FanDecision& decision);

}  // namespace airflow::tool
