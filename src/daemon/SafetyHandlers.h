// SafetyHandlers: give the fans back on every way out of the process that can be seen coming.
#pragma once

#include <atomic>
#include <memory>
#include <string_view>

#include "concurrency/Runtime.h"
#include "control/LocalFanController.h"
#include "daemon/DaemonProcess.h"
#include "guard/SMCGate.h"
#include "sensors/LogSink.h"

namespace airflow::daemon {

/// Lives until the process is gone, as does everything that it refers to: the last handler runs
/// when everything else has been said.
class SafetyHandlers {
public:
    SafetyHandlers(concurrency::Runtime& runtime, DaemonProcess& process,
                   sensors::LogSink& standardError);
    SafetyHandlers(const SafetyHandlers&) = delete;
    SafetyHandlers& operator=(const SafetyHandlers&) = delete;

    /// From now on the exit restores this controller's fans, in place of any earlier one's, and
    /// closes the gate first. The gate, if there is one, outlives the handlers.
    void arm(std::shared_ptr<control::LocalFanController> controller,
             guard::SMCGate* gate = nullptr);

    /// For every exit, for SIGTERM (exit status 143) and for SIGINT (130). Called once.
    void installSafetyHandlers();

    /// Restores Auto, once in the life of the process, and blocks the calling thread meanwhile, for
    /// at most 3 seconds: a stuck SMC must not keep the process alive. From its beginning on no fan
    /// is forced any more. Who comes while another thread restores waits for that one; who comes
    /// after it, as the exit after a signal does, returns at once. Does nothing before arm().
    /// `reason` outlives the task.
    concurrency::Task<void> restoreAutoOnExit(std::string_view reason);

    /// Clients are served from now on: an exit tries fans that refuse again, for as long as it
    /// lasts.
    void noteServing() { isServing = true; }

    /// Whether the restoration of an exit has begun: nothing new is to begin. Any thread may ask.
    [[nodiscard]] bool isExiting() const { return restorations > 0; }

private:
    concurrency::Task<void> restoreAndExit(std::string_view reason, int status);
    static concurrency::Task<void> restore(std::shared_ptr<control::LocalFanController> controller,
                                           bool triesAgain, concurrency::CancelSource finished);

    concurrency::Runtime& runtime;
    DaemonProcess& process;
    sensors::LogSink& standardError;
    std::shared_ptr<control::LocalFanController> exitController;
    guard::SMCGate* gate = nullptr;
    std::atomic<bool> isServing = false;
    std::atomic<int> restorations = 0;      ///< that were asked for; the first one is made
    concurrency::CancelSource restoration;  ///< cancelled when that is over
};

}  // namespace airflow::daemon
