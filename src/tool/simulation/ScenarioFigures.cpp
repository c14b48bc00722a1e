#include "tool/simulation/ScenarioFigures.h"

#include <fmt/format.h>

#include <utility>

namespace airflow::tool {

using concurrency::Duration;

RunFigures::Sample sampleOf(Duration time, simulation::SimulatedMac& mac) {
    RunFigures::Sample sample{.time = concurrency::inSeconds(time), .celsius = mac.hottest()};
    for (std::size_t i = 0; i < mac.fanCount(); ++i) {
        const auto state = mac.fan(i);
        const auto& made = mac.describedFan(i);
        sample.fans[static_cast<std::int64_t>(i)] = {
            .rpm = state.speed,
            .minRPM = made.minRPM,
            .maxRPM = made.maxRPM,
            .isForced = state.mode == simulation::FanMode::forced,
            .targetRPM = state.target};
    }
    return sample;
}

void ScenarioFigures::modeChanged(Duration time, std::size_t fan, simulation::FanMode mode) {
    releases.modeChanged(time, fan, mode);
    if (!noted) return;
    const char* const what = mode == simulation::FanMode::forced      ? "forced"
                             : mode == simulation::FanMode::reclaimed ? "taken back by the firmware"
                                                                      : "back to Auto";
    noted(concurrency::inSeconds(time), fmt::format("fan {} {}", fan, what));
}

void ScenarioFigures::signalled(Duration time, daemon::Signal signal) {
    releases.ending(time, signal == daemon::Signal::terminate ? "SIGTERM" : "SIGINT");
}

void ScenarioFigures::disconnected(Duration time, std::string_view) {
    releases.ending(time, "the end of a connection");
}

void ScenarioFigures::second(Duration time, simulation::SimulatedMac& mac) {
    const auto sample = sampleOf(time, mac);
    figures.add(sample);
    if (sampled) sampled(sample);
    if (std::exchange(hasSample, true)) return;  // from then on, changes are told
    for (std::size_t fan = 0; fan < mac.fanCount(); ++fan)
        releases.modeChanged(time, fan, mac.fan(fan).mode);
}

RunFigures ScenarioFigures::finish() {
    for (const auto& [cause, count] : releases.finish()) figures.released(cause, count);
    return figures;
}

}  // namespace airflow::tool
