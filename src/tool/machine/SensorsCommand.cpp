#include "tool/machine/SensorsCommand.h"

#include <fmt/format.h>

#include <optional>
#include <ostream>

#include "json/Writer.h"
#include "sensors/SensorSnapshot.h"
#include "simulation/daemon/SimulatedSystem.h"
#include "text/Table.h"
#include "text/Text.h"

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

/// Gives a fan the form that it has in a trace.
struct EncodedFan {
    const Fan& fan;

    void encode(json::Writer& writer) const {
        writer.object([&] {
            writer.member("id", fan.id);
            writer.member("minRPM", fan.minRPM);
            writer.member("maxRPM", fan.maxRPM);
            writer.member("currentRPM", fan.currentRPM);
            writer.member("mode", fan.mode);
            writer.member("name", fan.name);
        });
    }
};

/// Gives a temperature the form that it has in a trace.
struct EncodedTemperature {
    const TempSensor& temp;

    void encode(json::Writer& writer) const {
        writer.object([&] {
            writer.member("key", temp.key);
            writer.member("source", rawValue(temp.source));
            writer.member("celsius", temp.celsius);
            writer.member("name", temp.name);
            writer.member("category", rawValue(temp.category));
        });
    }
};

std::expected<std::string, json::EncodingError> encoded(const SensorSnapshot& snapshot) {
    const std::vector<EncodedFan> fans(snapshot.fans.begin(), snapshot.fans.end());
    const std::vector<EncodedTemperature> temps(snapshot.temps.begin(), snapshot.temps.end());
    json::Writer writer;
    writer.object([&] {
        writer.member("timestamp", snapshot.timestamp.time_since_epoch().count());
        writer.member("fans", fans);
        writer.member("temps", temps);
    });
    return writer.take();
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
        const auto text = encoded(snapshot);
        if (!text) {
            err << fmt::format("{}: {}\n", text.error().codingPath, text.error().description);
            return 1;
        }
        out << *text << '\n';
    }
    return 0;
}

}  // namespace airflow::tool
