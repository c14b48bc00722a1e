// MachineQuestion: what people ask of a machine in another process.
#pragma once

#include <expected>
#include <string>
#include <string_view>

#include "concurrency/Clock.h"

namespace airflow::tool {

/// How long a machine that is there may take to answer: it answers at once unless it hangs.
inline constexpr concurrency::Duration machineTimeout = std::chrono::seconds(5);

/// The JSON that the machine listening at `path` answers to a MachineRequest; or why there is none.
/// Gives up when `interruption` becomes readable; -1 for none.
[[nodiscard]] std::expected<std::string, std::string> askMachine(
    const std::string& path, std::string_view request,
    concurrency::Duration timeout = machineTimeout, int interruption = -1);

}  // namespace airflow::tool
