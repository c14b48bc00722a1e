#include "tool/client/CallCommand.h"

#include <CLI/CLI.hpp>
#include <chrono>
#include <memory>
#include <ostream>

#include "client/HelperClient.h"
#include "text/Text.h"
#include "tool/client/HelperAnswer.h"
#include "tool/client/HelperSocket.h"

namespace airflow::tool {

namespace {

using daemon::Method;

/// Asking is not worth a daemon's life: one of another build is left alone.
bool onlyAsks(Method method) {
    return method == Method::helperVersion || method == Method::readState ||
           method == Method::heartbeat;
}

/// Whether the state behind the call says anything: not of a daemon that leaves or was not reached.
bool hasStateBehind(Method method, const client::Answer& answer) {
    return method != Method::shutdownForUpgrade && method != Method::readState &&
           answer.result.outcome() != control::ControlResult::Case::noHelper;
}

struct CallOptions {
    std::vector<std::string> words;
    std::string socket;
    double timeout = 30;
    std::string format = "text";
};

int runCall(const CallOptions& options, Streams streams) {
    auto typed = parseCommand(options.words);
    if (!typed) throw CLI::ValidationError("METHOD", typed.error());
    if (const auto read = readPlan(*typed, streams.in); !read) {
        streams.err << read.error() << '\n';
        return 1;
    }
    const auto path = helperSocket(options.socket);
    if (!path) {
        streams.err << text::printable(path.error()) << '\n';
        return 1;
    }
    SystemTime time;
    HelperSocket transport(*path, time);
    const auto timeout = concurrency::fromSeconds(options.timeout);
    return callHelper(*typed, timeout,
                      options.format == "json" ? AnswerFormat::json : AnswerFormat::text, transport,
                      time, streams.out, streams.err);
}

}  // namespace

int callHelper(const TypedCommand& typed, concurrency::Duration timeout, AnswerFormat format,
               client::Transport& transport, client::Time& time, std::ostream& out,
               std::ostream& err) {
    const Method method = daemon::methodOf(typed.command);
    client::HelperClientOptions options{.replyTimeout = timeout};
    if (onlyAsks(method)) options.maxUpgradeAttempts = 0;
    client::HelperClient helper(transport, time, std::move(options));
    CallOutcome outcome{.method = method, .answer = helper.call(typed.command)};
    if (hasStateBehind(method, outcome.answer) && helper.isConnected()) {
        outcome.after = helper.call(daemon::commands::ReadState{}).state;
    } else {
        outcome.after = outcome.answer.state;
    }
    if (outcome.answer.result.outcome() == control::ControlResult::Case::failed) {
        outcome.ownReason = whyNoPlan(typed);
    }
    out << (format == AnswerFormat::json ? answerJSON(outcome) : answerText(outcome));
    if (outcome.after && outcome.after->isHolding) {
        err << "Disconnected: all fans return to Auto.\nTo hold them, keep a connection: airflow "
               "session\n";
    }
    return outcome.answer.result.isApplied() ? 0 : 1;
}

void addCall(CLI::App& app, Streams streams, int& status) {
    CLI::App* const command = app.add_subcommand("call", "Give the daemon one command");
    auto options = std::make_shared<CallOptions>();
    command->add_option("METHOD", options->words, "The method and its arguments, see below")
        ->required();
    command->add_option("--helper-socket", options->socket,
                        "The daemon's socket (the default: in the user's runtime folder)");
    command
        ->add_option("--timeout", options->timeout,
                     "Seconds to wait for the answer (the default: 30)")
        ->check(CLI::Range(0.001, 1e6));
    command
        ->add_option("--format", options->format,
                     "text (for people, the default) or json (one object)")
        ->check(CLI::IsMember({"text", "json"}));
    command->footer(
        "Methods:\n" + commandsHelp() +
        "\nPLAN is a file; - is standard input.\n"
        "Every connection that ends, so this one too, makes the daemon give the fans "
        "back to\nAuto, whoever holds them: this shows what a command comes to; `airflow "
        "session` holds.\nThe exit status is 0 if the command was applied, 1 if not, "
        "2 for wrong usage.");
    command->callback([=, &status] { status = runCall(*options, streams); });
}

}  // namespace airflow::tool
