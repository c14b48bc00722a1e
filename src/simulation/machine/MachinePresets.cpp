#include <algorithm>
#include <cstddef>

#include "simulation/machine/MachineDescription.h"

namespace airflow::simulation {

namespace {

using namespace std::chrono_literals;

Temperatures laptopHID() {
    Temperatures temperatures;
    for (int die = 1; die <= 6; ++die) {
        temperatures.emplace_back("PMU tdie" + std::to_string(die), 44.0 + 0.5 * die);
    }
    temperatures.emplace_back("PMU tcal", 51.8);
    temperatures.emplace_back("GPU MTR Temp Sensor1", 42.5);
    temperatures.emplace_back("gas gauge battery", 31.0);
    temperatures.emplace_back("NAND CH0 temp", 35.0);
    return temperatures;
}

Temperatures smcTemperatures() {
    return {{"TCHP", 45.5}, {"TCMb", 44.0}, {"TCMz", 45.0}, {"TG0D", 42.0},
            {"TD01", 36.0}, {"TB0T", 31.0}, {"TW0P", 38.0}};
}

MachineDescription laptop(std::string name, std::string summary) {
    MachineDescription machine{.name = std::move(name), .summary = std::move(summary)};
    machine.fans = {{.minRPM = 1200, .maxRPM = 6000, .currentRPM = 1200, .modeKey = "F0Md"},
                    {.minRPM = 1200, .maxRPM = 6200, .currentRPM = 1200, .modeKey = "F1Md"}};
    machine.hid = laptopHID();
    machine.smc = smcTemperatures();
    return machine;
}

MachineDescription fortySensors() {
    auto machine = laptop("forty-sensors", "two fans and forty HID temperatures");
    machine.hid.emplace();
    for (int die = 1; die <= 34; ++die) {
        machine.hid->emplace_back("PMU tdie" + std::to_string(die), 40.0 + 0.25 * die);
    }
    for (int gpu = 1; gpu <= 4; ++gpu) {
        machine.hid->emplace_back("GPU MTR Temp Sensor" + std::to_string(gpu), 41.0 + gpu);
    }
    machine.hid->emplace_back("NAND CH0 temp", 35.0);
    machine.hid->emplace_back("gas gauge battery", 31.0);
    return machine;
}

std::vector<MachineDescription> makePresets() {
    std::vector<MachineDescription> machines;
    machines.push_back(
        laptop("laptop", "two fans, forced mode accepted at once, HID temperatures"));
    machines.push_back(fortySensors());

    auto unlock = laptop("unlock", "forced mode refused (0x86) until Ftst has been on for 0.3 s");
    unlock.forceTestDelay = 300ms;
    machines.push_back(std::move(unlock));

    auto busy = laptop("busy", "answers busy (0x82) for 3 s when forced mode is asked for");
    busy.busy = 3s;
    machines.push_back(std::move(busy));

    auto lower = laptop("lower-case", "names its mode keys F0md and F1md");
    for (std::size_t fan = 0; fan < lower.fans.size(); ++fan) {
        lower.fans[fan].modeKey = lowerModeKey(fan);
    }
    machines.push_back(std::move(lower));

    auto keyless = laptop("no-mode-key", "has fans whose mode nobody can set");
    for (FanDescription& fan : keyless.fans) fan.modeKey.reset();
    machines.push_back(std::move(keyless));

    auto reclaiming =
        laptop("reclaiming", "the firmware takes forced fans back (mode 3) after 20 s");
    reclaiming.reclaimAfter = 20s;
    machines.push_back(std::move(reclaiming));

    auto noHub = laptop("no-hid", "no HID sensor hub: temperatures come from SMC keys");
    noHub.hid.reset();
    machines.push_back(std::move(noHub));

    auto noSymbols = laptop("no-hid-symbols", "the HID functions do not resolve on this system");
    noSymbols.hasHIDSymbols = false;
    machines.push_back(std::move(noSymbols));

    auto fanless = laptop("fanless", "a machine without fans");
    fanless.fans.clear();
    machines.push_back(std::move(fanless));

    auto left = laptop("left-forced", "a crashed daemon left both fans forced at their minimum");
    for (FanDescription& fan : left.fans) fan.mode = 1;
    machines.push_back(std::move(left));
    return machines;
}

}  // namespace

const std::vector<MachineDescription>& machinePresets() {
    static const std::vector<MachineDescription> machines = makePresets();
    return machines;
}

std::optional<MachineDescription> machinePreset(const std::string& name) {
    const auto found = std::ranges::find(machinePresets(), name, &MachineDescription::name);
    if (found == machinePresets().end()) return std::nullopt;
    return *found;
}

std::string upperModeKey(std::size_t fan) {
    return "F" + std::to_string(fan) + "Md";
}

std::string lowerModeKey(std::size_t fan) {
    return "F" + std::to_string(fan) + "md";
}

}  // namespace airflow::simulation
