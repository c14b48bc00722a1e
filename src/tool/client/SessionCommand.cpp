#include "tool/client/SessionCommand.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <memory>
#include <ostream>

#include "client/HelperClient.h"
#include "platform/linux/SignalDescriptor.h"
#include "text/Text.h"
#include "tool/client/HelperSocket.h"
#include "tool/client/Session.h"
#include "tool/client/SessionInputs.h"
#include "tool/client/TypedCommand.h"
#include "tool/common/SystemLimit.h"
#include "tool/common/Terminal.h"

namespace airflow::tool {

namespace {

struct SessionOptions {
    std::string socket;
    double timeout = 30;
};

int runSession(const SessionOptions& options, Streams streams) {
    const auto path = helperSocket(options.socket);
    if (!path) {
        streams.err << text::printable(path.error()) << '\n';
        return 1;
    }
    const platform::SignalDescriptor stop(platform::stopSignals);
    if (!stop.descriptor()) {
        streams.err << noDescriptorLeft << '\n';
        return 1;
    }
    SystemTime time;
    HelperSocket transport(*path, time, stop.descriptor().get());
    const auto timeout = concurrency::fromSeconds(options.timeout);
    client::HelperClient helper(transport, time, {.replyTimeout = timeout});
    const SessionWaits waits{.input = STDIN_FILENO,
                             .interruption = stop.descriptor().get(),
                             .helper = transport,
                             .time = time};
    const bool isTyped = isatty(STDIN_FILENO) == 1 && isatty(STDOUT_FILENO) == 1;
    std::unique_ptr<SessionInput> input;
    if (isTyped && mayUseEscapes())
        input = std::make_unique<EditedLines>(waits);
    else
        input = std::make_unique<PlainLines>(waits, isTyped ? "airflow> " : "");
    Session session(helper, time, *input, streams.out, streams.err,
                    isTyped ? Session::Kind::conversation : Session::Kind::script);
    return session.run();
}

}  // namespace

void addSession(CLI::App& app, Streams streams, int& status) {
    CLI::App* const command = app.add_subcommand("session",
                                                 "Give the daemon commands from standard input "
                                                 "over one connection, and keep what they hold");
    auto options = std::make_shared<SessionOptions>();
    command->add_option("--helper-socket", options->socket,
                        "The daemon's socket (the default: in the user's runtime folder)");
    command
        ->add_option("--timeout", options->timeout,
                     "Seconds to wait for an answer (the default: 30)")
        ->check(CLI::Range(0.001, 1e6));
    command->footer(
        "One command a line, as for `airflow call`; the command help lists them. A # "
        "begins a\ncomment. Answers come in the order of the commands.\n"
        "A heartbeat goes to the daemon every 5 s; the end of the session makes it give the "
        "fans back.\nThe exit status of a script is 1 if any of its lines failed.");
    command->callback([=, &status] { status = runSession(*options, streams); });
}

}  // namespace airflow::tool
