#include "platform/macos/DispatchProcess.h"

#include <dispatch/dispatch.h>
#include <signal.h>

#include <atomic>
#include <cstdlib>
#include <utility>
#include <vector>

#include "concurrency/Require.h"
#include "concurrency/ThisThread.h"

namespace airflow::platform {

namespace {

using concurrency::Task;
using daemon::Signal;

int numberOf(Signal signal) {
    return signal == Signal::terminate ? SIGTERM : SIGINT;
}

class DispatchProcess final : public daemon::DaemonProcess {
public:
    void atExit(Handler handler) override;
    void handle(Signal signal, Handler handler) override;
    Task<void> exit(int status) override;

private:
    static void runExitHandlers();

    const dispatch_queue_t signalSafety =
        dispatch_queue_create("com.brisquell.helper.signal-safety", nullptr);
    std::vector<dispatch_source_t> signalSources;  ///< kept alive
    std::vector<Handler> exitHandlers;
    std::atomic<bool> isExiting = false;
};

DispatchProcess& instance() {
    static DispatchProcess& process = *new DispatchProcess;
    return process;
}

void DispatchProcess::atExit(Handler handler) {
    if (exitHandlers.empty()) {
        concurrency::require(std::atexit(&runExitHandlers) == 0, "the exit list has room");
    }
    exitHandlers.push_back(std::move(handler));
}

void DispatchProcess::runExitHandlers() {
    for (const Handler& handler : instance().exitHandlers) concurrency::runOnThisThread(handler());
}

void DispatchProcess::handle(Signal signal, Handler handler) {
    const int number = numberOf(signal);
    const dispatch_source_t source = dispatch_source_create(
        DISPATCH_SOURCE_TYPE_SIGNAL, static_cast<uintptr_t>(number), 0, signalSafety);
    dispatch_set_context(source, new Handler(std::move(handler)));
    dispatch_source_set_event_handler_f(source, [](void* context) {
        concurrency::runOnThisThread((*static_cast<Handler*>(context))());
    });
    dispatch_resume(source);
    signalSources.push_back(source);
    // Last, so that as few signals as possible are lost. The source is registered a little after
    // it is resumed: a signal that comes after this and before that is dropped.
    (void)::signal(number, SIG_IGN);
}

Task<void> DispatchProcess::exit(int status) {
    // The C library does not order two exits. The second one gives its thread back, which the
    // restoration of the first may need.
    if (!isExiting.exchange(true)) std::exit(status);
    co_await concurrency::Suspend([](concurrency::Suspended) { return true; });  // for ever
}

}  // namespace

daemon::DaemonProcess& dispatchProcess() {
    return instance();
}

}  // namespace airflow::platform
