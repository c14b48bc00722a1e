// ControlError: why the last command failed, or why fans were released unasked, as a value. The
// text that clients read is made from it, and from nothing else.
#pragma once

#include <cstdint>
#include <expected>
#include <string>
#include <variant>
#include <vector>

#include "control/ControlResult.h"
#include "smc/SMCError.h"
#include "smc/SMCWriting.h"

namespace airflow::control {

/// A write of 0 that the SMC did not take.
struct Refusal {
    std::string key;
    /// The SMC's result, which is not 0, or why the write did not reach it.
    smc::SMCWriting::WriteResult answer;

    bool operator==(const Refusal&) const = default;
};

/// A release left fans forced, or force-test raised. The refused fans are tried again.
struct NotRestored {
    std::vector<Refusal> refusals;  ///< one or more, in the order of the writes

    bool operator==(const NotRestored&) const = default;
};

/// The hottest temperature reached the ceiling; all fans were released.
struct CeilingExceeded {
    double celsius = 0;  ///< a number

    bool operator==(const CeilingExceeded&) const = default;
};

/// A snapshot came without temperatures. From `limit` in a row on, all fans were released.
struct TemperaturesMissing {
    std::int64_t snapshots = 0;  ///< in a row
    std::int64_t limit = 0;

    bool operator==(const TemperaturesMissing&) const = default;
    [[nodiscard]] bool isReleased() const { return snapshots >= limit; }
};

/// No client was heard for more than 15 s; all fans were released.
struct HeartbeatLost {
    bool operator==(const HeartbeatLost&) const = default;
};

/// The hold loop's checks were overdue, and the guard released all fans.
struct ChecksOverdue {
    bool operator==(const ChecksOverdue&) const = default;
};

/// A fan was forced that nobody held, and the guard released all fans.
struct FanUnattended {
    bool operator==(const FanUnattended&) const = default;
};

/// The firmware took fans back from forced mode.
struct Reclaimed {
    std::vector<std::int64_t> fans;  ///< ascending

    bool operator==(const Reclaimed&) const = default;
};

/// A plan is in force, and not every fan of it could be taken over.
struct PlanIncomplete {
    ControlResult result;  ///< the command's

    bool operator==(const PlanIncomplete&) const = default;
};

using ControlError = std::variant<NotRestored, CeilingExceeded, TemperaturesMissing, HeartbeatLost,
                                  ChecksOverdue, FanUnattended, Reclaimed, PlanIncomplete>;

/// The text for people: "thermal ceiling 97°C exceeded — released to Auto".
[[nodiscard]] std::string description(const ControlError& error);

/// Whether all fans were released because of it, without a command.
[[nodiscard]] bool isSafetyRelease(const ControlError& error);

}  // namespace airflow::control
