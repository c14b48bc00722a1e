// LocalProcess: the daemon's process on Linux.
#pragma once

#include <memory>

#include "daemon/DaemonProcess.h"

namespace airflow::platform {

/// This process. One at most may be made, and it lives until the process is gone: signals and exit
/// handlers, which have no owner, refer to it.
///
/// The signal-safety queue is a thread that sleeps until a signal comes. Before handle() a signal
/// does what it did before.
[[nodiscard]] daemon::DaemonProcess& localProcess();

}  // namespace airflow::platform
