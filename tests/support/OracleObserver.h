// OracleObserver: a run under the oracle that a test watches as well.
#pragma once

#include <string_view>

#include "simulation/oracle/Oracle.h"
#include "simulation/scenario/ScenarioObserver.h"

namespace airflow::tests {

/// Passes everything that happens on to the oracle. Whoever overrides a function to see something
/// itself calls the one here, too.
class OracleObserver : public simulation::ScenarioObserver {
protected:
    using Duration = concurrency::Duration;

public:
    /// The scenario outlives the observer.
    explicit OracleObserver(const simulation::Scenario& scenario) : oracle(scenario) {}

    void access(const simulation::SMCAccess& access) override { oracle.access(access); }
    void modeChanged(Duration time, std::size_t fan, simulation::FanMode mode) override {
        oracle.modeChanged(time, fan, mode);
    }
    void published(Duration time, const control::ControlState& state) override {
        oracle.published(time, state);
    }
    void called(Duration time, std::string_view client, const simulation::Call& call) override {
        oracle.called(time, client, call);
    }
    void replied(Duration time, const simulation::Reply& reply) override {
        oracle.replied(time, reply);
    }
    void logged(Duration time, std::string_view line) override { oracle.logged(time, line); }
    void second(Duration time, simulation::SimulatedMac& mac) override { oracle.second(time, mac); }
    void started(Duration time) override { oracle.started(time); }
    void listening(Duration time) override { oracle.listening(time); }
    void exitBegan(Duration time) override { oracle.exitBegan(time); }
    void guarded(Duration time) override { oracle.guarded(time); }
    void signalled(Duration time, daemon::Signal signal) override {
        oracle.signalled(time, signal);
    }
    void ended(const simulation::ProcessEnd& end) override { oracle.ended(end); }
    void connected(Duration time, std::string_view client, bool isUntrusted) override {
        oracle.connected(time, client, isUntrusted);
    }
    void disconnected(Duration time, std::string_view client) override {
        oracle.disconnected(time, client);
    }
    void clockJumped(Duration time, double seconds) override { oracle.clockJumped(time, seconds); }

    simulation::Oracle oracle;
};

}  // namespace airflow::tests
