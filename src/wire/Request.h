// Request: a command on the local socket, one JSON text a line. Both ends use it; what becomes of a
// request is up to whoever reads it. docs/protocol.md describes the lines.
#pragma once

#include <cstddef>
#include <cstdint>
#include <expected>
#include <optional>
#include <string>
#include <string_view>

#include "daemon/Command.h"

namespace airflow::wire {

/// Bytes of a line, without its newline.
inline constexpr std::size_t lineLimit = 1024 * 1024;

struct Request {
    std::optional<std::int64_t> id;  ///< absent in heartbeats only, which have no answer
    daemon::Command command;

    bool operator==(const Request&) const = default;
};

/// Why a line is no request.
struct Refusal {
    std::optional<std::int64_t> id;  ///< where the line has one that can be used
    std::string reason;              ///< names the place

    bool operator==(const Refusal&) const = default;
};

/// `line` is any bytes, without the newline that ended them.
[[nodiscard]] std::expected<Request, Refusal> parseRequest(std::string_view line);

/// The line, with its newline; or why the command has none: a number that is not finite, a plan
/// that is not UTF-8, more than a line may hold.
[[nodiscard]] std::expected<std::string, std::string> requestLine(std::int64_t id,
                                                                  const daemon::Command& command);

}  // namespace airflow::wire
