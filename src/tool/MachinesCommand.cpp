#include "tool/MachinesCommand.h"

#include <fmt/format.h>

#include "simulation/MachineDescription.h"
#include "tool/Table.h"
#include "tool/Text.h"

namespace airflow::tool {

void listMachines(std::ostream& out) {
    Table table({{}, {}});
    for (const simulation::MachineDescription& machine : simulation::machinePresets()) {
        table.add({machine.name, machine.summary});
    }
    table.write(out);
}

std::string whyNoMachine(const std::string& name) {
    if (simulation::machinePreset(name)) return {};
    std::string known;
    for (const simulation::MachineDescription& machine : simulation::machinePresets()) {
        known += (known.empty() ? "" : ", ") + machine.name;
    }
    return fmt::format("there is no machine \"{}\"; there are {}", printable(name), known);
}

}  // namespace airflow::tool
