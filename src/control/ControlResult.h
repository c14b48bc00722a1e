// ControlResult: what became of a command; the value that a client is told.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

namespace airflow::control {

class [[nodiscard]] ControlResult {
public:
    enum class Case : std::uint8_t {
        rejected,
        failed,
        applied,
        acquiring,
        timedOut,
        reclaimed,
        notPrivileged,
        noHelper,
    };

    /// Refused; `code` says why: the SMC's own result, or 255 when a fan could not be taken over.
    static ControlResult rejected(std::uint8_t code) { return {Case::rejected, code, {}}; }
    /// Failed, for a reason that people can read.
    static ControlResult failed(std::string reason) { return {Case::failed, 0, std::move(reason)}; }
    static ControlResult applied() { return Case::applied; }
    /// Fans are being taken over. A client's own; the daemon never returns it.
    static ControlResult acquiring() { return Case::acquiring; }
    /// Taking a fan over did not finish in time.
    static ControlResult timedOut() { return Case::timedOut; }
    /// The system took control back. A client's own; the daemon never returns it.
    static ControlResult reclaimed() { return Case::reclaimed; }
    /// The process may not control fans.
    static ControlResult notPrivileged() { return Case::notPrivileged; }
    /// No daemon can be reached. A client's own; the daemon never returns it.
    static ControlResult noHelper() { return Case::noHelper; }

    bool operator==(const ControlResult&) const = default;

    [[nodiscard]] Case outcome() const { return kind; }
    [[nodiscard]] bool isApplied() const { return kind == Case::applied; }
    /// Of `rejected`; 0 for every other outcome.
    [[nodiscard]] std::uint8_t rejectionCode() const { return code; }
    /// Of `failed`; empty for every other outcome.
    [[nodiscard]] const std::string& failureReason() const { return reason; }

    /// The number that crosses the process boundary, 0 to 7. Code and reason do not cross it.
    [[nodiscard]] std::int64_t xpcCode() const;
    /// What a client makes of a number: `rejected` comes with code 0, and every number that is not
    /// 0 to 6, the 7 of `failed` too, is a failure that names the number.
    static ControlResult fromXPCCode(std::int64_t code);

    /// For logs and error texts: `timedOut`, `rejected(code: 134)`, `failed("no fan 3")`. In the
    /// quoted reason, quotes, backslashes and control characters are escaped.
    [[nodiscard]] std::string description() const;

private:
    ControlResult(Case kind, std::uint8_t code = 0, std::string reason = {})
        : kind(kind), code(code), reason(std::move(reason)) {}

    Case kind;
    std::uint8_t code;
    std::string reason;
};

}  // namespace airflow::control
