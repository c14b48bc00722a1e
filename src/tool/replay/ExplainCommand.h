// airflow explain: why is a fan at this speed, and what would change it?
#pragma once

#include <cstdint>
#include <expected>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tool/replay/Situation.h"

namespace airflow::tool {

/// Which fan at which moment, as people write it: "0@37.5".
struct FanAtTime {
    std::int64_t fan = 0;  ///< 0 to 9
    double seconds = 0;

    /// Or what is wrong with the text.
    [[nodiscard]] static std::expected<FanAtTime, std::string> parse(std::string_view text);
};

enum class ExplainFormat : std::uint8_t { text, json };

/// Explains one fan of a situation, or each that has a decision. Returns 1, with a line on `err`,
/// when there is none to explain.
[[nodiscard]] int explainSituation(const Situation& situation, std::optional<std::int64_t> fan,
                                   ExplainFormat format, std::ostream& out, std::ostream& err);

struct ExplainOptions {
    std::string plan;                         ///< "-" is standard input
    std::optional<std::string> trace{};       ///< and the moment in it
    double seconds = 0;                       ///< of the trace's own time
    bool isLenient = false;                   ///< goes on where the trace cannot have happened so
    std::vector<std::string> temperatures{};  ///< instead: "ID=°C", of `machine`'s fans
    std::string machine = "laptop";
    std::optional<std::int64_t> fan{};  ///< nothing: each
    ExplainFormat format = ExplainFormat::text;
};

/// Explains what the plan decides at the temperatures, freshly put in force, or at the last line of
/// the trace that is not after the moment. Returns the exit status.
[[nodiscard]] int explain(const ExplainOptions& options, std::istream& in, std::ostream& out,
                          std::ostream& err);

}  // namespace airflow::tool
