// Tool: the `airflow` command line, over streams that a test can hand in.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace airflow::tool {

struct Streams {
    std::istream& in;
    std::ostream& out;
    std::ostream& err;
};

/// Runs one command. `arguments` are those after the program's name. Returns the exit status:
/// 0 for success, 1 when the command failed, 2 for wrong usage.
[[nodiscard]] int runTool(std::vector<std::string> arguments, Streams streams);

}  // namespace airflow::tool
