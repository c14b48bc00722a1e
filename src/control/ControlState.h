// ControlState: what a controller publishes, and a client reads as JSON.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "control/ControlError.h"
#include "control/ControlMode.h"
#include "json/Decoder.h"
#include "json/Writer.h"

namespace airflow::control {

/// Maps are by fan index, the SMC's zero-based fan number.
struct ControlState {
    std::map<std::int64_t, ControlMode> perFanMode;  ///< of every fan that is tracked
    std::map<std::int64_t, std::int64_t> targets;    ///< RPM of every held fan
    bool isHolding = false;                          ///< fans are held under a plan or command
    /// Why the last command failed, or why the fans were released unasked.
    std::optional<std::string> lastError;
    /// Fans that stand still on purpose, ascending. Absent, rather than empty, without any.
    std::optional<std::vector<std::int64_t>> stoppedFans;
    /// What `lastError` was made from. It does not travel: a state that was read has none.
    std::optional<ControlError> cause{};

    /// Compares what is published; `cause` is only where its error comes from.
    bool operator==(const ControlState& other) const;

    /// No fan tracked, nothing held, no error: where every controller starts.
    [[nodiscard]] static const ControlState& idle();

    static ControlState decode(const json::Decoder& decoder);
    void encode(json::Writer& writer) const;
};

}  // namespace airflow::control
