#include "tool/PlanCommands.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <memory>
#include <vector>

#include "json/Decoder.h"
#include "tool/common/RunPlot.h"
#include "tool/common/Terminal.h"
#include "tool/machine/MachinesCommand.h"
#include "tool/machine/SensorsCommand.h"
#include "tool/plans/CheckCommand.h"
#include "tool/replay/CompareCommand.h"
#include "tool/replay/ExplainCommand.h"
#include "tool/replay/ReplayCommand.h"

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
    CLI::App* const command = app.add_subcommand(
        "replay",
        "Run the daemon's controller over recorded temperatures; one line for each line of the "
        "trace, and a summary");
    auto options = std::make_shared<ReplayOptions>();
    command->add_option("PLAN", options->plan, "Plan document (JSON); - is standard input")
        ->required();
    command->add_option("--trace", options->trace, "Trace (JSON Lines); - is standard input")
        ->required();
    auto format = std::make_shared<std::string>("table");
    command
        ->add_option("--format", *format,
                     "table (for people, the default) or jsonl (one JSON object a tick)")
        ->check(CLI::IsMember({"table", "jsonl"}));
    auto isPlotted = std::make_shared<bool>(false);
    command->add_flag("--plot", *isPlotted, "Draw the replay instead of listing it");
    auto why = std::make_shared<std::string>();
    auto* const asksWhy =
        command->add_option("--why", *why, "Explain a fan at a moment, such as 0@37.5, instead");
    asksWhy->check(CLI::Validator(whyNoFanAtTime, "", "fan at a time"))
        ->excludes(command->get_option("--plot"))
        ->excludes(command->get_option("--format"));
    command->add_flag("--lenient", options->isLenient,
                      "Report what cannot have happened in the trace, and go on");
    command->callback([=, &status] {
        options->format = *format == "table" ? ReplayFormat::table : ReplayFormat::jsonLines;
        if (*isPlotted && options->format == ReplayFormat::jsonLines)
            throw CLI::ValidationError("--plot", "cannot be had with --format jsonl");
        if (*isPlotted) options->plotColumns = plotColumns();
        const bool isListed = !*isPlotted && isatty(STDOUT_FILENO) == 1;
        options->showsProgress = canDrawInPlace(STDERR_FILENO) && !isListed;
        if (!why->empty()) {
            const auto asked = FanAtTime::parse(*why);
            status = explain({.plan = options->plan,
                              .trace = options->trace,
                              .seconds = asked->seconds,
                              .isLenient = options->isLenient,
                              .fan = asked->fan},
                             streams.in, streams.out, streams.err);
            return;
        }
        status = replay(*options, streams.in, streams.out, streams.err);
    });
}

void addExplain(CLI::App& app, Streams streams, int& status) {
    CLI::App* const command = app.add_subcommand(
        "explain", "Say why a plan runs each fan as it does at a moment, and what would change it");
    auto options = std::make_shared<ExplainOptions>();
    command->add_option("PLAN", options->plan, "Plan document (JSON); - is standard input")
        ->required();
    auto* const trace =
        command->add_option("--trace", options->trace, "Trace (JSON Lines); - is standard input");
    trace->needs(command->add_option("--at", options->seconds, "Seconds, in the trace's own time")
                     ->check(CLI::Validator(whyNotFinite, "", "seconds")));
    auto* const temperatures =
        command->add_option("--temperature", options->temperatures,
                            "SMC-KEY=°C or HID-LABEL=°C, once for each sensor, instead of a trace");
    temperatures->excludes(trace);
    command
        ->add_option("--machine", options->machine,
                     "Whose fans, with temperatures: one that the command machines lists "
                     "(the default: laptop)")
        ->check(CLI::Validator(whyNoMachine, "", "machine"));
    command->add_option("--fan", options->fan, "This fan only")
        ->check(CLI::Range(std::int64_t{0}, std::int64_t{9}));
    auto format = std::make_shared<std::string>("text");
    command->add_option("--format", *format, "text (for people, the default) or json (one object)")
        ->check(CLI::IsMember({"text", "json"}));
    command->callback([=, &status] {
        if (!options->trace && options->temperatures.empty())
            throw CLI::RequiredError("--trace with --at, or --temperature");
        options->format = *format == "text" ? ExplainFormat::text : ExplainFormat::json;
        status = explain(*options, streams.in, streams.out, streams.err);
    });
}

void addCompare(CLI::App& app, Streams streams, int& status) {
    CLI::App* const command = app.add_subcommand(
        "compare", "Play several plans in the same situation, and show their figures side by side");
    auto options = std::make_shared<CompareOptions>();
    command->add_option("PLAN", options->plans, "Plan documents (JSON)")->required();
    auto* const trace = command->add_option("--trace", options->trace,
                                            "Trace (JSON Lines) to replay each plan over");
    auto* const scenario =
        command->add_option("--scenario", options->scenario,
                            "Scenario (JSON) in which each plan takes the place of its own");
    trace->excludes(scenario);
    auto format = std::make_shared<std::string>("text");
    command->add_option("--format", *format, "text (for people, the default) or json (one object)")
        ->check(CLI::IsMember({"text", "json"}));
    command->add_flag("--plot", options->isPlotted, "With text: draw each run, too");
    command->callback([=, &status] {
        if (!options->trace && !options->scenario)
            throw CLI::RequiredError("--trace or --scenario");
        options->isJSON = *format == "json";
        if (options->isJSON && options->isPlotted)
            throw CLI::ValidationError("--plot", "cannot be had with --format json");
        options->columns = plotColumns();
        status = compare(*options, streams.out, streams.err);
    });
}

}  // namespace

/// A range lets pass what is not a number.
std::string whyNotFinite(const std::string& text) {
    return json::decode<double>(text) ? std::string() : "expected a number of seconds";
}

std::string whyNoFanAtTime(const std::string& text) {
    const auto parsed = FanAtTime::parse(text);
    return parsed ? std::string() : parsed.error();
}

void addPlanCommands(CLI::App& app, Streams streams, int& status) {
    addCheck(app, streams, status);
    addReplay(app, streams, status);
    addExplain(app, streams, status);
    addCompare(app, streams, status);
}

}  // namespace airflow::tool
