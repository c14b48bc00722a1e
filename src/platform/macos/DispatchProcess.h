// DispatchProcess: the daemon's process on a Mac. macOS only.
#pragma once

#include "daemon/DaemonProcess.h"

namespace airflow::platform {

/// This process. It lives until the process is gone: signals and exit handlers, which have no
/// owner, refer to it. The first call makes the signal-safety queue.
///
/// Signals come through Dispatch sources, exit handlers through the C library's exit list.
[[nodiscard]] daemon::DaemonProcess& dispatchProcess();

}  // namespace airflow::platform
