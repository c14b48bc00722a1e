#include "tool/machine/MachinesCommand.h"

#include <fmt/format.h>

#include "simulation/machine/MachineDescription.h"
#include "text/Table.h"
#include "text/Text.h"

namespace airflow::tool {

void listMachines(std::ostream& out) {
    text::Table table({{}, {}});
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
    return fmt::format("there is no machine \"{}\"; there are {}", text::printable(name), known);
}

}  // namespace airflow::tool
