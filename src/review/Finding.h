// Finding: something about a plan document that its author should know.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "json/DecodingError.h"
#include "json/Writer.h"

namespace airflow::review {

enum class Severity : std::uint8_t {
    note,     ///< harmless, but perhaps not known
    warning,  ///< the daemon takes the plan, but it will not do what the author seems to want
    error     ///< the daemon refuses the document
};

/// "note", "warning" or "error".
[[nodiscard]] std::string_view nameOf(Severity severity);

/// Everything that can be found.
enum class Subject : std::uint8_t {
    unreadableFile,
    malformedJSON,
    notAPlan,
    unknownKey,
    repeatedKey,
    nothingManaged,
    repeatedFan,
    fanOutOfRange,
    percentOutOfRange,
    fixedZero,
    fixedRPMNotPositive,
    curveWithoutPoints,
    curveFalls,
    curveRepeatedTemperature,
    curveBeyondCeiling,
    curveNeverRestarts,
    curveNotFull,
    ruleBeyondCeiling,
    ruleReleaseTooHigh,
    ruleDwellTooLong,
    ruleNegativeDwell,
    ruleStopsFans,
    ruleForUnlistedFan,
    ruleHidden,
    repeatedRuleID,
    smoothingNotPositive,
    smoothingAboveOne,
    rateLimitNotPositive,
    unknownSensorSource,
    fanNotOnMachine,
    sensorNotOnMachine,
    fixedRPMOutOfRange,
    curveUnsorted,
    ruleDisabled,
    unreadValue,
};

struct SubjectDescription {
    Subject subject;
    std::string_view identifier;  ///< in kebab-case; docs/plan-warnings.md has a section for each
    Severity severity;
};

/// All of them, in the order of the enumeration.
[[nodiscard]] std::span<const SubjectDescription> subjects();

struct Finding {
    Subject subject = Subject::unreadableFile;
    std::string pointer{};  ///< JSON pointer (RFC 6901) to a value of the document; "" is the root
    std::optional<json::Position> position{};  ///< absent where no text was parsed
    std::string reason{};                      ///< whole sentences, one line
    std::string advice{};                      ///< what to write instead; the same

    bool operator==(const Finding&) const = default;

    [[nodiscard]] std::string_view identifier() const;
    [[nodiscard]] Severity severity() const;

    void encode(json::Writer& writer) const;
};

}  // namespace airflow::review
