// The daemon's own lines on standard error.
#pragma once

#include <string>
#include <string_view>

namespace airflow::daemon {

extern const std::string_view machServiceName;

/// `text` as a line of the log, with its newline.
[[nodiscard]] std::string logLine(std::string_view text);

}  // namespace airflow::daemon
