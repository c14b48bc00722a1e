// PlanCommands: the command line of what plan authors do.
#pragma once

#include <string>

#include "tool/Tool.h"

namespace CLI {
class App;
}

namespace airflow::tool {

/// Adds check, replay, explain and compare. Each sets `status` when it runs.
void addPlanCommands(CLI::App& app, Streams streams, int& status);

/// Why a text is no finite number of seconds; empty if it is one.
[[nodiscard]] std::string whyNotFinite(const std::string& text);
/// Why a text is no fan at a time, such as 0@37.5; empty if it is one.
[[nodiscard]] std::string whyNoFanAtTime(const std::string& text);

}  // namespace airflow::tool
