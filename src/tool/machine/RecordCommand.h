// airflow record: what a running machine's sensors show, as a trace.
#pragma once

#include "tool/Tool.h"

namespace CLI {
class App;
}

namespace airflow::tool {

/// Adds the command.
void addRecord(CLI::App& app, Streams streams, int& status);

}  // namespace airflow::tool
