// ReplayOutput: what a replay says, for machines or for people.
#pragma once

#include <cstdint>
#include <expected>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "json/Writer.h"
#include "plan/FanControlPlan.h"
#include "tool/common/RunFigures.h"
#include "tool/common/RunPlot.h"
#include "tool/replay/Replay.h"
#include "tool/replay/Trace.h"

namespace airflow::tool {

class ReplayOutput {
public:
    ReplayOutput() = default;
    ReplayOutput(const ReplayOutput&) = delete;
    ReplayOutput& operator=(const ReplayOutput&) = delete;
    virtual ~ReplayOutput() = default;

    using Written = std::expected<void, std::string>;

    /// Writes the line of one tick, or says why it has no written form.
    [[nodiscard]] virtual Written write(const TraceTick& tick, const ReplayTick& result) = 0;
    /// Writes the summary.
    [[nodiscard]] virtual Written finish(const RunFigures& figures) = 0;
};

/// One JSON object a tick, and one for the summary, with all digits that numbers need to read back
/// exactly.
class ReplayJSONLines final : public ReplayOutput {
public:
    ReplayJSONLines(std::ostream& out, const plan::FanControlPlan& plan);
    [[nodiscard]] Written write(const TraceTick& tick, const ReplayTick& result) override;
    [[nodiscard]] Written finish(const RunFigures& figures) override;

private:
    [[nodiscard]] Written line();

    std::ostream& out;
    std::vector<plan::UUID> rules;
    json::Writer writer;
};

/// What happens on a tick, in words.
class ReplayEvents {
public:
    explicit ReplayEvents(const plan::FanControlPlan& plan);

    /// Empty when nothing happened. Called for each tick in its order.
    [[nodiscard]] std::string of(const ReplayTick& result);

private:
    std::vector<std::string> ruleNames;
    std::optional<std::string> lastError;
};

/// Aligned columns: time, hottest smoothed sensor, each planned fan; then what happened.
class ReplayTable final : public ReplayOutput {
public:
    /// Writes the header line.
    ReplayTable(std::ostream& out, const plan::FanControlPlan& plan);
    [[nodiscard]] Written write(const TraceTick& tick, const ReplayTick& result) override;
    [[nodiscard]] Written finish(const RunFigures& figures) override;

private:
    std::ostream& out;
    std::vector<std::int64_t> fans;
    ReplayEvents events;
};

/// The whole replay drawn, and the summary.
class ReplayPicture final : public ReplayOutput {
public:
    ReplayPicture(std::ostream& out, const plan::FanControlPlan& plan, std::size_t columns)
        : out(out), columns(columns), events(plan) {}
    [[nodiscard]] Written write(const TraceTick& tick, const ReplayTick& result) override;
    [[nodiscard]] Written finish(const RunFigures& figures) override;

private:
    std::ostream& out;
    std::size_t columns;
    ReplayEvents events;
    RunPlot plot;
};

}  // namespace airflow::tool
