// Monitors of what is written to the SMC.
#pragma once

#include <optional>
#include <set>
#include <vector>

#include "simulation/oracle/Monitor.h"

namespace airflow::simulation {

/// onlyAllowedWrites: which keys are written, and which values.
class AllowedWritesMonitor final : public Monitor {
public:
    AllowedWritesMonitor(const RunModel& judged, Fail told);
    void requested(const SMCAccess& access) override;
    void started(Duration now) override;

private:
    void judgeWrite(const SMCAccess& access) const;
    void judgeTarget(std::size_t fan, const SMCAccess& access) const;
    void noteLimit(std::size_t fan, const SMCAccess& access);

    std::vector<std::set<double>> limits;  ///< of each fan, as read in this life, RPM
};

/// forceTestIsLowered and forceTestComesFirst: "Ftst" is on while fans are released, and off
/// afterwards.
class ForceTestMonitor final : public Monitor {
public:
    using Monitor::Monitor;
    void requested(const SMCAccess& access) override;
    void askedToRelease(std::size_t fan, Duration now) override;
    void reasonArose(Duration now) override;
    void published(Duration, const control::ControlState&) override { isTickUnderWay = false; }
    void called(Duration now, const Call& call) override;
    void started(Duration now) override;
    /// A release that is under way then goes on without Ftst; the exit's own raises it again.
    void exitBegan(Duration) override { isDue = false; }
    void looked(Duration now, SimulatedMac& mac) override;

private:
    [[nodiscard]] bool isNothingElseAtWork(Duration now) const;

    bool isDue = false;       ///< to be raised before the next fan is given back
    bool hasLowered = false;  ///< by its last write
    bool isTickUnderWay = false;
    Mark lastWrite{};  ///< of anything
    std::optional<Mark> lastReason;
    std::optional<Mark> lastRaised;
    std::optional<Mark> lastLowered;
};

}  // namespace airflow::simulation
