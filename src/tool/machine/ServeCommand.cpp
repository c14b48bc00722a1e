#include "tool/machine/ServeCommand.h"

#include <fmt/format.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <chrono>
#include <memory>
#include <optional>
#include <ostream>
#include <vector>

#include "platform/linux/LocalSocket.h"
#include "platform/linux/SignalDescriptor.h"
#include "platform/linux/Waiting.h"
#include "simulation/machine/MachineDescription.h"
#include "text/Text.h"
#include "tool/client/HelperSocket.h"
#include "tool/common/SystemLimit.h"
#include "tool/machine/MachineCommand.h"
#include "tool/machine/MachinesCommand.h"

namespace airflow::tool {

namespace {

struct ServeOptions {
    std::string machine = "laptop";
    std::string machineSocket;
    std::string helperSocket;
};

constexpr const char* self = "/proc/self/exe";

/// Runs this program with other arguments, in a process group of its own: Ctrl-C is for us to pass
/// on, to the daemon first. The child ends with us, however we end: by its own clean-up.
std::optional<pid_t> spawn(std::vector<std::string> arguments) {
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child < 0) return std::nullopt;
    if (child > 0) return child;
    setpgid(0, 0);
    sigset_t none{};
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent) _exit(1);
    arguments.insert(arguments.begin(), "airflow");
    std::vector<char*> pointers;
    for (std::string& argument : arguments) pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    execv(self, pointers.data());
    _exit(127);
}

/// As a shell tells it.
int statusOf(int waited) {
    return WIFEXITED(waited) ? WEXITSTATUS(waited) : 128 + WTERMSIG(waited);
}

int waitFor(pid_t child) {
    int waited = 0;
    while (waitpid(child, &waited, 0) < 0 && errno == EINTR) {
    }
    return statusOf(waited);
}

int stop(pid_t child, int signal) {
    kill(child, signal);
    return waitFor(child);
}

bool hasEnded(pid_t child) {
    siginfo_t ended{};
    waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOHANG | WNOWAIT);
    return ended.si_pid == child;
}

/// Waits until the child listens at `path`; false when it ends instead, or takes longer than 5 s.
bool isListening(const std::string& path, pid_t child) {
    for (int attempt = 0; attempt < 500 && !hasEnded(child); ++attempt) {
        const auto connection = platform::connectTo(path);
        const auto peer = connection ? platform::peerOf(*connection) : std::nullopt;
        if (peer && peer->process == child) return true;
        platform::pauseFor(std::chrono::milliseconds(10));
    }
    return false;
}

/// The signal that ends us, or nothing when one of the children has ended by itself.
std::optional<int> waitForEnd(platform::SignalDescriptor& signals, pid_t machine, pid_t helper) {
    while (!hasEnded(machine) && !hasEnded(helper)) {
        const int arrived = signals.descriptor().get();
        const auto nextLook = platform::bootTime() + std::chrono::milliseconds(200);
        if (!platform::waitForAny({arrived}, nextLook)) continue;
        if (const auto signal = signals.take()) return signal;
    }
    return std::nullopt;
}

int serve(const ServeOptions& options, Streams streams) {
    const auto machinePath = machineSocket(options.machineSocket);
    const auto helperPath = helperSocket(options.helperSocket);
    if (!machinePath || !helperPath) {
        streams.err << text::printable(machinePath ? helperPath.error() : machinePath.error())
                    << '\n';
        return 1;
    }
    platform::SignalDescriptor signals(platform::stopSignals);
    if (!signals.descriptor()) {
        streams.err << noDescriptorLeft << '\n';
        return 1;
    }
    const auto machine =
        spawn({"machine", "--machine", options.machine, "--machine-socket", *machinePath});
    if (!machine || !isListening(*machinePath, *machine)) {
        streams.err << "the machine did not start\n";
        if (machine) stop(*machine, SIGTERM);
        return 1;
    }
    const auto helper =
        spawn({"helper", "--machine-socket", *machinePath, "--helper-socket", *helperPath});
    if (!helper) return stop(*machine, SIGTERM), 1;
    const bool hasOwnPlace = !options.machineSocket.empty() || !options.helperSocket.empty();
    const std::string where = hasOwnPlace ? " --helper-socket " + text::printable(*helperPath) : "";
    streams.out << fmt::format(
                       "Try in another terminal: `airflow session{0}`, `airflow watch{0}`,\n"
                       "`airflow call fullBlast{0}` or `airflow machine status`. Ctrl-C ends "
                       "this.\n",
                       where)
                << std::flush;
    const auto signal = waitForEnd(signals, *machine, *helper);
    const bool isMachineLost = hasEnded(*machine);
    if (isMachineLost) streams.err << "the machine has ended\n";
    // The daemon first: it gives the fans back while there is still a machine.
    const bool endsByItself = !signal && !isMachineLost;
    const int status = endsByItself ? waitFor(*helper) : stop(*helper, signal.value_or(SIGTERM));
    stop(*machine, SIGTERM);
    return status;
}

}  // namespace

void addServe(CLI::App& app, Streams streams, int& status) {
    CLI::App* const command =
        app.add_subcommand("serve", "Run a simulated machine and the daemon over it, for a try");
    auto options = std::make_shared<ServeOptions>();
    command->add_option("--machine", options->machine, "One of those that machines lists (laptop)")
        ->check(CLI::Validator(whyNoMachine, "", "machine"));
    command->add_option("--machine-socket", options->machineSocket, "Where the machine listens");
    command->add_option("--helper-socket", options->helperSocket, "Where the daemon listens");
    command->callback([=, &status] { status = serve(*options, streams); });
}

}  // namespace airflow::tool
