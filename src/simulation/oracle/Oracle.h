// Oracle: judges a run of the whole daemon by what can be seen from outside: the machine's truth,
// messages, connections, time and the life of the process. It knows nothing of the daemon's code.
//
// It keeps one model of the run, and tells the monitors of it: one for each property, or for a few
// that belong together.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "simulation/oracle/OracleCounts.h"
#include "simulation/oracle/Properties.h"
#include "simulation/oracle/RunModel.h"
#include "simulation/runtime/Fingerprint.h"
#include "simulation/scenario/ScenarioObserver.h"

namespace airflow::simulation {

struct Violation {
    Property property = Property::releaseBegins;
    concurrency::Duration time{};
    std::string what{};
};

/// For people: "releaseBegins at 12.500 s: ...".
[[nodiscard]] std::string describe(const Violation& violation);

class Oracle final : public ScenarioObserver {
public:
    /// The scenario outlives the oracle.
    explicit Oracle(const Scenario& scenario);

    /// The first one; what follows it often follows from it.
    [[nodiscard]] const std::optional<Violation>& violation() const { return first; }
    /// How often each of `sometimes` happened.
    [[nodiscard]] const CountMonitor::Counts& counts() const { return counter->counts(); }
    /// Depends on everything that was told.
    [[nodiscard]] std::uint64_t hash() const { return trace.value(); }

    void access(const SMCAccess& access) override;
    void modeChanged(concurrency::Duration time, std::size_t fan, FanMode mode) override;
    void published(concurrency::Duration time, const control::ControlState& state) override;
    void called(concurrency::Duration time, std::string_view client, const Call& call) override;
    void replied(concurrency::Duration time, const Reply& reply) override;
    void logged(concurrency::Duration time, std::string_view line) override;
    void second(concurrency::Duration time, SimulatedMac& mac) override;
    void started(concurrency::Duration time) override;
    void listening(concurrency::Duration time) override;
    void exitBegan(concurrency::Duration time) override;
    void guarded(concurrency::Duration time) override;
    void signalled(concurrency::Duration time, daemon::Signal signal) override;
    void ended(const ProcessEnd& end) override;
    void connected(concurrency::Duration time, std::string_view client, bool isUntrusted) override;
    void disconnected(concurrency::Duration time, std::string_view client) override;
    void clockJumped(concurrency::Duration time, double seconds) override;

private:
    template <typename M>
    M& add();
    void tellModeKey(const SMCAccess& access);
    void fail(Property property, concurrency::Duration time, std::string what);
    void mix(std::uint64_t value) { trace.mix(value); }
    void mix(std::string_view text);

    RunModel run;
    std::vector<std::unique_ptr<Monitor>> monitors;
    CountMonitor* counter = nullptr;  ///< one of them
    std::optional<Violation> first;
    Fingerprint trace;
};

}  // namespace airflow::simulation
