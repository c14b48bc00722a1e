// ScenarioEvents: how the events of a scenario are read.
#pragma once

#include "json/Decoder.h"
#include "simulation/scenario/Scenario.h"

namespace airflow::simulation {

/// Adds the event to the scenario's, and the name of the file that its plan is in to `planFiles`.
void decodeEvent(const json::Decoder& decoder, Scenario& scenario);

}  // namespace airflow::simulation
