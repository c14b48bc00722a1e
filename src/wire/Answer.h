// Answer: what comes back on the local socket, one JSON text a line. Both ends use it.
#pragma once

#include <cstdint>
#include <expected>
#include <optional>
#include <string>
#include <string_view>

#include "control/ControlState.h"
#include "daemon/Command.h"
#include "wire/Request.h"

namespace airflow::wire {

/// The answer to a request, with its newline. A state that has no JSON form is answered with an
/// error.
[[nodiscard]] std::string answerLine(std::int64_t id, const daemon::Reply& reply);
/// The answer to what is no request.
[[nodiscard]] std::string errorLine(const Refusal& refusal);

/// What an answer carries besides its id; an acknowledgement carries nothing.
struct AnswerBody {
    std::optional<std::int64_t> code;
    std::optional<std::string> version;
    std::optional<control::ControlState> state;
    std::optional<std::string> error;

    bool operator==(const AnswerBody&) const = default;

    static AnswerBody decode(const json::Decoder& decoder);
};

struct Answer {
    /// Absent when the daemon could not tell which request it answers.
    std::optional<std::int64_t> id;
    /// Or why it is not what an answer carries.
    std::expected<AnswerBody, std::string> body;
};

/// Or why the line is no answer to anything.
[[nodiscard]] std::expected<Answer, std::string> parseAnswer(std::string_view line);

}  // namespace airflow::wire
