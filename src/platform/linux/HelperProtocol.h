// HelperProtocol: the messages of the local socket and their answers, one JSON text a line. Pure:
// what becomes of a message is up to whoever reads it. docs/protocol.md describes it for clients.
#pragma once

#include <cstdint>
#include <expected>
#include <optional>
#include <string>
#include <string_view>

#include "daemon/HelperMethod.h"

namespace airflow::platform {

using daemon::HelperMethod;

/// A message that can be carried out. Of the arguments only those that the method has are set.
struct HelperCall {
    std::optional<std::int64_t> id;  ///< absent in heartbeats only, which have no answer
    HelperMethod method = HelperMethod::heartbeat;
    std::int64_t fan = 0;
    std::int64_t rpm = 0;
    double percent = 0;
    std::string plan;  ///< the bytes of the JSON value that is to be a plan, as they were sent

    bool operator==(const HelperCall&) const = default;
};

/// Why a line is no message.
struct HelperRefusal {
    std::optional<std::int64_t> id;  ///< where the line has one that can be used
    std::string reason;              ///< names the place

    bool operator==(const HelperRefusal&) const = default;
};

namespace HelperProtocol {

/// Bytes of a line, without its newline.
inline constexpr std::size_t lineLimit = 1024 * 1024;

/// `line` is any bytes, without the newline that ended them.
[[nodiscard]] std::expected<HelperCall, HelperRefusal> parse(std::string_view line);

/// Answers, each with its newline.
[[nodiscard]] std::string code(std::int64_t id, std::int64_t code);
[[nodiscard]] std::string acknowledgement(std::int64_t id);
[[nodiscard]] std::string version(std::int64_t id, std::string_view version);
/// `document` is the state's JSON, or empty for a state that has none: the answer is then an error.
[[nodiscard]] std::string state(std::int64_t id, std::string_view document);
[[nodiscard]] std::string error(const HelperRefusal& refusal);

}  // namespace HelperProtocol

}  // namespace airflow::platform
