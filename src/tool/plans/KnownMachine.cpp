#include "tool/plans/KnownMachine.h"

#include <fmt/format.h>

#include <algorithm>
#include <fstream>

#include "simulation/daemon/SimulatedSystem.h"
#include "text/Text.h"
#include "tool/plans/PlanFile.h"
#include "tool/replay/Trace.h"

namespace airflow::tool {

namespace {

void addTo(review::Machine& machine, const sensors::SensorSnapshot& snapshot) {
    for (const sensors::Fan& fan : snapshot.fans) {
        const review::SpeedRange seen{.minRPM = fan.minRPM, .maxRPM = fan.maxRPM};
        auto& range = machine.fans.emplace(fan.id, seen).first->second;
        range.minRPM = std::min(range.minRPM, seen.minRPM);
        range.maxRPM = std::max(range.maxRPM, seen.maxRPM);
    }
    for (const sensors::TempSensor& temp : snapshot.temps) machine.sensorIDs.insert(temp.id());
}

}  // namespace

review::Machine machineOfPreset(const std::string& name) {
    simulation::SimulatedSystem system(simulation::machinePreset(name).value());
    review::Machine machine{
        .name = fmt::format("the machine {}", name), .fans = {}, .sensorIDs = {}};
    addTo(machine, system.runtime.run(system.sensors.snapshot()));
    return machine;
}

std::expected<review::Machine, std::string> machineOfTrace(const std::string& path) {
    std::ifstream file;
    if (const auto reason = openFile(path, file)) {
        return std::unexpected(
            fmt::format("{}: cannot be read: {}", text::printable(path), *reason));
    }
    review::Machine machine{.name = "the machine of the trace", .fans = {}, .sensorIDs = {}};
    TraceReader trace(file, path);
    for (;;) {
        auto tick = trace.next();
        if (!tick) return std::unexpected(std::move(tick.error()));
        if (!*tick && machine.fans.empty() && machine.sensorIDs.empty())
            return std::unexpected(trace.place() + ": the trace shows no fan and no sensor");
        if (!*tick) return machine;
        addTo(machine, (*tick)->snapshot);
    }
}

}  // namespace airflow::tool
