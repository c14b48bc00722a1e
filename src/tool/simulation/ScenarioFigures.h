// ScenarioFigures: what a scenario came to, in the figures by which plans are compared.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "simulation/scenario/ScenarioObserver.h"
#include "tool/common/RunFigures.h"
#include "tool/simulation/ScenarioReleases.h"

namespace airflow::tool {

/// The machine as it looks at a moment: speeds are those that the fans really have.
[[nodiscard]] RunFigures::Sample sampleOf(concurrency::Duration time,
                                          simulation::SimulatedMac& mac);

class ScenarioFigures final : public simulation::ScenarioObserver {
public:
    /// Told of every sample, if anybody wants to be.
    std::function<void(const RunFigures::Sample&)> sampled;
    /// Told of every fan that changes hands, in words.
    std::function<void(double seconds, const std::string& event)> noted;

    void access(const simulation::SMCAccess& access) override { releases.access(access); }
    void modeChanged(concurrency::Duration time, std::size_t fan,
                     simulation::FanMode mode) override;
    void published(concurrency::Duration time, const control::ControlState& state) override {
        releases.published(time, state);
    }
    void called(concurrency::Duration time, std::string_view,
                const simulation::Call& call) override {
        releases.called(time, call.method);
    }
    void replied(concurrency::Duration time, const simulation::Reply& reply) override {
        releases.replied(time, reply.method);
    }
    void started(concurrency::Duration time) override { releases.started(time); }
    void signalled(concurrency::Duration time, daemon::Signal signal) override;
    void disconnected(concurrency::Duration time, std::string_view) override;
    void second(concurrency::Duration time, simulation::SimulatedMac& mac) override;

    /// Called once, after the run.
    [[nodiscard]] RunFigures finish();

private:
    bool hasSample = false;
    ScenarioReleases releases;
    RunFigures figures;
};

}  // namespace airflow::tool
