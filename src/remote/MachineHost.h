// MachineHost: a simulated Mac in real time, and what people may ask of it while it runs.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "concurrency/Clock.h"
#include "remote/MachineRequest.h"
#include "remote/MachineSession.h"
#include "remote/MachineStatus.h"
#include "simulation/machine/SimulatedMac.h"

namespace airflow::remote {

/// The machine for a MachineServer. What people ask is a MachineRequest, answered with a
/// JSON object: {}, the status, or {"error":"..."} when nothing was done. Called under the lock of
/// what is served, or before that is served.
class MachineHost {
public:
    struct Options {
        simulation::MachineDescription machine{};
        double speed = 1;              ///< seconds of the machine in each second; above 0
        std::optional<double> load{};  ///< watts; nothing: a gently changing one
    };

    /// `clock` is the real time.
    MachineHost(Options options, std::function<concurrency::Instant()> clock);
    MachineHost(const MachineHost&) = delete;
    MachineHost& operator=(const MachineHost&) = delete;

    [[nodiscard]] ServedMachine& served() { return machine; }

private:
    [[nodiscard]] concurrency::Duration elapsed() const;
    [[nodiscard]] double watts(concurrency::Duration now) const;
    [[nodiscard]] std::string control(std::string_view request);
    [[nodiscard]] MachineStatus status();
    void addFaults(const std::vector<simulation::Fault>& added);
    /// Why the change cannot be made; nothing when it was.
    [[nodiscard]] std::optional<std::string> apply(const MachineChange& change);
    void changeHID(const MachineChange& change);
    void changeLoad(const MachineChange::Load& load);

    Options options;
    std::function<concurrency::Instant()> clock;
    concurrency::Instant start;
    simulation::SimulatedMac mac;
    bool isStill = false;  ///< temperatures do not follow a load
    std::int64_t faults = 0;
    std::map<std::string, std::int64_t> writes;
    ServedMachine machine;
};

}  // namespace airflow::remote
