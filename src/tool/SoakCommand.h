// airflow soak: does the promise hold, whatever happens?
#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>

namespace CLI {
class App;
}

namespace airflow::tool {

struct Streams;

struct SoakOptions {
    std::uint64_t first = 1;
    std::uint64_t last = 1000;        ///< with it
    std::optional<double> minutes;    ///< stop after so long
    unsigned jobs = 1;                ///< threads
    std::string failures = ".";       ///< the folder for scenarios that failed
    bool requiresEverything = false;  ///< fail when one of `sometimes` never happened
    bool printsHashes = false;        ///< one line for each seed
};

/// Judges one random run for each seed. Returns the exit status: 0, or 1 for a violation, which is
/// told with its seed and kept as the smallest scenario that shows it.
[[nodiscard]] int soak(const SoakOptions& options, std::ostream& out, std::ostream& err);

void addSoak(CLI::App& app, Streams streams, int& status);

}  // namespace airflow::tool
