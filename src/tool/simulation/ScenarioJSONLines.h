// ScenarioJSONLines: what happens in a scenario, one JSON object a line, for machines and tests.
#pragma once

#include <ostream>

#include "json/Writer.h"
#include "simulation/scenario/ScenarioObserver.h"

namespace airflow::tool {

class ScenarioJSONLines : public simulation::ScenarioObserver {
public:
    /// `showsReads`: list what was read from the SMC, too.
    ScenarioJSONLines(std::ostream& out, bool showsReads) : out(out), showsReads(showsReads) {}

    void access(const simulation::SMCAccess& access) override;
    void modeChanged(concurrency::Duration, std::size_t, simulation::FanMode) override {}
    void published(concurrency::Duration time, const control::ControlState& state) override;
    void called(concurrency::Duration, std::string_view, const simulation::Call&) override {}
    void replied(concurrency::Duration time, const simulation::Reply& reply) override;
    void logged(concurrency::Duration time, std::string_view line) override;
    void second(concurrency::Duration, simulation::SimulatedMac&) override {}
    void started(concurrency::Duration time) override;
    void signalled(concurrency::Duration time, daemon::Signal signal) override;
    void ended(const simulation::ProcessEnd& end) override;
    void metBug(concurrency::Duration, std::string_view) override {}  // its line and the end say so
    void connected(concurrency::Duration time, std::string_view client, bool isUntrusted) override;
    void disconnected(concurrency::Duration time, std::string_view client) override;

private:
    template <typename Members>
    void line(concurrency::Duration time, Members members);

    std::ostream& out;
    bool showsReads;
    json::Writer writer;
};

}  // namespace airflow::tool
