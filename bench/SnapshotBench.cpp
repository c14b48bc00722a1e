// What one look at a machine costs: the sensor reader, the connection and the simulated Mac.
#include <benchmark/benchmark.h>

#include "simulation/daemon/SimulatedSystem.h"

namespace airflow {
namespace {

/// Processor time of one snapshot; its 80 ms pass in virtual time.
void snapshotOf(benchmark::State& state, const char* preset) {
    simulation::SimulatedSystem system(*simulation::machinePreset(preset));
    for ([[maybe_unused]] const auto& step : state) {
        benchmark::DoNotOptimize(system.runtime.run(system.sensors.snapshot()));
    }
}
BENCHMARK_CAPTURE(snapshotOf, fortySensors, "forty-sensors")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(snapshotOf, laptop, "laptop")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(snapshotOf, laptopByKeys, "no-hid")->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace airflow
