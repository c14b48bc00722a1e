// XPCListener: where clients knock on a Mac: the listener of the daemon's Mach service. macOS only.
#pragma once

#include <memory>

#include "daemon/Connection.h"

namespace airflow::platform {

/// The system hands over each connection on the listener's own queue, one at a time.
[[nodiscard]] std::unique_ptr<daemon::Listener> makeXPCListener();

}  // namespace airflow::platform
