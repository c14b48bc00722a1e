#include "tool/Tool.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <optional>
#include <ostream>
#include <system_error>
#include <utility>

#include "daemon/BuildIdentity.h"
#include "tool/PlanCommands.h"
#include "tool/client/CallCommand.h"
#include "tool/client/SessionCommand.h"
#include "tool/client/WatchCommand.h"
#include "tool/common/RunPlot.h"
#include "tool/common/Terminal.h"
#include "tool/common/UnknownWord.h"
#include "tool/machine/HelperCommand.h"
#include "tool/machine/MachineCommand.h"
#include "tool/machine/MachinesCommand.h"
#include "tool/machine/RecordCommand.h"
#include "tool/machine/SensorsCommand.h"
#include "tool/replay/ExplainCommand.h"
#include "tool/simulation/SimulateCommand.h"
#include "tool/simulation/SoakCommand.h"

namespace airflow::tool {

namespace {

void addSensors(CLI::App& app, Streams streams, int& status) {
    struct ToolOptions {
        std::string machine = "laptop";
        std::string format = "table";
    };
    CLI::App* const command = app.add_subcommand(
        "sensors", "Read the fans and temperatures of a simulated Mac once, as the daemon would");
    auto options = std::make_shared<ToolOptions>();
    command
        ->add_option("--machine", options->machine,
                     "One of those that the command machines lists (the default: laptop)")
        ->check(CLI::Validator(whyNoMachine, "", "machine"));
    command
        ->add_option("--format", options->format,
                     "table (for people, the default) or json (one line of a trace)")
        ->check(CLI::IsMember({"table", "json"}));
    command->callback([=, &status] {
        const bool isTable = options->format == "table";
        status = showSensors(options->machine, isTable ? SensorsFormat::table : SensorsFormat::json,
                             streams.out, streams.err);
    });
}

void addMachines(CLI::App& app, Streams streams) {
    CLI::App* const command =
        app.add_subcommand("machines", "List the simulated Macs that have a name");
    command->callback([=] { listMachines(streams.out); });
}

void addSimulate(CLI::App& app, Streams streams, int& status) {
    struct ToolOptions {
        SimulateOptions simulate;
        std::string format = "table";
    };
    CLI::App* const command = app.add_subcommand(
        "simulate",
        "Run a scenario (machine, faults, commands) through the whole daemon in virtual "
        "time");
    auto options = std::make_shared<ToolOptions>();
    SimulateOptions& simulated = options->simulate;
    command->add_option("SCENARIO", simulated.scenario, "Scenario (JSON)")->required();
    command
        ->add_option("--format", options->format,
                     "table (a timeline for people, the default) or jsonl (for machines)")
        ->check(CLI::IsMember({"table", "jsonl"}));
    command
        ->add_option("--duration", simulated.duration, "Seconds to play, instead of the scenario's")
        ->check(CLI::Validator(whyNotFinite, "", "seconds") & CLI::Range(0.0, 1e8));
    command->add_option("--seed", simulated.seed,
                        "Another legal order of what happens at the same time (0: in turns)");
    command->add_flag("--reads", simulated.reads, "With jsonl: list reads of the SMC, too");
    command->add_option("--trace", simulated.trace,
                        "Temperatures from this trace (JSON Lines) instead of the scenario's own");
    auto isPlotted = std::make_shared<bool>(false);
    CLI::Option* const plot =
        command->add_flag("--plot", *isPlotted, "Draw the run instead of listing it");
    auto why = std::make_shared<std::string>();
    CLI::Option* const asksWhy = command->add_option(
        "--why", *why, "Explain a fan at a moment, such as 0@37.5, instead of the timeline");
    asksWhy->check(CLI::Validator(whyNoFanAtTime, "", "fan at a time"))->excludes(plot);
    auto isSampled = std::make_shared<bool>(false);
    command
        ->add_flag("--samples", *isSampled,
                   "Write what the daemon read instead: a trace, a line for each look")
        ->excludes(plot)
        ->excludes(asksWhy)
        ->excludes(command->get_option("--format"));
    command->callback([=, &status] {
        options->simulate.format =
            options->format == "table" ? SimulateFormat::table : SimulateFormat::jsonLines;
        if (options->simulate.reads && options->simulate.format == SimulateFormat::table) {
            throw CLI::ValidationError("--reads", "needs --format jsonl");
        }
        if (*isPlotted && options->simulate.format == SimulateFormat::jsonLines)
            throw CLI::ValidationError("--plot", "cannot be had with --format jsonl");
        if (*isSampled) options->simulate.format = SimulateFormat::samples;
        if (*isPlotted) options->simulate.plotColumns = plotColumns();
        if (!why->empty()) options->simulate.why = *FanAtTime::parse(*why);
        // A timeline on the same terminal is progress enough.
        const bool isListed = !*isPlotted && why->empty();
        options->simulate.showsProgress =
            canDrawInPlace(STDERR_FILENO) && !(isListed && isatty(STDOUT_FILENO) == 1);
        status = simulate(options->simulate, streams.out, streams.err);
    });
}

}  // namespace

int runTool(std::vector<std::string> arguments, Streams streams) {
    int status = 0;
    CLI::App app("Design, simulate and prove what the fan-control daemon will do.", "airflow");
    app.set_version_flag("--version", std::string(daemon::BuildIdentity::text));
    app.require_subcommand(1);
    addPlanCommands(app, streams, status);
    addSensors(app, streams, status);
    addMachines(app, streams);
    addMachine(app, streams, status);
    addRecord(app, streams, status);
    addSimulate(app, streams, status);
    addSoak(app, streams, status);
    addHelper(app, streams, status);
    addCall(app, streams, status);
    addSession(app, streams, status);
    addWatch(app, streams, status);
    std::ranges::reverse(arguments);  // as the parser wants them
    try {
        app.parse(std::move(arguments));
    } catch (const std::system_error& error) {
        streams.err << "the system's limit is reached: " << error.code().message() << '\n';
        return 1;
    } catch (const CLI::ParseError& error) {
        const bool isAnswer = error.get_exit_code() == 0;
        const auto unknown = isAnswer ? std::nullopt : unknownWord(app);
        if (unknown)
            streams.err << *unknown << "\nRun with --help for more information.\n";
        else
            (void)app.exit(error, streams.out, streams.err);
        if (!isAnswer) return 2;
    }
    streams.out.flush();
    if (streams.out) return status;
    streams.err << "the output cannot be written\n";
    return 1;
}

}  // namespace airflow::tool
