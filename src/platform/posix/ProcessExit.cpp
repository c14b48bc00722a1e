#include "platform/posix/ProcessExit.h"

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
using Handler = daemon::DaemonProcess::Handler;

/// Never destroyed: the C library destroys static objects before it runs older exit handlers.
std::vector<Handler>& exitHandlers() {
    static auto& handlers = *new std::vector<Handler>;
    return handlers;
}

void runExitHandlers() {
    for (const Handler& handler : exitHandlers()) concurrency::runOnThisThread(handler());
}

std::atomic<bool> isExiting = false;
constexpr int noStatus = -1;
std::atomic<int> exitStatus = noStatus;

}  // namespace

void runAtExit(Handler handler) {
    if (exitHandlers().empty()) {
        concurrency::require(std::atexit(&runExitHandlers) == 0, "the exit list has room");
    }
    exitHandlers().push_back(std::move(handler));
}

void announceExit(int status) {
    int none = noStatus;
    (void)exitStatus.compare_exchange_strong(none, status);  // the first one counts
}

Task<void> exitOnce(int status) {
    announceExit(status);
    // The C library does not order two exits. The second one gives its thread back, which the
    // restoration of the first may need.
    if (!isExiting.exchange(true)) std::exit(exitStatus);
    co_await concurrency::Suspend([](concurrency::Suspended) { return true; });  // for ever
}

int numberOf(daemon::Signal signal) {
    return signal == daemon::Signal::terminate ? SIGTERM : SIGINT;
}

}  // namespace airflow::platform
