#include "tool/client/WatchCommand.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <memory>
#include <ostream>

#include "platform/linux/StopSignals.h"
#include "platform/linux/Waiting.h"
#include "remote/MachineStatus.h"
#include "remote/RemoteMachine.h"
#include "simulation/machine/MachineDescription.h"
#include "text/Text.h"
#include "tool/client/HelperAnswer.h"
#include "tool/client/HelperSocket.h"
#include "tool/machine/MachineCommand.h"

namespace airflow::tool {

namespace {

using client::Answer;
using concurrency::Instant;
using daemon::Method;

Sight look(const WatchPlan& plan, double seconds) {
    Sight sight{.seconds = seconds};
    if (plan.helper) {
        Answer answer = plan.helper->call(daemon::commands::ReadState{});
        if (!answer.result.isApplied()) {
            sight.trouble = nameOf(answer.result) + ": " + answer.reason;
        }
        sight.state = std::move(answer.state);
    }
    sight.machine = plan.lookAtMachine();
    if (!plan.helper && !sight.machine) sight.trouble = "no machine";
    return sight;
}

/// Draws over the `drawn` lines above the cursor.
void redraw(std::ostream& out, const std::vector<std::string>& lines, std::size_t drawn) {
    if (drawn > 0) out << fmt::format("\x1B[{}A\r", drawn);
    for (const std::string& line : lines) out << line << "\x1B[K\n";
    out << "\x1B[J" << std::flush;
}

MachineSight sightOf(const remote::MachineStatus& status) {
    MachineSight sight;
    const auto description = simulation::machinePreset(status.machine);
    for (const remote::MachineStatus::Fan& fan : status.fans) {
        MachineSight::Fan seen{
            .id = fan.id, .rpm = fan.currentRPM, .mode = text::fanModeText(fan.mode)};
        seen.mode.erase(seen.mode.find(" ("));  // the number behind the word
        const auto index = static_cast<std::size_t>(fan.id);
        if (description && index < description->fans.size()) {
            seen.maxRPM = description->fans[index].maxRPM;
        }
        sight.fans.push_back(std::move(seen));
    }
    const simulation::Temperatures& temperatures = status.hid ? *status.hid : status.smc;
    sight.temperatures.assign(temperatures.begin(), temperatures.end());
    return sight;
}

/// What the machine process says of itself; nothing while there is none.
std::optional<MachineSight> askMachine(const std::string& path) {
    auto connection = platform::connectTo(path);
    if (!connection) return std::nullopt;
    remote::MachineLink link(std::move(*connection));
    const auto text = link.ask<std::string>({}, remote::MachineOperation::control,
                                            std::string_view(R"({"status":{}})"));
    const auto status = json::decode<remote::MachineStatus>(text);
    if (!status) return std::nullopt;
    return sightOf(*status);
}

std::optional<WatchPlan::Screen> ownScreen() {
    winsize size{};
    if (isatty(STDOUT_FILENO) != 1) return std::nullopt;
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row < 2) {
        return WatchPlan::Screen{};
    }
    return WatchPlan::Screen{.columns = size.ws_col, .rows = size.ws_row - 1U};
}

struct WatchOptions {
    std::string helperSocket;
    std::string machineSocket;
    bool isMachineOnly = false;
    std::optional<std::int64_t> count;
    double interval = 1;
};

int runWatch(const WatchOptions& options, Streams streams) {
    const auto helperPath = helperSocket(options.helperSocket);
    const auto machinePath = machineSocket(options.machineSocket);
    if (!helperPath || !machinePath) {
        streams.err << text::printable((helperPath ? machinePath : helperPath).error()) << '\n';
        return 1;
    }
    const platform::StopSignals stop;
    const int interruption = stop.descriptor().get();
    SystemTime time;
    HelperSocket transport(*helperPath, time, interruption);
    // A daemon of another build is left alone.
    client::HelperClient helper(transport, time,
                                {.sendsHeartbeats = false, .maxUpgradeAttempts = 0});
    const auto pause = [&](Instant until) {
        for (;;) {
            (void)helper.attend();  // nothing is ever due
            const auto woken = platform::waitForAny({interruption, transport.descriptor()}, until,
                                                    [&time] { return time.now(); });
            if (!woken || *woken == 0) return !woken;
        }
    };
    return watchHelper({.helper = options.isMachineOnly ? nullptr : &helper,
                        .lookAtMachine = [&] { return askMachine(*machinePath); },
                        .count = options.count,
                        .interval = concurrency::fromSeconds(options.interval),
                        .pause = pause,
                        .screen = ownScreen()},
                       time, streams.out, streams.err);
}

}  // namespace

int watchHelper(const WatchPlan& plan, client::Time& time, std::ostream& out, std::ostream& err) {
    WatchView view;
    Sight sight;
    std::size_t drawn = 0;
    const Instant start = time.now();
    for (std::int64_t looks = 1; out; ++looks) {
        const std::chrono::duration<double> since = time.now() - start;
        sight = look(plan, since.count());
        view.add(sight);
        if (plan.screen) {
            const auto lines = view.frame(plan.screen->columns, plan.screen->rows);
            redraw(out, lines, drawn);
            drawn = lines.size();
        } else {
            out << view.line() << '\n' << std::flush;
        }
        if (plan.count && looks >= *plan.count) break;
        if (!plan.pause(start + looks * plan.interval)) break;
    }
    if (sight.state && sight.state->isHolding) {
        err << "Disconnected: all fans return to Auto.\n";
    }
    return sight.trouble.empty() ? 0 : 1;
}

void addWatch(CLI::App& app, Streams streams, int& status) {
    CLI::App* const command =
        app.add_subcommand("watch", "Show what the daemon and its machine do, until Ctrl-C");
    auto options = std::make_shared<WatchOptions>();
    command->add_option("--helper-socket", options->helperSocket,
                        "The daemon's socket (the default: in the user's runtime folder)");
    command->add_option("--machine-socket", options->machineSocket,
                        "The machine's socket (the default: in the user's runtime folder)");
    command->add_flag("--machine-only", options->isMachineOnly,
                      "Leave the daemon alone: the end of this watch releases nothing");
    command->add_option("--count", options->count, "Look so many times, then end")
        ->check(CLI::Range(std::int64_t{1}, std::int64_t{1'000'000'000}));
    command->add_option("--interval", options->interval, "Seconds between looks (the default: 1)")
        ->check(CLI::Range(0.05, 3600.0));
    command->footer(
        "On a terminal the view is redrawn in place, elsewhere each look is a line.\n"
        "Watching sends no heartbeats and holds nothing. But the end of any connection "
        "makes the\ndaemon give the fans back to Auto, whoever holds them, and that of "
        "a watch, too. There is\none connection for the whole watch, so nothing is "
        "released before it ends. To look without\nthat, use --machine-only.");
    command->callback([=, &status] { status = runWatch(*options, streams); });
}

}  // namespace airflow::tool
