// PreviewController: a controller without hardware, so that a user interface can be driven and
// shown without the privileged daemon. Accepts everything and checks nothing.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "concurrency/Actor.h"
#include "concurrency/Runtime.h"
#include "control/FanControlling.h"
#include "numbers/Units.h"
#include "sensors/LogSink.h"

namespace airflow::control {

/// Publishes what the real controller would. Shows fans that follow a curve as `manual`, since it
/// evaluates none.
class PreviewController final : public concurrency::Actor, public FanControlling {
public:
    static constexpr concurrency::Duration defaultAcquireDelay = std::chrono::milliseconds(400);

    /// Each command is written to `output`, a line each. `simulatedAcquireDelay` is how long it
    /// pretends to take fans over. What it is given outlives it.
    PreviewController(concurrency::Runtime& runtime, sensors::LogSink& output,
                      concurrency::Duration simulatedAcquireDelay = defaultAcquireDelay);

    concurrency::Task<ControlResult> setManual(numbers::FanIndex fan,
                                               numbers::WholeRPM rpm) override;
    concurrency::Task<ControlResult> setPercent(numbers::FanIndex fan,
                                                numbers::Percent percent) override;
    concurrency::Task<ControlResult> fullBlast() override;
    concurrency::Task<ControlResult> applyPlan(plan::FanControlPlan plan) override;
    concurrency::Task<ControlResult> automatic() override;
    concurrency::Task<std::optional<std::string>> restoreAuto() override;
    concurrency::Task<void> heartbeat() override;
    [[nodiscard]] concurrency::Stream<ControlState>& stateStream() override { return states; }

    /// The last overall mode commanded.
    [[nodiscard]] ControlMode mode() const { return overallMode; }
    /// Every command received, in order.
    [[nodiscard]] const std::vector<std::string>& log() const { return commands; }
    [[nodiscard]] const ControlState& currentState() const { return state; }

private:
    void record(std::string command);
    void publish(ControlState next);
    concurrency::Task<void> acquire();
    void hold(ControlState next, bool isHolding);
    void release();

    concurrency::Runtime& runtime;
    sensors::LogSink& output;
    ControlMode overallMode = ControlMode::automatic;
    std::vector<std::string> commands;
    concurrency::Stream<ControlState> states;
    ControlState state = ControlState::idle();
    concurrency::Duration simulatedAcquireDelay;
};

}  // namespace airflow::control
