#include "tool/simulation/ScenarioSamples.h"

#include "tool/replay/Trace.h"

namespace airflow::tool {

void ScenarioSamples::looked(concurrency::Duration time, const sensors::SensorSnapshot& snapshot) {
    if (!written) return;
    const auto line = traceLine({.time = concurrency::inSeconds(time), .snapshot = snapshot});
    if (line)
        out << *line << '\n';
    else
        written = std::unexpected(line.error());
}

}  // namespace airflow::tool
