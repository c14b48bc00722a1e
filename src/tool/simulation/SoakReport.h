// SoakReport: how the result of a soak is told.
#pragma once

#include <cstdint>
#include <iosfwd>

#include "simulation/verification/SoakResult.h"

namespace airflow::tool {

enum class SoakFormat : std::uint8_t { text, json };

struct SoakReportOptions {
    SoakFormat format = SoakFormat::text;
    bool requiresEverything = false;  ///< fail when one of `sometimes` never happened
};

/// Writes the result on `out`: in JSON one document, and as text how often each situation came up,
/// if all have to. Returns the exit status: 1 when there is a violation, or something is missing
/// that is required, and 0 otherwise.
[[nodiscard]] int report(const simulation::SoakResult& result, const SoakReportOptions& options,
                         std::ostream& out, std::ostream& err);

}  // namespace airflow::tool
