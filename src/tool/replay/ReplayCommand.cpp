#include "tool/replay/ReplayCommand.h"

#include <fmt/format.h>

#include <expected>
#include <fstream>
#include <memory>
#include <ostream>
#include <utility>

#include "text/Text.h"
#include "tool/plans/PlanFile.h"
#include "tool/replay/ReplayOutput.h"
#include "tool/replay/ReplayRun.h"

namespace airflow::tool {

namespace {

std::unique_ptr<ReplayOutput> outputOf(const ReplayOptions& options,
                                       const plan::FanControlPlan& plan, std::ostream& out) {
    if (options.plotColumns)
        return std::make_unique<ReplayPicture>(out, plan, *options.plotColumns);
    if (options.format == ReplayFormat::table) return std::make_unique<ReplayTable>(out, plan);
    return std::make_unique<ReplayJSONLines>(out, plan);
}

/// Up to the end of the trace or its first bad line, and then the summary.
std::expected<void, std::string> play(const ReplayOptions& options,
                                      const plan::FanControlPlan& plan, TraceReader& trace,
                                      std::ostream& out, std::ostream& err) {
    const auto output = outputOf(options, plan, out);
    ReplayRun run(plan, trace);
    run.shown = [&](const TraceTick& tick, const ReplayTick& result) {
        auto written = output->write(tick, result);
        if (written && !out) written = std::unexpected("The output cannot be written.");
        if (!trace.hasMoreAtHand()) out.flush();  // a live trace: show what is known by now
        return written;
    };
    if (options.isLenient)
        run.tolerated = [&err](const std::string& problem) { err << problem << '\n'; };
    auto played = run.play();
    if (run.lines() == 0) return played;
    const auto written = output->finish(run.figures());
    return played ? written : played;
}

}  // namespace

int replay(const ReplayOptions& options, std::istream& in, std::ostream& out, std::ostream& err) {
    const bool isStandardInput = options.trace == "-";
    if (isStandardInput && options.plan == "-") {
        err << "Only one of plan and trace can be standard input.\n";
        return 1;
    }
    const auto plan = readPlan(options.plan, in);
    if (!plan) {
        err << plan.error() << '\n';
        return 1;
    }
    std::ifstream file;
    if (!isStandardInput) {
        const auto reason = openFile(options.trace, file);
        if (reason) {
            err << text::printable(options.trace) << ": cannot be read: " << *reason << '\n';
            return 1;
        }
    }
    TraceReader trace(isStandardInput ? in : file, inputName(options.trace));
    const auto played = play(options, *plan, trace, out, err);
    if (!played) err << played.error() << '\n';
    return played ? 0 : 1;
}

}  // namespace airflow::tool
