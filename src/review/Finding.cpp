#include "review/Finding.h"

#include <array>
#include <cstddef>

namespace airflow::review {

namespace {

using enum Severity;

constexpr std::array descriptions{
    SubjectDescription{Subject::unreadableFile, "unreadable-file", error},
    SubjectDescription{Subject::malformedJSON, "malformed-json", error},
    SubjectDescription{Subject::notAPlan, "not-a-plan", error},
    SubjectDescription{Subject::unknownKey, "unknown-key", warning},
    SubjectDescription{Subject::repeatedKey, "repeated-key", warning},
    SubjectDescription{Subject::nothingManaged, "nothing-managed", warning},
    SubjectDescription{Subject::repeatedFan, "repeated-fan", warning},
    SubjectDescription{Subject::fanOutOfRange, "fan-out-of-range", warning},
    SubjectDescription{Subject::percentOutOfRange, "percent-out-of-range", warning},
    SubjectDescription{Subject::fixedZero, "fixed-zero", warning},
    SubjectDescription{Subject::fixedRPMNotPositive, "fixed-rpm-not-positive", warning},
    SubjectDescription{Subject::curveWithoutPoints, "curve-without-points", warning},
    SubjectDescription{Subject::curveFalls, "curve-falls", warning},
    SubjectDescription{Subject::curveRepeatedTemperature, "curve-repeated-temperature", warning},
    SubjectDescription{Subject::curveBeyondCeiling, "curve-beyond-ceiling", warning},
    SubjectDescription{Subject::curveNeverRestarts, "curve-never-restarts", warning},
    SubjectDescription{Subject::curveNotFull, "curve-not-full", warning},
    SubjectDescription{Subject::ruleBeyondCeiling, "rule-beyond-ceiling", warning},
    SubjectDescription{Subject::ruleReleaseTooHigh, "rule-release-too-high", warning},
    SubjectDescription{Subject::ruleDwellTooLong, "rule-dwell-too-long", warning},
    SubjectDescription{Subject::ruleNegativeDwell, "rule-negative-dwell", warning},
    SubjectDescription{Subject::ruleStopsFans, "rule-stops-fans", warning},
    SubjectDescription{Subject::ruleForUnlistedFan, "rule-for-unlisted-fan", warning},
    SubjectDescription{Subject::ruleHidden, "rule-hidden", warning},
    SubjectDescription{Subject::repeatedRuleID, "repeated-rule-id", warning},
    SubjectDescription{Subject::smoothingNotPositive, "smoothing-not-positive", warning},
    SubjectDescription{Subject::smoothingAboveOne, "smoothing-above-one", warning},
    SubjectDescription{Subject::rateLimitNotPositive, "rate-limit-not-positive", warning},
    SubjectDescription{Subject::unknownSensorSource, "unknown-sensor-source", warning},
    SubjectDescription{Subject::fanNotOnMachine, "fan-not-on-machine", warning},
    SubjectDescription{Subject::sensorNotOnMachine, "sensor-not-on-machine", warning},
    SubjectDescription{Subject::fixedRPMOutOfRange, "fixed-rpm-out-of-range", warning},
    SubjectDescription{Subject::curveUnsorted, "curve-unsorted", note},
    SubjectDescription{Subject::ruleDisabled, "rule-disabled", note},
    SubjectDescription{Subject::unreadValue, "unread-value", note},
};

constexpr bool areInOrder() {
    for (std::size_t i = 0; i < descriptions.size(); ++i) {
        if (static_cast<std::size_t>(descriptions.at(i).subject) != i) return false;
    }
    return descriptions.back().subject == Subject::unreadValue;
}
static_assert(areInOrder());

const SubjectDescription& describe(Subject subject) {
    return descriptions.at(static_cast<std::size_t>(subject));
}

}  // namespace

std::string_view nameOf(Severity severity) {
    switch (severity) {
        case note: return "note";
        case warning: return "warning";
        case error: return "error";
    }
    return "";
}

std::span<const SubjectDescription> subjects() {
    return descriptions;
}

std::string_view Finding::identifier() const {
    return describe(subject).identifier;
}

Severity Finding::severity() const {
    return describe(subject).severity;
}

void Finding::encode(json::Writer& writer) const {
    writer.object([&] {
        writer.member("severity", nameOf(severity()));
        writer.member("identifier", identifier());
        writer.member("pointer", pointer);
        if (position) {
            writer.member("line", static_cast<std::int64_t>(position->line));
            writer.member("column", static_cast<std::int64_t>(position->column));
        }
        writer.member("reason", reason);
        writer.member("advice", advice);
    });
}

}  // namespace airflow::review
