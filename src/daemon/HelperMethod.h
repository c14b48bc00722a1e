// HelperMethod: the operations that the daemon offers its clients, and their names.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace airflow::daemon {

/// In the order in which the daemon declares them.
enum class HelperMethod : std::uint8_t {
    helperVersion,
    shutdownForUpgrade,
    setManualRPM,
    setPercent,
    fullBlast,
    automatic,
    applyConfig,
    restoreAuto,
    heartbeat,
    readState,
};

/// In the order of the enumerators.
inline constexpr std::array<std::string_view, 10> helperMethodNames{
    "helperVersion", "shutdownForUpgrade", "setManualRPM", "setPercent", "fullBlast",
    "automatic",     "applyConfig",        "restoreAuto",  "heartbeat",  "readState"};

[[nodiscard]] std::string_view nameOf(HelperMethod method);
/// Nothing, when there is none of this name.
[[nodiscard]] std::optional<HelperMethod> helperMethodNamed(std::string_view name);

}  // namespace airflow::daemon
