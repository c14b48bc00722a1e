// ReplayRun: a plan over a whole trace, line by line, and the figures that it comes to.
#pragma once

#include <cstddef>
#include <expected>
#include <functional>
#include <string>

#include "plan/FanControlPlan.h"
#include "tool/common/RunFigures.h"
#include "tool/replay/Replay.h"
#include "tool/replay/Trace.h"
#include "tool/replay/TraceProblems.h"

namespace airflow::tool {

class ReplayRun {
public:
    using Done = std::expected<void, std::string>;

    /// The trace outlives the run.
    ReplayRun(const plan::FanControlPlan& plan, TraceReader& reader)
        : trace(reader), replay(plan) {}

    /// Told of every line and what came of it. What it cannot show ends the run.
    std::function<Done(const TraceTick& tick, const ReplayTick& result)> shown;
    /// Told of what cannot have happened in the trace, with its place; the run then goes on. Empty:
    /// it ends there.
    std::function<void(const std::string& problem)> tolerated;

    /// Up to the end of the trace, or to its first line that is bad. Called once.
    [[nodiscard]] Done play();

    [[nodiscard]] const RunFigures& figures() const { return made; }
    [[nodiscard]] std::size_t lines() const { return count; }

    /// A forced fan runs at the speed that it is told; the firmware's speed is what the trace says.
    [[nodiscard]] static RunFigures::Sample sampleOf(const TraceTick& tick,
                                                     const ReplayTick& result);

private:
    [[nodiscard]] Done judge(const TraceTick& tick);

    TraceReader& trace;
    Replay replay;
    TraceProblems problems;
    RunFigures made;
    std::size_t count = 0;
};

}  // namespace airflow::tool
