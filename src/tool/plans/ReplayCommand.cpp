#include "tool/plans/ReplayCommand.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>
#include <ostream>
#include <utility>

#include "text/Text.h"
#include "tool/plans/PlanFile.h"
#include "tool/plans/Replay.h"
#include "tool/plans/ReplayOutput.h"
#include "tool/plans/Trace.h"

namespace airflow::tool {

namespace {

std::expected<void, std::string> replayTrace(Replay& replay, TraceReader& trace,
                                             ReplayOutput& output, std::ostream& out) {
    for (;;) {
        const auto tick = trace.next();
        if (!tick) return std::unexpected(tick.error());
        if (!*tick) return {};
        const TraceTick& now = **tick;
        const ReplayTick result = replay.step(now.snapshot, now.snapshot.timestamp);
        if (auto written = output.write(now, result, replay.memory()); !written) return written;
        if (!trace.hasMoreAtHand()) out.flush();  // a live trace: show what is known by now
    }
}

}  // namespace

int replay(const std::string& planPath, const std::string& tracePath, ReplayFormat format,
           std::istream& in, std::ostream& out, std::ostream& err) {
    const auto plan = readPlan(planPath);
    if (!plan) {
        err << plan.error() << '\n';
        return 1;
    }
    const bool isStandardInput = tracePath == "-";
    std::ifstream file;
    if (!isStandardInput) {
        errno = 0;
        file.open(tracePath, std::ios::binary);
        if (!file.is_open()) {
            err << text::printable(tracePath) << ": cannot be read: " << std::strerror(errno)
                << '\n';
            return 1;
        }
    }
    std::unique_ptr<ReplayOutput> output;
    if (format == ReplayFormat::table)
        output = std::make_unique<ReplayTable>(out, *plan);
    else
        output = std::make_unique<ReplayJSONLines>(out);
    TraceReader trace(isStandardInput ? in : file, isStandardInput ? "standard input" : tracePath);
    Replay replay(*plan);
    const auto done = replayTrace(replay, trace, *output, out);
    if (!done) err << done.error() << '\n';
    return done ? 0 : 1;
}

}  // namespace airflow::tool
