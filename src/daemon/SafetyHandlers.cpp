#include "daemon/SafetyHandlers.h"

#include <fmt/format.h>

#include <chrono>
#include <utility>

#include "daemon/LogLines.h"

namespace airflow::daemon {

namespace {

using concurrency::Task;
using namespace std::chrono_literals;

constexpr auto restorationLimit = 3s;
constexpr int terminated = 143;   // 128 + SIGTERM
constexpr int interrupted = 130;  // 128 + SIGINT

}  // namespace

SafetyHandlers::SafetyHandlers(concurrency::Runtime& taskRuntime, DaemonProcess& ownProcess,
                               sensors::LogSink& errorSink)
    : runtime(taskRuntime), process(ownProcess), standardError(errorSink) {}

void SafetyHandlers::arm(std::shared_ptr<control::LocalFanController> controller,
                         guard::SMCGate* armedGate) {
    exitController = std::move(controller);
    gate = armedGate;
}

void SafetyHandlers::installSafetyHandlers() {
    process.atExit([this] { return restoreAutoOnExit("process exit"); });
    process.handle(Signal::terminate, [this] { return restoreAndExit("SIGTERM", terminated); });
    process.handle(Signal::interrupt, [this] { return restoreAndExit("SIGINT", interrupted); });
}

Task<void> SafetyHandlers::restoreAndExit(std::string_view reason, int status) {
    process.announceExit(status);  // also for who exits meanwhile, on another thread
    co_await restoreAutoOnExit(reason);
    co_await process.exit(status);
}

Task<void> SafetyHandlers::restoreAutoOnExit(std::string_view reason) {
    if (!exitController) co_return;
    if (restorations++ > 0) {
        co_await runtime.blockingSleep(restorationLimit, restoration.token());
        co_return;
    }
    if (gate) gate->closeForExit();
    standardError.write(logLine(fmt::format("{}: restoring Auto...", reason)));
    const concurrency::CancelSource finished;
    runtime.detach("exit restoration", restore(exitController, isServing, finished));
    co_await runtime.blockingSleep(restorationLimit, finished.token());
    restoration.cancel();
}

/// A start that fails is tried again by the service manager, and need not do that itself.
Task<void> SafetyHandlers::restore(std::shared_ptr<control::LocalFanController> controller,
                                   bool triesAgain, concurrency::CancelSource finished) {
    co_await controller->restoreAutoAtExit(triesAgain);
    finished.cancel();
}

}  // namespace airflow::daemon
