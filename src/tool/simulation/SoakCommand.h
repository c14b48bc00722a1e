// airflow soak: does the promise hold, whatever happens?
#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>

#include "simulation/verification/Soak.h"
#include "tool/simulation/SoakReport.h"

namespace CLI {
class App;
}

namespace airflow::tool {

struct Streams;

struct SoakOptions {
    simulation::SeedRange seeds{.first = 1, .last = 1000};
    std::optional<double> minutes;  ///< stop after so long
    unsigned jobs = 1;              ///< threads
    std::string failures = ".";     ///< the folder for scenarios that failed
    bool printsHashes = false;      ///< one line for each seed
    bool showsProgress = false;     ///< on `err`, which is a terminal
    SoakReportOptions report;
    simulation::Judge judge = simulation::judge;
};

/// Judges one random run for each seed. Returns the exit status: 0, or 1 for a violation, which is
/// reported with its seed and saved as the smallest scenario that shows it. Ten of them end the
/// soak, and so does SIGINT or SIGTERM, once the runs that have begun are over: the result up to
/// there is told, and the status is 128 and the signal's number unless there is a violation.
[[nodiscard]] int soak(const SoakOptions& options, std::ostream& out, std::ostream& err);

void addSoak(CLI::App& app, Streams streams, int& status);

}  // namespace airflow::tool
