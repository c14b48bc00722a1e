// Any bytes as a scenario. What is accepted survives being written; what is short is played, to
// see that no machine and no sequence of events stops the simulation.
#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <expected>
#include <string>
#include <string_view>
#include <variant>

#include "concurrency/Require.h"
#include "json/Writer.h"
#include "simulation/scenario/Scenario.h"
#include "simulation/verification/Soak.h"

namespace airflow::fuzz {
namespace {

using concurrency::Duration;
using concurrency::require;
using simulation::Scenario;
using namespace std::chrono_literals;

std::expected<std::string, std::string> readFile(const std::string& name) {
    if (name != "plan.json") return std::unexpected("There is one file only.");
    return R"({"fans":[{"fanID":0,"mode":{"fixedPercent":{"_0":40}}}],"rules":[],"tuning":{)"
           R"("emaAlpha":0.3,"hysteresisCelsius":2,"maxDeltaRPMPerTick":400,"minDwellSeconds":3}})";
}

std::expected<Scenario, json::DecodingError> parsed(std::string_view text) {
    return Scenario::parse(text, readFile);
}

void survivesWriting(const Scenario& scenario) {
    const auto written = json::encode(scenario);
    require(written.has_value(), "a scenario that was read can be written");
    const auto again = parsed(*written);
    require(again.has_value(), "a scenario that was written can be read");
    require(json::encode(*again) == *written, "a scenario that was read again is the same");
}

std::int64_t heartbeatsOf(const simulation::Event& event) {
    const auto* beats = std::get_if<simulation::Heartbeats>(&event);
    return beats ? (beats->until - beats->at) / beats->every : 0;
}

bool canBePlayed(const Scenario& scenario) {
    const auto fitsFault = [](const simulation::Fault& fault) { return fault.latency <= 5s; };
    return scenario.length() <= 40s && scenario.events.size() <= 12 &&
           scenario.faults.size() <= 8 && scenario.restartAfter.value_or(1s) >= 100ms &&
           std::ranges::all_of(scenario.faults, fitsFault) &&
           std::ranges::all_of(scenario.events,
                               [](const auto& event) { return heartbeatsOf(event) <= 40; });
}

}  // namespace
}  // namespace airflow::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace airflow;
    if (size > 8192) return 0;
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const auto scenario = fuzz::parsed(text);
    if (!scenario) return 0;
    fuzz::survivesWriting(*scenario);
    // What is true of the daemon only while its machine keeps within bounds is for another fuzzer.
    if (fuzz::canBePlayed(*scenario)) (void)simulation::judge(*scenario, 0);
    return 0;
}
