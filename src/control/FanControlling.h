// FanControlling: what every controller of fans can be asked for.
#pragma once

#include <optional>
#include <string>

#include "concurrency/Stream.h"
#include "concurrency/Task.h"
#include "control/ControlResult.h"
#include "control/ControlState.h"
#include "numbers/Units.h"
#include "plan/FanControlPlan.h"

namespace airflow::control {

/// Serialised: operations run one at a time on the controller's executor, whoever calls, and others
/// run while one of them waits. What became of a command is its result; why is in the state.
class FanControlling {
public:
    FanControlling() = default;
    FanControlling(const FanControlling&) = delete;
    FanControlling& operator=(const FanControlling&) = delete;
    virtual ~FanControlling() = default;

    /// Holds one fan at a speed. Neither index nor speed is checked here.
    [[nodiscard]] virtual concurrency::Task<ControlResult> setManual(numbers::FanIndex fan,
                                                                     numbers::WholeRPM rpm) = 0;
    /// Holds one fan at a share of its range.
    [[nodiscard]] virtual concurrency::Task<ControlResult> setPercent(numbers::FanIndex fan,
                                                                      numbers::Percent percent) = 0;
    /// Holds every fan at 100 %.
    [[nodiscard]] virtual concurrency::Task<ControlResult> fullBlast() = 0;
    [[nodiscard]] virtual concurrency::Task<ControlResult> applyPlan(plan::FanControlPlan plan) = 0;
    /// Gives every fan back and forgets the plan.
    [[nodiscard]] virtual concurrency::Task<ControlResult> automatic() = 0;
    /// The same for whoever ends the control rather than commands it. Returns why a fan could not
    /// be given back, or nothing.
    [[nodiscard]] virtual concurrency::Task<std::optional<std::string>> restoreAuto() = 0;
    /// Tells that the client is alive.
    [[nodiscard]] virtual concurrency::Task<void> heartbeat() = 0;

    /// Every state that is published, in order, from the first on; for one consumer, which may be
    /// as slow as it likes. Who wants the latest asks the controller.
    [[nodiscard]] virtual concurrency::Stream<ControlState>& stateStream() = 0;
};

}  // namespace airflow::control
