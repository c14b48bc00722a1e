// What stops the process when the program itself is wrong.
#pragma once

#include <string_view>

namespace airflow::smc {

/// Writes `violation` as one line to standard error and aborts, in every build. For bugs only:
/// going on would send the SMC something that nobody meant, while the next start of the daemon
/// returns the fans to the firmware.
[[noreturn]] void stopProcess(std::string_view violation);

}  // namespace airflow::smc
