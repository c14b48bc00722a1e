// LocalProcess: the daemon's process on Linux.
#pragma once

#include <expected>
#include <memory>
#include <string>

#include "daemon/DaemonProcess.h"

namespace airflow::platform {

/// This process, or why the system cannot tell of signals. One at most is made, and it is never
/// destroyed: signals and exit handlers, which have no owner, refer to it.
///
/// The signal-safety queue is a thread that sleeps until a signal comes. Before handle(), which is
/// called once at most for each, a signal does what it did before.
[[nodiscard]] std::expected<std::unique_ptr<daemon::DaemonProcess>, std::string> makeLocalProcess();

}  // namespace airflow::platform
