// airflow replay: what would the daemon have done with this plan at these temperatures?
#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>

namespace airflow::tool {

enum class ReplayFormat : std::uint8_t { table, jsonLines };

struct ReplayOptions {
    std::string plan;   ///< "-" is standard input, as is
    std::string trace;  ///< this one, but not both
    ReplayFormat format = ReplayFormat::table;
    bool isLenient = false;  ///< goes on where the trace cannot have happened so
    /// Draws the replay, this wide, instead of listing it.
    std::optional<std::size_t> plotColumns{};
    bool showsProgress = false;  ///< on `err`, which is a terminal; of a trace that is a file
};

/// Writes a line for each line of the trace, and a summary. Returns the exit status: 0, or 1 with a
/// line on `err` when the plan or a line of the trace is bad; what came before the bad line, and
/// its summary, has been written then.
[[nodiscard]] int replay(const ReplayOptions& options, std::istream& in, std::ostream& out,
                         std::ostream& err);

}  // namespace airflow::tool
