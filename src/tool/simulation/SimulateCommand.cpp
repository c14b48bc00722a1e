#include "tool/simulation/SimulateCommand.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <ostream>

#include "simulation/scenario/ScenarioRun.h"
#include "text/Text.h"
#include "tool/plans/PlanFile.h"
#include "tool/simulation/ScenarioJSONLines.h"
#include "tool/simulation/ScenarioTable.h"

namespace airflow::tool {

namespace {

using concurrency::Duration;

std::expected<simulation::Scenario, std::string> readScenario(const std::string& path) {
    const auto text = readFile(path);
    if (!text) return std::unexpected(fmt::format("{}: cannot be read: {}", path, text.error()));
    const auto folder = std::filesystem::path(path).parent_path();
    auto scenario = simulation::Scenario::parse(*text, [&folder](const std::string& name) {
        auto file = readFile((folder / name).string());
        if (!file) file = std::unexpected("cannot be read: " + file.error());
        return file;
    });
    if (!scenario) return std::unexpected(text::printable(scenario.error().describe(path)));
    return std::move(*scenario);
}

/// Every 5 seconds; less often where that would be more than some hundred lines.
std::int64_t sampleInterval(Duration length) {
    constexpr std::int64_t usual = 5;
    constexpr std::int64_t lines = 120;
    const std::int64_t seconds = std::chrono::duration_cast<std::chrono::seconds>(length).count();
    return std::max(usual, seconds / lines / usual * usual);
}

void play(const simulation::Scenario& scenario, const SimulateOptions& options, Duration length,
          std::ostream& out) {
    if (options.format == SimulateFormat::jsonLines) {
        ScenarioJSONLines lines(out, options.reads);
        simulation::ScenarioRun(scenario, lines, options.seed).play(length);
        return;
    }
    ScenarioTable table(out, sampleInterval(length));
    simulation::ScenarioRun(scenario, table, options.seed).play(length);
    table.finish(length);
}

}  // namespace

int simulate(const SimulateOptions& options, std::ostream& out, std::ostream& err) {
    const auto scenario = readScenario(options.scenario);
    if (!scenario) {
        err << scenario.error() << '\n';
        return 1;
    }
    const Duration length =
        options.duration ? Duration(std::llround(*options.duration * 1e9)) : scenario->length();
    try {
        play(*scenario, options, length, out);
    } catch (const simulation::Stuck& stuck) {
        out.flush();
        err << options.scenario << ": " << stuck.what() << '\n';
        return 1;
    }
    return 0;
}

}  // namespace airflow::tool
