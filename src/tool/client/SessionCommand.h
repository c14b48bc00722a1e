// airflow session: commands over one connection, from a person or a script.
#pragma once

#include "tool/Tool.h"

namespace CLI {
class App;
}

namespace airflow::tool {

void addSession(CLI::App& app, Streams streams, int& status);

}  // namespace airflow::tool
