// SimulatedProcess: the process of a simulated daemon, with its signals and its end.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "concurrency/Actor.h"
#include "daemon/DaemonProcess.h"
#include "simulation/runtime/SimulatedRuntime.h"

namespace airflow::simulation {

/// How a process ended. A process that a signal ended has 128 + its number, as a shell says.
struct ProcessEnd {
    concurrency::Duration time{};
    int status = 0;
    bool bySignal = false;  ///< ended by a signal's default action: no handler ran

    /// Whether the process itself sent that signal.
    [[nodiscard]] bool isStop() const { return bySignal && status == 134; }
    bool operator==(const ProcessEnd&) const = default;
};

/// One process at most lives in a runtime: its end halts the runtime, in the middle of whatever
/// ran.
class SimulatedProcess final : public daemon::DaemonProcess {
public:
    explicit SimulatedProcess(SimulatedRuntime& runtime);

    void atExit(Handler handler) override;
    void handle(daemon::Signal signal, Handler handler) override;
    void announceExit(int status) override;
    concurrency::Task<void> exit(int status) override;

    /// A signal arrives: queued for its handler, or the end of a process that has none yet.
    void deliver(daemon::Signal signal);
    /// SIGKILL.
    void kill();
    /// SIGABRT, which it sends itself when it meets a bug.
    void abort();

    [[nodiscard]] const std::optional<ProcessEnd>& end() const { return ending; }
    /// Called once, when the process begins to end itself: a handler of a signal runs, or something
    /// asks for the exit.
    std::function<void()> exitBegan;

private:
    class SignalQueue final : public concurrency::Actor {
    public:
        using Actor::Actor;
    };

    static concurrency::Task<void> run(SignalQueue& queue, SimulatedProcess& process,
                                       Handler handler);
    void noteExit();
    void finish(int status, bool bySignal);

    SimulatedRuntime& runtime;
    SignalQueue signalQueue;
    std::vector<Handler> exitHandlers;
    std::array<Handler, 2> signalHandlers;
    bool isExiting = false;
    std::optional<int> exitStatus;
    bool hasTold = false;  ///< exitBegan
    std::optional<ProcessEnd> ending;
};

}  // namespace airflow::simulation
