#include "tool/replay/ReplayCommand.h"

#include <fmt/format.h>

#include <chrono>
#include <expected>
#include <filesystem>
#include <fstream>
#include <memory>
#include <ostream>
#include <utility>

#include "text/Text.h"
#include "tool/common/Progress.h"
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

/// Tells how much of a file has been read; nothing of a stream, whose length nobody knows.
class ReadingProgress {
public:
    ReadingProgress(const ReplayOptions& options, std::istream& trace, std::ostream& err)
        : input(trace), progress(err, options.showsProgress) {
        std::error_code unknown;
        const auto bytes = std::filesystem::file_size(options.trace, unknown);
        if (!unknown) size = static_cast<double>(bytes);
    }

    void tell(std::size_t lines) {
        if (size <= 0 || !progress.isDue()) return;
        const auto seconds = std::chrono::duration<double>(Progress::Clock::now() - start).count();
        progress.tell(
            static_cast<double>(input.tellg()) / size,
            fmt::format("{} lines, {:.0f} a second", lines, static_cast<double>(lines) / seconds));
    }
    void hide() { progress.hide(); }

private:
    std::istream& input;
    const Progress::Clock::time_point start = Progress::Clock::now();
    double size = 0;
    Progress progress;
};

/// Up to the end of the trace or its first bad line, and then the summary.
std::expected<void, std::string> play(const ReplayOptions& options,
                                      const plan::FanControlPlan& plan, std::istream& input,
                                      std::ostream& out, std::ostream& err) {
    TraceReader trace(input, inputName(options.trace));
    ReadingProgress progress(options, input, err);
    const auto output = outputOf(options, plan, out);
    ReplayRun run(plan, trace);
    run.shown = [&](const TraceTick& tick, const ReplayTick& result) {
        progress.tell(run.lines());
        auto written = output->write(tick, result);
        if (written && !out) written = std::unexpected("The output cannot be written.");
        if (!trace.hasMoreAtHand()) out.flush();  // a live trace: show what is known by now
        return written;
    };
    if (options.isLenient)
        run.tolerated = [&err](const std::string& problem) { err << problem << '\n'; };
    auto played = run.play();
    progress.hide();
    if (run.lines() == 0) return played;
    const auto written = output->finish(run.figures());
    return played ? written : played;
}

}  // namespace

int replay(const ReplayOptions& options, std::istream& in, std::ostream& out, std::ostream& err) {
    const bool isStandardInput = options.trace == "-";
    const auto plan = readPlanBeside(options.plan, options.trace, in);
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
    const auto played = play(options, *plan, isStandardInput ? in : file, out, err);
    if (!played) err << played.error() << '\n';
    return played ? 0 : 1;
}

}  // namespace airflow::tool
