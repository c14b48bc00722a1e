#include "tool/Tool.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <ostream>
#include <utility>

#include "daemon/BuildIdentity.h"
#include "tool/client/CallCommand.h"
#include "tool/client/SessionCommand.h"
#include "tool/client/WatchCommand.h"
#include "tool/machine/HelperCommand.h"
#include "tool/machine/MachineCommand.h"
#include "tool/machine/MachinesCommand.h"
#include "tool/machine/SensorsCommand.h"
#include "tool/plans/CheckCommand.h"
#include "tool/plans/ReplayCommand.h"
#include "tool/simulation/SimulateCommand.h"
#include "tool/simulation/SoakCommand.h"

namespace airflow::tool {

namespace {

void addCheck(CLI::App& app, Streams streams, int& status) {
    struct ToolOptions {
        CheckOptions check;
        std::string format = "text";
    };
    CLI::App* const command = app.add_subcommand(
        "check",
        "Review plan documents: what is wrong with them, what will not work as it seems to be "
        "meant, and what they would do");
    auto options = std::make_shared<ToolOptions>();
    CheckOptions& checked = options->check;
    command->add_option("PLAN", checked.paths, "Plan documents (JSON); - is standard input")
        ->required();
    command->add_flag("--strict", checked.isStrict, "Fail for warnings, too");
    command
        ->add_option("--format", options->format,
                     "text (for people, the default) or json (one object)")
        ->check(CLI::IsMember({"text", "json"}));
    CLI::Option* const machine =
        command
            ->add_option("--machine", checked.machine,
                         "Also look for fans and sensors that this machine lacks: one of those "
                         "that the command machines lists")
            ->check(CLI::Validator(whyNoMachine, "", "machine"));
    command
        ->add_option("--trace", checked.trace,
                     "The same for the machine on which a trace was recorded")
        ->excludes(machine);
    command->callback([=, &status] {
        const bool isText = options->format == "text";
        options->check.format = isText ? CheckFormat::text : CheckFormat::json;
        status = check(options->check, streams.in, streams.out, streams.err);
    });
}

void addReplay(CLI::App& app, Streams streams, int& status) {
    struct ToolOptions {
        std::string plan;
        std::string trace;
        std::string format = "table";
    };
    CLI::App* const command = app.add_subcommand(
        "replay", "Run a plan over recorded temperatures; one line for each line of the trace");
    auto options = std::make_shared<ToolOptions>();
    command->add_option("PLAN", options->plan, "Plan document (JSON)")->required();
    command->add_option("--trace", options->trace, "Trace (JSON Lines); - is standard input")
        ->required();
    command
        ->add_option("--format", options->format,
                     "table (for people, the default) or jsonl (one JSON object a tick)")
        ->check(CLI::IsMember({"table", "jsonl"}));
    command->callback([=, &status] {
        const bool isTable = options->format == "table";
        status = replay(options->plan, options->trace,
                        isTable ? ReplayFormat::table : ReplayFormat::jsonLines, streams.in,
                        streams.out, streams.err);
    });
}

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
                     "table (for people, the default) or json (one object)")
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
        ->check(CLI::Range(0.0, 1e8));
    command->add_option("--seed", simulated.seed,
                        "Another legal order of what happens at the same time (0: in turns)");
    command->add_flag("--reads", simulated.reads, "With jsonl: list reads of the SMC, too");
    command->callback([=, &status] {
        options->simulate.format =
            options->format == "table" ? SimulateFormat::table : SimulateFormat::jsonLines;
        if (options->simulate.reads && options->simulate.format == SimulateFormat::table) {
            throw CLI::ValidationError("--reads", "needs --format jsonl");
        }
        status = simulate(options->simulate, streams.out, streams.err);
    });
}

}  // namespace

int runTool(std::vector<std::string> arguments, Streams streams) {
    int status = 0;
    CLI::App app("Design, simulate and prove what the fan-control daemon will do.", "airflow");
    app.set_version_flag("--version", std::string(daemon::BuildIdentity::text));
    app.require_subcommand(1);
    addCheck(app, streams, status);
    addReplay(app, streams, status);
    addSensors(app, streams, status);
    addMachines(app, streams);
    addMachine(app, streams, status);
    addSimulate(app, streams, status);
    addSoak(app, streams, status);
    addHelper(app, streams, status);
    addCall(app, streams, status);
    addSession(app, streams, status);
    addWatch(app, streams, status);
    std::ranges::reverse(arguments);  // as the parser wants them
    try {
        app.parse(std::move(arguments));
    } catch (const CLI::ParseError& error) {
        const bool isAnswer = app.exit(error, streams.out, streams.err) == 0;
        if (!isAnswer) return 2;
    }
    streams.out.flush();
    if (streams.out) return status;
    streams.err << "the output cannot be written\n";
    return 1;
}

}  // namespace airflow::tool
