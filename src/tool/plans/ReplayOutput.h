// ReplayOutput: one line for each tick of a replay, for machines or for people.
#pragma once

#include <cstdint>
#include <expected>
#include <ostream>
#include <string>
#include <vector>

#include "json/Writer.h"
#include "plan/FanControlPlan.h"
#include "tool/plans/Replay.h"
#include "tool/plans/Trace.h"

namespace airflow::tool {

class ReplayOutput {
public:
    ReplayOutput() = default;
    ReplayOutput(const ReplayOutput&) = delete;
    ReplayOutput& operator=(const ReplayOutput&) = delete;
    virtual ~ReplayOutput() = default;

    /// Writes the line of one tick, or says why it has no written form.
    [[nodiscard]] virtual std::expected<void, std::string> write(
        const TraceTick& tick, const ReplayTick& result,
        const evaluation::PlanEvaluator& memory) = 0;
};

/// One JSON object a tick, with all digits that numbers need to read back exactly.
class ReplayJSONLines final : public ReplayOutput {
public:
    explicit ReplayJSONLines(std::ostream& out) : out(out) {}
    [[nodiscard]] std::expected<void, std::string> write(
        const TraceTick& tick, const ReplayTick& result,
        const evaluation::PlanEvaluator& memory) override;

private:
    std::ostream& out;
    json::Writer writer;
};

/// Aligned columns: time, hottest smoothed sensor, each planned fan; then what happened.
class ReplayTable final : public ReplayOutput {
public:
    /// Writes the header line.
    ReplayTable(std::ostream& out, const plan::FanControlPlan& plan);
    [[nodiscard]] std::expected<void, std::string> write(
        const TraceTick& tick, const ReplayTick& result,
        const evaluation::PlanEvaluator& memory) override;

private:
    [[nodiscard]] std::string events(const ReplayTick& result) const;

    std::ostream& out;
    std::vector<std::int64_t> fans;
    std::vector<std::string> ruleNames;
};

}  // namespace airflow::tool
