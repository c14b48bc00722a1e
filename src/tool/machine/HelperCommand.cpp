#include "tool/machine/HelperCommand.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <ostream>
#include <utility>

#include "daemon/Daemon.h"
#include "platform/linux/EventLoop.h"
#include "platform/linux/LocalListener.h"
#include "platform/linux/LocalProcess.h"
#include "platform/linux/ThreadRuntime.h"
#include "platform/posix/StandardError.h"
#include "remote/RemoteMachine.h"
#include "text/Text.h"
#include "tool/client/HelperSocket.h"
#include "tool/machine/MachineCommand.h"
#include "tool/machine/ServeCommand.h"

namespace airflow::tool {

namespace {

struct HelperOptions {
    std::string machineSocket;
    std::string helperSocket;
    std::uint32_t effectiveUserID = 0;
};

/// One thread each may be blocked by the SMC, by the sampling of temperatures, and by a task that
/// ends the process; the rest is left for everything else.
constexpr std::size_t threads = 5;

/// Everything that the daemon is made of, in the order in which it is needed.
struct LocalDaemon {
    LocalDaemon(const std::string& machineSocket, platform::FileDescriptor listening,
                platform::EventLoop clients, std::unique_ptr<daemon::DaemonProcess> ownProcess,
                std::uint32_t effectiveUserID)
        : process(std::move(ownProcess)),
          runtime(platform::makeThreadRuntime(threads)),
          machine(machineSocket),
          hidFunctions(machine.hidFunctions()),
          hardware(*runtime, machine.smc(), hidFunctions, machine.hidObjects(), standardError),
          listener(std::move(clients), std::move(listening)),
          daemon({.runtime = *runtime,
                  .hardware = hardware,
                  .process = *process,
                  .listener = listener,
                  .standardError = standardError,
                  .effectiveUserID = [effectiveUserID] { return effectiveUserID; }}) {}

    std::unique_ptr<daemon::DaemonProcess> process;
    std::unique_ptr<concurrency::Runtime> runtime;
    platform::StandardError standardError;
    remote::RemoteMachine machine;
    sensors::HIDFunctions hidFunctions;
    daemon::MachineHardware hardware;
    platform::LocalListener listener;
    daemon::Daemon daemon;
};

/// Returns only when it cannot begin: the daemon ends the process itself.
int runHelper(const HelperOptions& options, Streams streams) {
    platform::beginLastLineAsTheLog();
    const auto fail = [&](const std::string& reason) {
        streams.err << text::printable(reason) << '\n';
        return 1;
    };
    const auto machine = machineSocket(options.machineSocket);
    if (!machine) return fail(machine.error());
    const auto helper = helperSocket(options.helperSocket);
    if (!helper) return fail(helper.error());
    auto listening = platform::listenOn(*helper);
    if (!listening) return fail(listening.error());

    // Two daemons would undo each other's work. Held until the process is gone.
    static platform::FileDescriptor claim;
    auto claimed = platform::claimServer(*machine, std::chrono::seconds(1));
    if (!claimed) return fail(claimed.error());
    claim = std::move(*claimed);

    auto clients = platform::EventLoop::start();
    if (!clients) return fail("no clients can be served: " + clients.error());
    auto process = platform::makeLocalProcess();
    if (!process) return fail("no signals can be handled: " + process.error());
    // Never destroyed: exit handlers and tasks use it until the process is gone.
    const auto local = platform::valueOrReason([&] {
        return new LocalDaemon(*machine, std::move(*listening), std::move(*clients),
                               std::move(*process), options.effectiveUserID);
    });
    if (!local) return fail("no daemon can be started: " + local.error());
    (*local)->runtime->detach("start-up", (*local)->daemon.startUp());
    for (;;) pause();
}

}  // namespace

void addHelper(CLI::App& app, Streams streams, int& status) {
    CLI::App* const command = app.add_subcommand(
        "helper", "Run the daemon over a machine that `airflow machine` simulates");
    auto options = std::make_shared<HelperOptions>();
    command->add_option("--machine-socket", options->machineSocket,
                        "The machine's socket (the default: in the user's runtime folder)");
    command->add_option("--helper-socket", options->helperSocket,
                        "The socket to serve clients on (the default: in the same folder)");
    command->add_option("--euid", options->effectiveUserID,
                        "The effective user id that the daemon goes by (0; others may not control "
                        "fans)");
    command->callback([=, &status] { status = runHelper(*options, streams); });
    addServe(app, streams, status);
}

}  // namespace airflow::tool
