// ReleaseCause: what a safety release is counted as.
#pragma once

#include <optional>
#include <string>

#include "control/ControlError.h"

namespace airflow::tool {

/// Nothing for an error that releases no fan by itself.
[[nodiscard]] std::optional<std::string> releaseCause(const control::ControlError& error);

}  // namespace airflow::tool
