// What it costs to hold a plan: an hour of virtual time on the machine with forty sensors.
#include <benchmark/benchmark.h>

#include <chrono>

#include "simulation/daemon/SimulatedSystem.h"

namespace airflow {
namespace {

using namespace std::chrono_literals;

plan::FanControlPlan curveForBothFans() {
    plan::FanCurve curve;
    curve.points = {{.id = {}, .celsius = 40, .percent = 5},
                    {.id = {}, .celsius = 90, .percent = 90}};
    plan::FanControlPlan plan;
    for (std::int64_t fan = 0; fan < 2; ++fan) {
        plan.fans.push_back({.fanID = fan, .mode = plan::FanControlModePlan::curve(curve)});
    }
    return plan;
}

void holdForAnHour(benchmark::State& state) {
    constexpr auto heartbeats = std::chrono::seconds(3600) / 5s;
    for ([[maybe_unused]] const auto& step : state) {
        simulation::SimulatedSystem system(*simulation::machinePreset("forty-sensors"));
        const auto applied = system.runtime.run(system.controller->applyPlan(curveForBothFans()));
        if (!applied.isApplied()) state.SkipWithError("the plan was not applied");
        for (int beat = 0; beat < heartbeats; ++beat) {
            system.runtime.advance(5s);
            system.runtime.run(system.controller->heartbeat());
        }
        if (system.mac.fan(0).mode != simulation::FanMode::forced) state.SkipWithError("not held");
    }
    state.counters["virtual seconds"] = benchmark::Counter(
        3600.0 * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(holdForAnHour)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace airflow
