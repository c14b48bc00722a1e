// Replay: the daemon's controller over recorded snapshots, a tick of its hold loop for each.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "control/ControlState.h"
#include "evaluation/EvaluationRecord.h"
#include "plan/FanControlPlan.h"
#include "sensors/SensorSnapshot.h"
#include "tool/replay/Situation.h"

namespace airflow::tool {

/// What one tick came to.
struct ReplayTick {
    struct Fan {
        bool isForced = false;
        double targetRPM = 0;  ///< as last written, RPM

        bool operator==(const Fan&) const = default;
    };

    /// As the daemon published it. Its cause says why control has ended, if it did unasked.
    control::ControlState state{};
    /// Absent when nothing was decided: control has ended, or there were no temperatures.
    std::optional<Situation> situation{};
    /// How it was decided; with the situation.
    std::optional<evaluation::EvaluationRecord> evaluation{};
    std::map<std::int64_t, Fan> fans{};  ///< of the machine by index, after the tick
    std::vector<std::int64_t> claimed{};
    std::vector<std::int64_t> released{};
};

/// The machine takes every write at once, and a client is heard before every tick. Time is the
/// snapshots': each is a tick, however long after the one before.
class Replay {
public:
    explicit Replay(plan::FanControlPlan plan);
    Replay(const Replay&) = delete;
    Replay& operator=(const Replay&) = delete;
    ~Replay();

    /// The first snapshot is that of the command which puts the plan in force.
    [[nodiscard]] ReplayTick step(const sensors::SensorSnapshot& snapshot);

private:
    class Daemon;

    const plan::FanControlPlan plan;
    const std::unique_ptr<Daemon> daemon;
    bool isInForce = false;
};

}  // namespace airflow::tool
