#include "tool/simulation/ScenarioFile.h"

#include <fmt/format.h>

#include <filesystem>

#include "text/Text.h"
#include "tool/plans/PlanFile.h"

namespace airflow::tool {

std::expected<simulation::Scenario, std::string> readScenario(const std::string& path) {
    const auto text = readFile(path);
    if (!text) return std::unexpected(fmt::format("{}: cannot be read: {}", path, text.error()));
    const auto folder = std::filesystem::path(path).parent_path();
    auto scenario = simulation::Scenario::parse(*text, [&folder](const std::string& name) {
        auto file = readFile((folder / name).string());
        if (!file) file = std::unexpected("cannot be read: " + file.error());
        return file;
    });
    if (!scenario) return std::unexpected(text::printable(scenario.error().describe(path)));
    return std::move(*scenario);
}

}  // namespace airflow::tool
