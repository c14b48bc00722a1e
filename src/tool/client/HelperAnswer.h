// HelperAnswer: answers of the daemon, for people and for programs.
#pragma once

#include <optional>
#include <string>

#include "client/HelperClient.h"
#include "control/ControlState.h"

namespace airflow::tool {

/// What a call came to, and what was learned around it.
struct CallOutcome {
    daemon::Method method = daemon::Method::readState;
    client::Answer answer;
    /// Of the state behind the call, if it was read.
    std::optional<control::ControlState> after{};
    /// What the client itself knows to be wrong with the request.
    std::string ownReason{};
};

/// The case's name: "applied", "timedOut", "rejected".
[[nodiscard]] std::string nameOf(const control::ControlResult& result);
/// The mode's name: "automatic", "curve".
[[nodiscard]] std::string nameOf(control::ControlMode mode);

/// Where a fan is held: "3000 RPM", or "stopped" on purpose; empty when it is not held.
[[nodiscard]] std::string targetText(const control::ControlState& state, std::int64_t fan);

/// A state in lines: a table of the fans, whether they are held, the last error.
[[nodiscard]] std::string stateText(const control::ControlState& state);
/// The answer in lines: a state, a version, "applied", or a result and why it is not `applied`.
[[nodiscard]] std::string answerText(const CallOutcome& outcome);
/// The outcome as one line of JSON: method, result; version, state, reason, lastError where there
/// are any; endsHold when the end of the connection would give back what is held.
[[nodiscard]] std::string answerJSON(const CallOutcome& outcome);

}  // namespace airflow::tool
