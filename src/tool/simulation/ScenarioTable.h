// ScenarioTable: what happens in a scenario as a timeline that a person can follow, and a summary.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "simulation/scenario/ScenarioObserver.h"
#include "tool/common/RunPlot.h"
#include "tool/simulation/ScenarioReleases.h"

namespace airflow::tool {

class ScenarioTable : public simulation::ScenarioObserver {
public:
    /// Fans and temperatures are shown every `interval` seconds, 1 at least. With `plotColumns`,
    /// all is drawn, this wide, instead of being listed.
    ScenarioTable(std::ostream& out, std::int64_t interval,
                  std::optional<std::size_t> plotColumns = {})
        : out(out), interval(interval), plotColumns(plotColumns) {}

    void access(const simulation::SMCAccess& access) override;
    void modeChanged(concurrency::Duration time, std::size_t fan,
                     simulation::FanMode mode) override;
    void published(concurrency::Duration time, const control::ControlState& state) override;
    void called(concurrency::Duration time, std::string_view client,
                const simulation::Call& call) override;
    void replied(concurrency::Duration time, const simulation::Reply& reply) override;
    void logged(concurrency::Duration time, std::string_view line) override;
    void second(concurrency::Duration time, simulation::SimulatedMac& mac) override;
    void started(concurrency::Duration time) override;
    void signalled(concurrency::Duration time, daemon::Signal signal) override;
    void ended(const simulation::ProcessEnd& end) override;
    void metBug(concurrency::Duration, std::string_view) override {}  // its line and the end say so
    void connected(concurrency::Duration time, std::string_view client, bool isUntrusted) override;
    void disconnected(concurrency::Duration time, std::string_view client) override;

    /// The end of the timeline, and the summary.
    void finish(concurrency::Duration time);

private:
    struct FanRecord {
        bool isForced = false;
        double speedSum = 0;  ///< of the samples
    };

    void line(concurrency::Duration time, const std::string& what);
    void setForced(std::size_t fan, bool isForced, concurrency::Duration time);
    void noteRefusal(const simulation::SMCAccess& access);

    std::ostream& out;
    std::int64_t interval;
    std::optional<std::size_t> plotColumns;
    RunPlot plot;
    control::ControlState last = control::ControlState::idle();
    std::map<std::size_t, FanRecord> fans;
    std::string lastRefusal;                            ///< not to be told again and again
    std::optional<concurrency::Duration> controlSince;  ///< while any fan is forced
    concurrency::Duration controlled{};
    std::optional<double> hottest;
    std::int64_t samples = 0;
    std::int64_t writes = 0;
    std::int64_t refusedWrites = 0;
    ScenarioReleases releases;
};

}  // namespace airflow::tool
