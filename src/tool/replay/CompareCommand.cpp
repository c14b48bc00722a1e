#include "tool/replay/CompareCommand.h"

#include <fmt/format.h>

#include <algorithm>
#include <expected>
#include <fstream>
#include <functional>
#include <ostream>
#include <sstream>
#include <utility>

#include "simulation/scenario/ScenarioRun.h"
#include "text/Table.h"
#include "text/Text.h"
#include "tool/common/JSONLine.h"
#include "tool/common/RunFigures.h"
#include "tool/common/RunPlot.h"
#include "tool/plans/PlanFile.h"
#include "tool/replay/ReplayOutput.h"
#include "tool/replay/ReplayRun.h"
#include "tool/simulation/ScenarioFigures.h"
#include "tool/simulation/ScenarioFile.h"

namespace airflow::tool {

namespace {

template <typename T>
using Result = std::expected<T, std::string>;

struct Played {
    std::string name;
    RunFigures figures;
    RunPlot plot;

    void encode(json::Writer& writer) const {
        writer.object([&] {
            writer.member("plan", name);
            writer.member("figures", figures);
        });
    }
};

Result<Played> replayed(const std::string& name, const plan::FanControlPlan& plan,
                        const std::string& path) {
    std::ifstream file;
    if (const auto reason = openFile(path, file))
        return std::unexpected(
            fmt::format("{}: cannot be read: {}", text::printable(path), *reason));
    TraceReader trace(file, path);
    ReplayRun run(plan, trace);
    Played played{.name = name, .figures = {}, .plot = {}};
    ReplayEvents events(plan);
    run.shown = [&](const TraceTick& tick, const ReplayTick& result) -> Result<void> {
        played.plot.add(ReplayRun::sampleOf(tick, result));
        if (const auto text = events.of(result); !text.empty()) played.plot.event(tick.time, text);
        return {};
    };
    const auto done = run.play();
    if (!done) return std::unexpected(done.error());
    played.figures = run.figures();
    return played;
}

Result<Played> simulated(const std::string& name, const plan::FanControlPlan& plan,
                         const std::string& path) {
    auto scenario = readScenario(path);
    if (!scenario) return std::unexpected(scenario.error());
    bool isApplied = false;
    for (simulation::Event& event : scenario->events) {
        auto* const call = std::get_if<simulation::Call>(&event);
        if (!call || call->method != simulation::Call::Method::applyConfig) continue;
        call->plan = plan;
        call->document.reset();
        isApplied = true;
    }
    if (!isApplied)
        return std::unexpected(text::printable(path) + ": applies no plan that could be replaced");
    ScenarioFigures observer;
    Played played{.name = name, .figures = {}, .plot = {}};
    observer.sampled = [&played](const RunFigures::Sample& sample) { played.plot.add(sample); };
    observer.noted = [&played](double seconds, const std::string& event) {
        played.plot.event(seconds, event);
    };
    try {
        simulation::ScenarioRun(*scenario, observer, 0).play(scenario->length());
    } catch (const simulation::Stuck& stuck) {
        return std::unexpected(text::printable(path) + ": " + stuck.what());
    }
    played.figures = observer.finish();
    return played;
}

/// One figure of all plans. The least is the best.
struct Row {
    std::string title;
    std::vector<double> values;
    int digits = 0;
    bool isRated = true;
};

std::vector<std::string> cellsOf(const Row& row) {
    const double best = *std::ranges::min_element(row.values);
    const bool isTold =
        row.isRated && std::ranges::any_of(row.values, [best](double v) { return v > best; });
    std::vector<std::string> cells{row.title};
    for (const double value : row.values) {
        cells.push_back(
            fmt::format("{:.{}f} {}", value, row.digits, isTold && value == best ? "*" : " "));
    }
    return cells;
}

std::vector<Row> rowsOf(const std::vector<Played>& all) {
    const auto row = [&all](std::string title, int digits,
                            const std::function<double(const RunFigures&)>& value) {
        Row made{.title = std::move(title), .values = {}, .digits = digits};
        for (const Played& each : all) made.values.push_back(value(each.figures));
        return made;
    };
    std::vector<Row> rows;
    rows.push_back(row("hottest, °C", 1, [](const auto& f) { return f.hottest().value_or(0); }));
    rows.push_back(row("under control, s", 1, [](const auto& f) { return f.controlledSeconds(); }));
    rows.back().isRated = false;
    rows.push_back(row("fans given back", 0, [](const auto& f) {
        double count = 0;
        for (const auto& [cause, times] : f.releases()) count += static_cast<double>(times);
        return count;
    }));
    std::vector<std::int64_t> fans;
    const auto figuresByFan = all.front().figures.fans();
    for (const auto& [fan, figures] : figuresByFan) fans.push_back(fan);
    for (const std::int64_t fan : fans) {
        const auto fanRow = [&](const std::string& title, int digits, auto member) {
            rows.push_back(row(fmt::format("fan {} {}", fan, title), digits, [=](const auto& f) {
                const auto made = f.fans();
                const auto found = made.find(fan);
                return found == made.end() ? 0.0 : static_cast<double>(found->second.*member);
            }));
        };
        using Figures = RunFigures::FanFigures;
        fanRow("mean RPM", 0, &Figures::meanRPM);
        fanRow("top RPM", 0, &Figures::topRPM);
        fanRow(fmt::format("s above {:.0f} %", RunFigures::loudPercent), 0, &Figures::loudSeconds);
        fanRow("starts", 0, &Figures::starts);
        fanRow("stops", 0, &Figures::stops);
        fanRow("changes a minute", 1, &Figures::changesPerMinute);
    }
    return rows;
}

void writeTable(const std::vector<Played>& all, std::ostream& out) {
    std::vector<text::Table::Column> columns{{"", text::Table::Align::left}};
    for (const Played& each : all)
        columns.push_back({text::printable(each.name) + "  ", text::Table::Align::right});
    text::Table table(std::move(columns));
    for (const Row& row : rowsOf(all)) table.add(cellsOf(row));
    table.write(out);
    out << "* the best; lower is better in each line\n";
    for (const Played& each : all) {
        for (const auto& [cause, count] : each.figures.releases())
            out << fmt::format("{}: {} × {}\n", text::printable(each.name), count,
                               text::printable(cause));
    }
}

}  // namespace

int compare(const CompareOptions& options, std::ostream& out, std::ostream& err) {
    std::vector<Played> all;
    std::istringstream nothing;
    if (options.trace == "-" || options.scenario == "-") {
        err << "Trace or scenario to compare plans in are files, not standard input.\n";
        return 1;
    }
    for (const std::string& path : options.plans) {
        const auto plan =
            path == "-"
                ? std::unexpected(std::string("Plans to compare are files, not standard input."))
                : readPlan(path, nothing);
        auto played = !plan              ? Result<Played>(std::unexpected(plan.error()))
                      : options.scenario ? simulated(path, *plan, *options.scenario)
                                         : replayed(path, *plan, *options.trace);
        if (!played) {
            err << played.error() << '\n';
            return 1;
        }
        all.push_back(std::move(*played));
    }
    if (options.isJSON)
        return writeJSONLine([&all](json::Writer& writer) { writer.member("plans", all); }, out,
                             err);
    if (options.isPlotted) {
        for (const Played& each : all) {
            out << text::printable(each.name) << '\n';
            each.plot.write(out, options.columns);
            out << '\n';
        }
    }
    writeTable(all, out);
    return 0;
}

}  // namespace airflow::tool
