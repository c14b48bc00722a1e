// ScenarioText: scenarios from the text of their document, without any other file.
#pragma once

#include <expected>
#include <string>

#include "simulation/scenario/Scenario.h"

namespace airflow::tests {

using ParsedScenario = std::expected<simulation::Scenario, json::DecodingError>;

inline ParsedScenario parsedScenario(const std::string& text) {
    return simulation::Scenario::parse(
        text, [](const std::string&) -> std::expected<std::string, std::string> {
            return std::unexpected("there is no file");
        });
}

/// "place: reason" of the error, if there is one.
inline std::string errorOf(const ParsedScenario& scenario) {
    if (scenario) return "no error";
    return scenario.error().codingPath + ": " + scenario.error().description;
}

}  // namespace airflow::tests
