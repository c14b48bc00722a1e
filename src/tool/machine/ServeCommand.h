// airflow serve: a machine and a daemon, for a first try.
#pragma once

#include "tool/Tool.h"

namespace CLI {
class App;
}

namespace airflow::tool {

void addServe(CLI::App& app, Streams streams, int& status);

}  // namespace airflow::tool
