#include "simulation/daemon/SimulatedProcess.h"

#include <utility>

namespace airflow::simulation {

namespace {

using concurrency::Task;
using daemon::Signal;

// 128 + the number of the signal.
constexpr int aborted = 134;
constexpr int killed = 137;

}  // namespace

SimulatedProcess::SimulatedProcess(SimulatedRuntime& ownRuntime)
    : runtime(ownRuntime),
      signalQueue(runtime.makeExecutor("com.brisquell.helper.signal-safety")) {}

void SimulatedProcess::atExit(Handler handler) {
    exitHandlers.push_back(std::move(handler));
}

void SimulatedProcess::handle(Signal signal, Handler handler) {
    signalHandlers.at(static_cast<std::size_t>(signal)) = std::move(handler);
}

void SimulatedProcess::announceExit(int status) {
    if (!exitStatus) exitStatus = status;
}

Task<void> SimulatedProcess::exit(int status) {
    announceExit(status);
    noteExit();
    if (!std::exchange(isExiting, true)) {
        for (const Handler& handler : exitHandlers) co_await handler();
        finish(*exitStatus, false);
    }
    co_await concurrency::Suspend([](concurrency::Suspended) { return true; });  // for ever
}

void SimulatedProcess::deliver(Signal signal) {
    const Handler& handler = signalHandlers.at(static_cast<std::size_t>(signal));
    if (handler)
        runtime.detach("signal", run(signalQueue, *this, handler));
    else
        finish(signal == Signal::terminate ? 143 : 130, true);
}

Task<void> SimulatedProcess::run(SignalQueue&, SimulatedProcess& process, Handler handler) {
    process.noteExit();
    co_await handler();
}

void SimulatedProcess::noteExit() {
    if (!std::exchange(hasTold, true) && exitBegan) exitBegan();
}

void SimulatedProcess::kill() {
    finish(killed, true);
}

void SimulatedProcess::abort() {
    finish(aborted, true);
}

void SimulatedProcess::finish(int status, bool bySignal) {
    if (ending) return;
    ending = {.time = runtime.now().time_since_epoch(), .status = status, .bySignal = bySignal};
    runtime.halt();
}

}  // namespace airflow::simulation
