// airflow simulate: what does the controller do in this situation?
#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>

#include "tool/replay/ExplainCommand.h"

namespace airflow::tool {

/// `samples`: what the daemon read, as a trace.
enum class SimulateFormat : std::uint8_t { table, jsonLines, samples };

struct SimulateOptions {
    std::string scenario;  ///< path
    SimulateFormat format = SimulateFormat::table;
    std::optional<double> duration;  ///< seconds, instead of the scenario's own
    std::uint64_t seed = 0;
    std::optional<std::string> trace{};  ///< path; temperatures, instead of the scenario's own
    bool reads = false;                  ///< list reads too, in JSON Lines
    /// Explains this fan at this moment, and shows nothing else.
    std::optional<FanAtTime> why{};
    /// Draws the run, this wide, instead of listing it; with the table's summary.
    std::optional<std::size_t> plotColumns{};
    bool showsProgress = false;  ///< on `err`, which is a terminal
};

/// Plays the scenario. Returns the exit status: 0, or 1 with a line on `err` for a scenario or
/// trace that cannot be read or played.
[[nodiscard]] int simulate(const SimulateOptions& options, std::ostream& out, std::ostream& err);

}  // namespace airflow::tool
