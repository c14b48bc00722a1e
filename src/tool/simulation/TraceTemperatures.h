// TraceTemperatures: a scenario whose temperatures come from a recording.
#pragma once

#include <expected>
#include <string>

#include "simulation/scenario/Scenario.h"

namespace airflow::tool {

/// Replaces the scenario's temperatures, or its load, by those of the trace at `path`, whose first
/// line is the scenario's start. From each line on, the sensors that the trace names read what the
/// line says; one that the line leaves out has vanished: an HID service is gone, an SMC key reads
/// 0. What the daemon reads from several services is set for each of them. Sensors that no line
/// names stay as the machine describes them; the trace's fans count for nothing.
///
/// Fails, with one line for people, for a trace that cannot be read, for times that do not rise or
/// are too long, and for a sensor that the machine does not have.
[[nodiscard]] std::expected<void, std::string> followTrace(simulation::Scenario& scenario,
                                                           const std::string& path);

}  // namespace airflow::tool
