// SafetyHandlers: give the fans back on every way out of the process that can be seen coming.
#pragma once

#include <memory>
#include <string_view>

#include "concurrency/Runtime.h"
#include "control/LocalFanController.h"
#include "daemon/DaemonProcess.h"
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

    /// From now on the exit restores this controller's fans, in place of any earlier one's.
    void arm(std::shared_ptr<control::LocalFanController> controller);

    /// For every exit, for SIGTERM (exit status 143) and for SIGINT (130). Called once.
    void installSafetyHandlers();

    /// Restores Auto, once in the life of the process, and blocks the calling thread meanwhile, for
    /// at most 3 seconds: a stuck SMC must not keep the process alive. Does nothing before arm().
    /// `reason` outlives the task.
    concurrency::Task<void> restoreAutoOnExit(std::string_view reason);

private:
    concurrency::Task<void> restoreAndExit(std::string_view reason, int status);
    static concurrency::Task<void> restore(std::shared_ptr<control::LocalFanController> controller,
                                           concurrency::CancelSource finished);

    concurrency::Runtime& runtime;
    DaemonProcess& process;
    sensors::LogSink& standardError;
    std::shared_ptr<control::LocalFanController> exitController;
    /// Stops the second call from the thread that made the first: the exit behind a signal. An exit
    /// from another thread meanwhile finds it set, too, and does not wait for that restoration.
    bool exitInProgress = false;
};

}  // namespace airflow::daemon
