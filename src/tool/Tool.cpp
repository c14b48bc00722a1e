#include "tool/Tool.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <ostream>
#include <utility>

#include "daemon/BuildIdentity.h"
#include "tool/CheckCommand.h"
#include "tool/ReplayCommand.h"

namespace airflow::tool {

namespace {

void addCheck(CLI::App& app, Streams streams, int& status) {
    CLI::App* const command = app.add_subcommand(
        "check",
        "Decode plan documents; say what is wrong with the bad ones and what the good ones "
        "would do");
    auto paths = std::make_shared<std::vector<std::string>>();
    command->add_option("PLAN", *paths, "Plan documents (JSON)")->required();
    command->callback([=, &status] { status = check(*paths, streams.out, streams.err); });
}

void addReplay(CLI::App& app, Streams streams, int& status) {
    struct Options {
        std::string plan;
        std::string trace;
        std::string format = "table";
    };
    CLI::App* const command = app.add_subcommand(
        "replay", "Run a plan over recorded temperatures; one line for each line of the trace");
    auto options = std::make_shared<Options>();
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

}  // namespace

int runTool(std::vector<std::string> arguments, Streams streams) {
    int status = 0;
    CLI::App app("Design, simulate and prove what the fan-control daemon will do.", "airflow");
    app.set_version_flag("--version", std::string(daemon::BuildIdentity::text));
    app.require_subcommand(1);
    addCheck(app, streams, status);
    addReplay(app, streams, status);
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
