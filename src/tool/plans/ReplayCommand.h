// airflow replay: what would this plan have done with these temperatures?
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>

namespace airflow::tool {

enum class ReplayFormat : std::uint8_t { table, jsonLines };

/// Runs the plan over the trace ("-" is `in`), a line out for each line in. Returns the exit
/// status: 0, or 1 with a line on `err` when the plan or a line of the trace is bad; what came
/// before the bad line has been written then.
[[nodiscard]] int replay(const std::string& planPath, const std::string& tracePath,
                         ReplayFormat format, std::istream& in, std::ostream& out,
                         std::ostream& err);

}  // namespace airflow::tool
