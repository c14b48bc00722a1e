#include "tool/simulation/SimulateCommand.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <expected>
#include <ostream>
#include <utility>

#include "simulation/scenario/ScenarioRun.h"
#include "text/Text.h"
#include "tool/common/Progress.h"
#include "tool/replay/Situation.h"
#include "tool/simulation/ScenarioFile.h"
#include "tool/simulation/ScenarioJSONLines.h"
#include "tool/simulation/ScenarioSamples.h"
#include "tool/simulation/ScenarioTable.h"
#include "tool/simulation/TraceTemperatures.h"

namespace airflow::tool {

namespace {

using concurrency::Duration;

/// Every 5 seconds; less often where that would be more than some hundred lines.
std::int64_t sampleInterval(Duration length) {
    constexpr std::int64_t usual = 5;
    constexpr std::int64_t lines = 120;
    const std::int64_t seconds = std::chrono::duration_cast<std::chrono::seconds>(length).count();
    return std::max(usual, seconds / lines / usual * usual);
}

/// Also tells a person how far the run has come.
template <typename Observer>
class WithProgress final : public Observer {
public:
    template <typename... Arguments>
    explicit WithProgress(Progress& progress, Duration length, Arguments&&... arguments)
        : Observer(std::forward<Arguments>(arguments)...), progress(progress), length(length) {}

    void second(Duration time, simulation::SimulatedMac& mac) override {
        Observer::second(time, mac);
        if (!progress.isDue()) return;
        progress.tell(concurrency::inSeconds(time) / concurrency::inSeconds(length),
                      fmt::format("{} of {}", roughly(time), roughly(length)));
    }

private:
    Progress& progress;
    const Duration length;
};

std::expected<void, std::string> play(const simulation::Scenario& scenario,
                                      const SimulateOptions& options, Duration length,
                                      Progress& progress, std::ostream& out) {
    if (options.format == SimulateFormat::samples) {
        ScenarioSamples samples(out);
        simulation::ScenarioRun(scenario, samples, options.seed).play(length);
        return samples.finish();
    }
    if (options.format == SimulateFormat::jsonLines) {
        WithProgress<ScenarioJSONLines> lines(progress, length, out, options.reads);
        simulation::ScenarioRun(scenario, lines, options.seed).play(length);
        return {};
    }
    WithProgress<ScenarioTable> table(progress, length, out, sampleInterval(length),
                                      options.plotColumns);
    simulation::ScenarioRun(scenario, table, options.seed).play(length);
    progress.hide();
    table.finish(length);
    return {};
}

std::expected<simulation::Scenario, std::string> readSituation(const SimulateOptions& options) {
    auto scenario = readScenario(options.scenario);
    if (!scenario || !options.trace) return scenario;
    if (const auto followed = followTrace(*scenario, *options.trace); !followed)
        return std::unexpected(followed.error());
    return scenario;
}

/// The last decision that is not after a moment, as long as it holds.
class LastEvaluation : public simulation::ScenarioObserver {
public:
    explicit LastEvaluation(double seconds) : seconds(seconds) {}

    void evaluating(Duration time,
                    const control::LocalFanController::Evaluation& evaluation) override {
        if (!isInTime(time)) return;
        situation = Situation::of(evaluation);
        decidedAt = concurrency::inSeconds(time);
    }
    void published(Duration time, const control::ControlState& state) override {
        if (!isInTime(time)) return;
        lastError = state.lastError;
        const bool isReleased = state.cause && control::isSafetyRelease(*state.cause);
        if (isReleased || state == control::ControlState::idle()) situation.reset();
    }
    void ended(const simulation::ProcessEnd& end) override {
        if (!isInTime(end.time)) return;
        situation.reset();
        lastError = "the daemon has ended";
    }

    /// Nothing also where the hold loop has not decided for so long that it has ended.
    [[nodiscard]] std::optional<Situation> holding() const {
        constexpr double longestPause = 5;  // seconds; a tick takes about 1.6 s
        return decidedAt && seconds - *decidedAt <= longestPause ? situation : std::nullopt;
    }
    [[nodiscard]] std::string reason() const {
        return lastError.value_or("no plan is in force, so the daemon controls no fan");
    }

private:
    [[nodiscard]] bool isInTime(Duration time) const {
        return concurrency::inSeconds(time) <= seconds;
    }

    const double seconds;
    std::optional<Situation> situation;
    std::optional<double> decidedAt;
    std::optional<std::string> lastError;
};

int explainAt(const simulation::Scenario& scenario, const SimulateOptions& options,
              const FanAtTime& why, Duration length, Progress& progress, std::ostream& out,
              std::ostream& err) {
    WithProgress<LastEvaluation> last(progress, length, why.seconds);
    simulation::ScenarioRun(scenario, last, options.seed).play(length);
    progress.hide();
    const auto situation = last.holding();
    if (!situation) {
        err << fmt::format("{}: nothing is decided at {} s: {}\n",
                           text::printable(options.scenario), text::plain(why.seconds),
                           last.reason());
        return 1;
    }
    return explainSituation(*situation, why.fan, ExplainFormat::text, out, err);
}

}  // namespace

int simulate(const SimulateOptions& options, std::ostream& out, std::ostream& err) {
    const auto scenario = readSituation(options);
    if (!scenario) {
        err << scenario.error() << '\n';
        return 1;
    }
    const Duration length =
        options.duration ? Duration(std::llround(*options.duration * 1e9)) : scenario->length();
    Progress progress(err, options.showsProgress);
    try {
        if (options.why)
            return explainAt(*scenario, options, *options.why, length, progress, out, err);
        const auto played = play(*scenario, options, length, progress, out);
        if (played) return 0;
        out.flush();
        err << text::printable(options.scenario) << ": " << played.error() << '\n';
    } catch (const simulation::Stuck& stuck) {
        progress.hide();
        out.flush();
        err << text::printable(options.scenario) << ": " << stuck.what() << '\n';
    }
    return 1;
}

}  // namespace airflow::tool
