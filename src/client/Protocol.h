// Protocol: requests to the daemon and its answers, as lines of JSON.
#pragma once

#include <cstddef>
#include <cstdint>
#include <expected>
#include <optional>
#include <string>
#include <string_view>

#include "control/ControlState.h"
#include "daemon/HelperMethod.h"

namespace airflow::client {

/// No line is longer, its newline included.
inline constexpr std::size_t longestLine = 1024 * 1024;

using Method = daemon::HelperMethod;

/// An operation and its arguments. What the method does not take is not sent.
struct Request {
    Method method = Method::readState;
    std::int64_t fan = 0;
    std::int64_t rpm = 0;
    double percent = 0;
    std::string plan{};  ///< a JSON text, of any value
};

/// The line, with its newline; or why the request has none: a plan that is not JSON, a number that
/// is not finite, more than a line may hold.
[[nodiscard]] std::expected<std::string, std::string> requestLine(std::int64_t id,
                                                                  const Request& request);

/// What an answer carries besides its id; an acknowledgement carries nothing.
struct AnswerBody {
    std::optional<std::int64_t> code;
    std::optional<std::string> version;
    std::optional<control::ControlState> state;
    std::optional<std::string> error;

    bool operator==(const AnswerBody&) const = default;

    static AnswerBody decode(const json::Decoder& decoder);
};

struct AnswerLine {
    /// Absent when the daemon could not tell which request it answers.
    std::optional<std::int64_t> id;
    /// Or why it is not what an answer carries.
    std::expected<AnswerBody, std::string> body;
};

/// Or why the line is no answer to anything.
[[nodiscard]] std::expected<AnswerLine, std::string> decodeAnswer(std::string_view line);

}  // namespace airflow::client
