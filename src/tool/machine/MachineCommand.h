// airflow machine: a simulated Mac in a process of its own.
#pragma once

#include <expected>
#include <string>

#include "tool/Tool.h"

namespace CLI {
class App;
}

namespace airflow::tool {

/// Adds the command, with those that speak to a machine that runs.
void addMachine(CLI::App& app, Streams streams, int& status);

/// The machine's socket: `given`, or the one in the user's runtime folder if that is empty; or why
/// there is no such folder.
[[nodiscard]] std::expected<std::string, std::string> machineSocket(const std::string& given);

}  // namespace airflow::tool
