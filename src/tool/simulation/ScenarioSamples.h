// ScenarioSamples: what the daemon of a scenario read, as a trace: a line for each of its looks.
#pragma once

#include <expected>
#include <ostream>
#include <string>

#include "simulation/scenario/ScenarioObserver.h"

namespace airflow::tool {

/// Time is that of the scenario. A daemon that controls nothing does not look.
class ScenarioSamples final : public simulation::ScenarioObserver {
public:
    explicit ScenarioSamples(std::ostream& stream) : out(stream) {}

    void looked(concurrency::Duration time, const sensors::SensorSnapshot& snapshot) override;
    void metBug(concurrency::Duration, std::string_view) override {}  // what it read until then

    /// Why a line could not be written, if one could not: the lines from there on are missing.
    [[nodiscard]] std::expected<void, std::string> finish() const { return written; }

private:
    std::ostream& out;
    std::expected<void, std::string> written;
};

}  // namespace airflow::tool
