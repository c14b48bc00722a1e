// airflow machines: which simulated Macs are there?
#pragma once

#include <iosfwd>
#include <string>

namespace airflow::tool {

/// Writes a line for each: its name and what is special about it.
void listMachines(std::ostream& out);

/// Says that no machine has that name and which ones there are; nothing when there is one.
[[nodiscard]] std::string whyNoMachine(const std::string& name);

}  // namespace airflow::tool
