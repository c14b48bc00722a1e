// airflow compare: which of these plans cools better, and which is quieter?
#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

namespace airflow::tool {

struct CompareOptions {
    std::vector<std::string> plans;
    /// Each plan is replayed over this trace, whose temperatures do not follow the fans;
    std::optional<std::string> trace{};
    /// or takes the place of every plan that is applied in this scenario.
    std::optional<std::string> scenario{};
    bool isJSON = false;
    bool isPlotted = false;
    std::size_t columns = 80;  ///< of a plot
};

/// Writes the figures of all plans side by side. Returns the exit status: 0, or 1 with a line on
/// `err` when a plan, the trace or the scenario cannot be played; then nothing is written.
[[nodiscard]] int compare(const CompareOptions& options, std::ostream& out, std::ostream& err);

}  // namespace airflow::tool
