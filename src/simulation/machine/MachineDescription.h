// MachineDescription: what a simulated Mac is made of.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "concurrency/Clock.h"
#include "json/Decoder.h"

namespace airflow::simulation {

struct FanDescription {
    double minRPM = 1200;
    double maxRPM = 6000;
    double currentRPM = 1200;
    /// "F0Md", "F0md" and so on; absent: the machine has no mode key for this fan.
    std::optional<std::string> modeKey{};
    std::uint8_t mode = 0;  ///< 0 automatic, 1 forced, 3 taken back by the firmware

    bool operator==(const FanDescription&) const = default;
};

/// Sensors in the order in which the machine lists them, with their first temperature in °C.
using Temperatures = std::vector<std::pair<std::string, double>>;

struct MachineDescription {
    std::string name{};
    std::string summary{};  ///< one line for people
    std::vector<FanDescription> fans{};
    bool hasHIDSymbols = true;          ///< false: the HID functions do not resolve
    std::optional<Temperatures> hid{};  ///< services by label; absent: the hub lists none
    Temperatures smc{};                 ///< temperature keys

    /// Forced mode is refused until "Ftst" has been on for this long.
    std::optional<concurrency::Duration> forceTestDelay{};
    /// Forced mode is answered with "busy" for this long after it was first asked for.
    concurrency::Duration busy{};
    /// The firmware takes a forced fan back after this long.
    std::optional<concurrency::Duration> reclaimAfter{};

    bool operator==(const MachineDescription&) const = default;

    /// A preset's name, or an object that overrides parts of a preset ("laptop" by default).
    static MachineDescription decode(const json::Decoder& decoder);
};

/// The machines that have a name.
[[nodiscard]] const std::vector<MachineDescription>& machinePresets();
/// One of them; nothing for an unknown name.
[[nodiscard]] std::optional<MachineDescription> machinePreset(const std::string& name);

/// The mode key of a fan, as most machines call it: "F0Md".
[[nodiscard]] std::string upperModeKey(std::size_t fan);
/// And as some do: "F0md".
[[nodiscard]] std::string lowerModeKey(std::size_t fan);

}  // namespace airflow::simulation
