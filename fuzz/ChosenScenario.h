// ChosenScenario: a scenario of bounded length whose every part an input chooses.
#pragma once

#include "Input.h"
#include "simulation/scenario/Scenario.h"

namespace airflow::fuzz {

/// Like those that are drawn at random (simulation::swarmScenario), of the same vocabulary, so that
/// the same properties can be asked of it; but shorter, and a change of a few bytes changes a few
/// things. Trouble ends at 20 s; what follows shows whether everything comes right again.
[[nodiscard]] simulation::Scenario chosenScenario(Input& input);

}  // namespace airflow::fuzz
