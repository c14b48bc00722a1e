// CountMonitor: how often each of the dangerous things happened that a soak has to try.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string_view>

#include "simulation/oracle/Monitor.h"

namespace airflow::simulation {

class CountMonitor final : public Monitor {
public:
    using Monitor::Monitor;
    using Counts = std::array<std::uint64_t, sometimes.size()>;

    [[nodiscard]] const Counts& counts() const { return counters; }

    void modeChanged(FanMode mode);
    void askedToRelease(std::size_t fan, Duration now) override;
    void published(Duration now, const control::ControlState& state) override;
    void called(Duration now, const Call& call) override;
    void answered(Duration now, const RunModel::Command& command, const Reply& reply) override;
    void reasonArose(Duration now) override;
    void connected(bool isUntrusted);
    /// Before the model hears of it.
    void disconnecting(std::string_view client);
    void disconnected();
    void clockJumped(double seconds);
    void looked(Duration now, SimulatedMac& mac) override;
    void guarded(Duration now) override;
    void signalled(Duration now, daemon::Signal signal) override;
    void ended(const ProcessEnd& end) override;

private:
    void count(std::string_view happening);

    Counts counters{};
    std::map<std::size_t, int> refusals;  ///< of each fan, before its last request
};

}  // namespace airflow::simulation
