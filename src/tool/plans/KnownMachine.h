// KnownMachine: the fans and sensors that plans are checked against.
#pragma once

#include <expected>
#include <string>

#include "review/Machine.h"

namespace airflow::tool {

/// What the daemon would see on a simulated Mac that has a name. Requires that there is one.
[[nodiscard]] review::Machine machineOfPreset(const std::string& name);

/// All fans and sensors of a trace's snapshots, and of each fan the widest range; or one line that
/// says what is wrong with the trace.
[[nodiscard]] std::expected<review::Machine, std::string> machineOfTrace(const std::string& path);

}  // namespace airflow::tool
