// FanDecision: the evaluator's verdict for one fan.
#pragma once

#include <variant>

namespace airflow::evaluation {

/// Hold the fan in forced mode at this speed.
struct Target {
    double rpm = 0;

    bool operator==(const Target&) const = default;
};

/// Give the fan back to the firmware.
struct ReleaseToAuto {
    bool operator==(const ReleaseToAuto&) const = default;
};

/// Hold the fan in forced mode, stopped.
struct IdleStopped {
    bool operator==(const IdleStopped&) const = default;
};

using FanDecision = std::variant<Target, ReleaseToAuto, IdleStopped>;

}  // namespace airflow::evaluation
