// airflow helper and airflow serve: the daemon as a process, alone or with its machine.
#pragma once

#include "tool/Tool.h"

namespace CLI {
class App;
}

namespace airflow::tool {

/// Adds both commands.
void addHelper(CLI::App& app, Streams streams, int& status);

}  // namespace airflow::tool
