#include "tool/machine/SensorsCommand.h"

#include <fmt/format.h>

#include <optional>
#include <ostream>

#include "sensors/SensorSnapshot.h"
#include "simulation/daemon/SimulatedSystem.h"
#include "text/Table.h"
#include "text/Text.h"
#include "tool/replay/Trace.h"

namespace airflow::tool {

namespace {

using sensors::Fan;
using sensors::SensorSnapshot;
using sensors::TempSensor;

void writeFans(std::ostream& out, const std::vector<Fan>& fans) {
    if (fans.empty()) {
        out << "no fans\n";
        return;
    }
    constexpr auto right = text::Table::Align::right;
    text::Table table({{"fan", right},
                       {"name"},
                       {"speed (RPM)", right},
                       {"min", right},
                       {"max", right},
                       {"mode"}});
    for (const Fan& fan : fans) {
        table.add({fmt::format("{}", fan.id), text::printable(fan.name),
                   fmt::format("{}", fan.currentRPM), fmt::format("{}", fan.minRPM),
                   fmt::format("{}", fan.maxRPM),
                   fan.mode ? text::fanModeText(*fan.mode) : "no mode key"});
    }
    table.write(out);
}

void writeTemperatures(std::ostream& out, const std::vector<TempSensor>& temps) {
    if (temps.empty()) {
        out << "no temperatures\n";
        return;
    }
    text::Table table({{"temperature"}, {"name"}, {"category"}, {"°C", text::Table::Align::right}});
    for (const TempSensor& temp : temps) {
        table.add({text::printable(temp.id()), text::printable(temp.name),
                   std::string(rawValue(temp.category)), fmt::format("{:.2f}", temp.celsius)});
    }
    table.write(out);
}

}  // namespace

int showSensors(const std::string& machine, SensorsFormat format, std::ostream& out,
                std::ostream& err) {
    simulation::SimulatedSystem system(simulation::machinePreset(machine).value());
    const SensorSnapshot snapshot = system.runtime.run(system.sensors.snapshot());
    for (const std::string& line : system.standardError.lines) err << line;
    if (format == SensorsFormat::table) {
        writeFans(out, snapshot.fans);
        out << '\n';
        writeTemperatures(out, snapshot.temps);
    } else {
        const auto text = traceLine({.time = 0, .snapshot = snapshot});
        if (!text) {
            err << text.error() << '\n';
            return 1;
        }
        out << *text << '\n';
    }
    return 0;
}

}  // namespace airflow::tool
