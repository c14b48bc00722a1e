#include "tool/client/WatchCommand.h"

#include <fmt/format.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <memory>
#include <ostream>

#include "platform/linux/SignalDescriptor.h"
#include "platform/linux/Waiting.h"
#include "remote/MachineStatus.h"
#include "simulation/machine/MachineDescription.h"
#include "text/Text.h"
#include "tool/client/HelperAnswer.h"
#include "tool/client/HelperSocket.h"
#include "tool/common/SystemLimit.h"
#include "tool/common/Terminal.h"
#include "tool/machine/MachineCommand.h"
#include "tool/machine/MachineQuestion.h"

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

/// The lines at the bottom of a terminal, which are drawn over themselves.
class Screen {
public:
    explicit Screen(std::ostream& out) : out(out) {}

    void draw(const std::vector<std::string>& lines) {
        if (drawn > 0) out << fmt::format("\x1B[{}A\r", drawn);
        for (const std::string& line : lines) out << line << "\x1B[K\n";
        out << "\x1B[J" << std::flush;
        drawn = lines.size();
    }
    /// A terminal of another size has broken the lines anew: nobody knows where they are.
    void clear() {
        out << "\x1B[2J\x1B[H";
        drawn = 0;
    }

private:
    std::ostream& out;
    std::size_t drawn = 0;
};

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

/// What the machine process says of itself; nothing while there is none, or it hangs.
std::optional<MachineSight> sightOfMachine(const std::string& path, int interruption) {
    const auto text = askMachine(path, R"({"status":{}})", std::chrono::seconds(1), interruption);
    if (!text) return std::nullopt;
    const auto status = json::decode<remote::MachineStatus>(*text);
    if (!status) return std::nullopt;
    return sightOf(*status);
}

WatchPlan::Screen ownScreen() {
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row < 2) {
        return {};
    }
    return {.columns = size.ws_col, .rows = size.ws_row - 1U};
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
    const platform::SignalDescriptor stop(platform::stopSignals);
    if (!stop.descriptor()) {
        streams.err << noDescriptorLeft << '\n';
        return 1;
    }
    const int interruption = stop.descriptor().get();
    SystemTime time;
    HelperSocket transport(*helperPath, time, interruption);
    // A daemon of another build is left alone.
    client::HelperClient helper(transport, time,
                                {.sendsHeartbeats = false, .maxUpgradeAttempts = 0});
    platform::SignalDescriptor resized({SIGWINCH});
    const auto pause = [&](Instant until) {
        for (;;) {
            (void)helper.attend();  // nothing is ever due
            const auto woken = platform::waitForAny(
                {interruption, resized.descriptor().get(), transport.descriptor()}, until,
                [&time] { return time.now(); });
            if (!woken) return WatchPlan::Pause::isOver;
            if (*woken == 0) return WatchPlan::Pause::isInterrupted;
            if (*woken == 1 && resized.take()) return WatchPlan::Pause::screenChanged;
        }
    };
    WatchPlan plan{.helper = options.isMachineOnly ? nullptr : &helper,
                   .lookAtMachine = [&] { return sightOfMachine(*machinePath, interruption); },
                   .count = options.count,
                   .interval = concurrency::fromSeconds(options.interval),
                   .pause = pause};
    if (canDrawInPlace(STDOUT_FILENO)) plan.screen = ownScreen;
    return watchHelper(plan, time, streams.out, streams.err);
}

}  // namespace

int watchHelper(const WatchPlan& plan, client::Time& time, std::ostream& out, std::ostream& err) {
    using Pause = WatchPlan::Pause;
    WatchView view;
    Screen screen(out);
    const auto show = [&] {
        if (plan.screen) {
            const auto [columns, rows] = plan.screen();
            screen.draw(view.frame(columns, rows));
        } else {
            out << view.line() << '\n' << std::flush;
        }
    };
    Sight sight;
    const Instant start = time.now();
    Pause pause = Pause::isOver;
    for (std::int64_t looks = 1; out && pause != Pause::isInterrupted; ++looks) {
        const std::chrono::duration<double> since = time.now() - start;
        sight = look(plan, since.count());
        view.add(sight);
        show();
        if (plan.count && looks >= *plan.count) break;
        for (;;) {
            pause = plan.pause(start + looks * plan.interval);
            if (pause != Pause::screenChanged) break;
            if (!plan.screen) continue;
            screen.clear();
            show();
        }
    }
    // The terminal has shown "^C" where the prompt would come.
    if (plan.screen && pause == Pause::isInterrupted) out << '\n' << std::flush;
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
