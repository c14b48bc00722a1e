// The daemon's own lines on standard error.
#pragma once

#include <string>
#include <string_view>

namespace airflow::daemon {

inline constexpr std::string_view machServiceName = "com.brisquell.helper";

/// `text` as a line of the log, with its newline.
[[nodiscard]] inline std::string logLine(std::string_view text) {
    return "[" + std::string(machServiceName) + "] " + std::string(text) + "\n";
}

}  // namespace airflow::daemon
