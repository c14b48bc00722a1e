// airflow sensors: what would the daemon see on this machine?
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>

namespace airflow::tool {

enum class SensorsFormat : std::uint8_t { table, json };

/// Switches a simulated Mac on, opens it as the daemon does and writes one snapshot on `out`, as
/// JSON in the form of a trace's line whose time is 0; what the daemon would write to standard
/// error goes to `err`. `machine` is the name of one. Returns the exit status: 0, or 1 with a line
/// on `err` when the snapshot has no JSON form.
[[nodiscard]] int showSensors(const std::string& machine, SensorsFormat format, std::ostream& out,
                              std::ostream& err);

}  // namespace airflow::tool
