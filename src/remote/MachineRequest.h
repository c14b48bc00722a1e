// MachineRequest: what people ask of a simulated machine while it runs, as JSON.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "json/Decoder.h"
#include "simulation/machine/Fault.h"
#include "simulation/machine/MachineDescription.h"

namespace airflow::remote {

/// What the machine does by itself. Temperatures that are set stay, and so do all others: from then
/// on they follow no load until one is set.
struct MachineChange {
    enum class Following : std::uint8_t { unchanged, constantLoad, changingLoad, nothing };
    struct Load {
        Following following = Following::unchanged;
        double watts = 0;  ///< of a constant load
    };

    bool hidesHID = false;  ///< no HID services
    /// HID labels with °C, or nothing for one that vanishes.
    std::vector<std::pair<std::string, std::optional<double>>> hid{};
    simulation::Temperatures smc{};                      ///< by key
    std::vector<std::pair<std::string, double>> keys{};  ///< that can be written
    Load load{};

    /// "hid": an object, or null to hide all; "smc"; "keys"; "load": watts, "changing", or null to
    /// follow none.
    static MachineChange decode(const json::Decoder& decoder);
};

/// An object with one of the members "status", "clear" (both {}), "faults" and "set".
struct MachineRequest {
    enum class Kind : std::uint8_t { status, addFaults, clearFaults, change };

    Kind kind = Kind::status;
    std::vector<simulation::Fault> faults{};  ///< with times from now on
    MachineChange change{};

    static MachineRequest decode(const json::Decoder& decoder);
};

}  // namespace airflow::remote
