// MachineStatus: the truth about a simulated machine that runs in a process of its own.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "json/Decoder.h"
#include "json/Writer.h"
#include "simulation/machine/MachineDescription.h"

namespace airflow::remote {

struct MachineStatus {
    struct Fan {
        std::int64_t id = 0;
        std::int64_t mode = 0;              ///< 0 automatic, 1 forced, 3 taken back by the firmware
        std::optional<double> targetRPM{};  ///< nothing: what was written last is not finite
        double currentRPM = 0;

        void encode(json::Writer& writer) const;
        static Fan decode(const json::Decoder& decoder);
    };

    std::string machine{};  ///< the preset's name
    double seconds = 0;     ///< of the machine's time since it was switched on
    std::int64_t forceTest = 0;
    std::vector<Fan> fans{};
    std::optional<simulation::Temperatures> hid{};
    simulation::Temperatures smc{};
    std::int64_t faults = 0;
    std::int64_t smcRequests = 0;  ///< over the socket, since the machine was switched on
    std::int64_t hidRequests = 0;
    std::map<std::string, std::int64_t> writes{};  ///< that reached the SMC, by key
    std::int64_t openConnections = 0;              ///< to the SMC
    std::int64_t hidObjects = 0;                   ///< that somebody holds

    void encode(json::Writer& writer) const;
    static MachineStatus decode(const json::Decoder& decoder);
    /// For people.
    void writeTable(std::ostream& out) const;
};

}  // namespace airflow::remote
