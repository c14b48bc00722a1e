#include "platform/macos/DispatchProcess.h"

#include <dispatch/dispatch.h>
#include <signal.h>

#include <utility>
#include <vector>

#include "concurrency/ThisThread.h"
#include "platform/posix/ProcessExit.h"

namespace airflow::platform {

namespace {

using concurrency::Task;
using daemon::Signal;

class DispatchProcess final : public daemon::DaemonProcess {
public:
    void atExit(Handler handler) override { runAtExit(std::move(handler)); }
    void handle(Signal signal, Handler handler) override;
    void announceExit(int status) override { platform::announceExit(status); }
    Task<void> exit(int status) override { return exitOnce(status); }

private:
    const dispatch_queue_t signalSafety =
        dispatch_queue_create("com.brisquell.helper.signal-safety", nullptr);
    std::vector<dispatch_source_t> signalSources;  ///< kept alive
};

DispatchProcess& instance() {
    static DispatchProcess& process = *new DispatchProcess;
    return process;
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

}  // namespace

daemon::DaemonProcess& dispatchProcess() {
    return instance();
}

}  // namespace airflow::platform
