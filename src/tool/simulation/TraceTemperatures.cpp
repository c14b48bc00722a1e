#include "tool/simulation/TraceTemperatures.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <map>
#include <utility>
#include <vector>

#include "sensors/hid/HIDSensorCatalog.h"
#include "simulation/machine/Decoding.h"
#include "text/Text.h"
#include "tool/plans/PlanFile.h"
#include "tool/replay/Trace.h"

namespace airflow::tool {

namespace {

template <typename T>
using Result = std::expected<T, std::string>;
using sensors::SensorSource;
using simulation::TemperatureChange;

/// What a key of a trace is on the machine: keys of the SMC, or labels of HID services.
using Places = std::vector<std::string>;
using Sensor = std::pair<SensorSource, std::string>;

/// The key under which the daemon shows a service, for any that it shows.
std::string shownKey(const std::string& label) {
    // The samples differ and are plausible: nothing but the label decides then.
    const auto shown = sensors::HIDSensorCatalog::curate({{.label = label, .samples = {40, 41}}});
    return shown.empty() ? std::string() : shown.front().key;
}

Places placesOf(const simulation::MachineDescription& machine, const Sensor& sensor) {
    Places places;
    const auto& [source, key] = sensor;
    if (source == SensorSource::smc) {
        const auto found =
            std::ranges::find(machine.smc, key, &simulation::Temperatures::value_type::first);
        if (found != machine.smc.end()) places.push_back(key);
        return places;
    }
    if (!machine.hid || !machine.hasHIDSymbols) return places;
    for (const auto& [label, celsius] : *machine.hid) {
        if (label == key || shownKey(label) == key) places.push_back(label);
    }
    return places;
}

/// The lines of a trace, and the sensors that any of them names.
struct Recording {
    std::vector<TraceTick> ticks;
    std::map<Sensor, Places> sensors;
};

Result<void> add(Recording& recording, TraceTick tick,
                 const simulation::MachineDescription& machine) {
    const double start = recording.ticks.empty() ? tick.time : recording.ticks.front().time;
    const double after = recording.ticks.empty() ? -1 : recording.ticks.back().time;
    if (!recording.ticks.empty() && !(tick.time > after))
        return std::unexpected(fmt::format("time: {} s is not after the line before ({} s).",
                                           text::plain(tick.time), text::plain(after)));
    if (!(tick.time - start <= simulation::decoding::longestSeconds))
        return std::unexpected(fmt::format("time: more than {} s after the first line.",
                                           simulation::decoding::longestSeconds));
    for (std::size_t i = 0; i < tick.snapshot.temps.size(); ++i) {
        const sensors::TempSensor& temp = tick.snapshot.temps[i];
        const auto [found, isNew] =
            recording.sensors.try_emplace({temp.source, temp.key}, Places{});
        if (!isNew) continue;
        found->second = placesOf(machine, found->first);
        if (found->second.empty())
            return std::unexpected(fmt::format("temps[{}]: this machine has no sensor {}.", i,
                                               text::printable(temp.id())));
    }
    recording.ticks.push_back(std::move(tick));
    return {};
}

Result<Recording> readRecording(const std::string& path,
                                const simulation::MachineDescription& machine) {
    std::ifstream file;
    if (const auto reason = openFile(path, file))
        return std::unexpected(
            fmt::format("{}: cannot be read: {}", text::printable(path), *reason));
    TraceReader trace(file, path);
    Recording recording;
    for (;;) {
        auto tick = trace.next();
        if (!tick) return std::unexpected(tick.error());
        if (!*tick) break;
        if (const auto added = add(recording, std::move(**tick), machine); !added)
            return std::unexpected(trace.place() + ": " + added.error());
    }
    if (recording.ticks.empty()) return std::unexpected(trace.place() + ": the trace is empty");
    return recording;
}

TemperatureChange changeOf(const TraceTick& tick, double start,
                           const std::map<Sensor, Places>& sensors) {
    TemperatureChange change{.at = concurrency::Duration(std::llround((tick.time - start) * 1e9))};
    for (const auto& [sensor, places] : sensors) {
        const auto& [source, key] = sensor;
        std::optional<double> celsius;
        for (const sensors::TempSensor& temp : tick.snapshot.temps) {
            if (temp.source == source && temp.key == key) celsius = temp.celsius;
        }
        for (const std::string& place : places) {
            if (source == SensorSource::hid)
                change.hid.emplace_back(place, celsius);
            else
                change.smc.emplace_back(place, celsius.value_or(0));
        }
    }
    return change;
}

}  // namespace

Result<void> followTrace(simulation::Scenario& scenario, const std::string& path) {
    const auto recording = readRecording(path, scenario.machine);
    if (!recording) return std::unexpected(recording.error());
    scenario.thermal.reset();
    scenario.temperatures.clear();
    const double start = recording->ticks.front().time;
    for (const TraceTick& tick : recording->ticks)
        scenario.temperatures.push_back(changeOf(tick, start, recording->sensors));
    return {};
}

}  // namespace airflow::tool
