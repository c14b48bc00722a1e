// ProcessExit: how a process of the daemon ends, through the C library's exit list.
#pragma once

#include "daemon/DaemonProcess.h"

namespace airflow::platform {

/// Adds `handler` to what an exit of this process does first. It runs on the thread that exits.
/// Not from two threads at once.
void runAtExit(daemon::DaemonProcess::Handler handler);

/// This process ends with `status`, whoever exits, unless another was announced before.
void announceExit(int status);

/// Announces `status` and ends this process. Never completes: the second of two exits waits for
/// ever.
[[nodiscard]] concurrency::Task<void> exitOnce(int status);

[[nodiscard]] int numberOf(daemon::Signal signal);

}  // namespace airflow::platform
