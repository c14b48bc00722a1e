// Steps: a task that shows when it has its turn.
#pragma once

#include <string>

#include "concurrency/Runtime.h"

namespace airflow::simulation {

/// Writes its name, and lets the others have their turn, as often as there are steps.
inline concurrency::Task<void> writeSteps(concurrency::Runtime& runtime, std::string* text,
                                          char name, int steps) {
    for (int i = 0; i < steps; ++i) {
        *text += name;
        co_await runtime.sleepFor(concurrency::Duration::zero());
    }
}

}  // namespace airflow::simulation
