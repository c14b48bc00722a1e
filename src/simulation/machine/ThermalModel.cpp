#include "simulation/machine/ThermalModel.h"

#include <utility>

namespace airflow::simulation {

namespace {

constexpr double idleWatts = 8;
constexpr double dieCapacity = 12;        // J/K
constexpr double sinkCapacity = 160;      // J/K
constexpr double dieToSink = 1.9;         // W/K
constexpr double sinkToStillAir = 0.35;   // W/K
constexpr double sinkToMovingAir = 1.36;  // W/K more at full speed
// Where 8 W settle at a fifth of full speed, the lowest of most fans.
constexpr double dieAtStart = 17.1;   // °C above ambient
constexpr double sinkAtStart = 12.9;  // °C above ambient

double wattsAt(const ThermalModel::Load& load, concurrency::Duration now) {
    double current = idleWatts;
    for (const auto& [from, value] : load) {
        if (from > now) break;
        current = value;
    }
    return current;
}

}  // namespace

ThermalModel::ThermalModel(Load load, double ambientCelsius)
    : watts([load = std::move(load)](concurrency::Duration now) { return wattsAt(load, now); }),
      ambient(ambientCelsius),
      die(ambientCelsius + dieAtStart),
      sink(ambientCelsius + sinkAtStart) {}

ThermalModel ThermalModel::withLoad(std::function<double(concurrency::Duration)> watts,
                                    double ambientCelsius) {
    ThermalModel model(Load{}, ambientCelsius);
    model.watts = std::move(watts);
    return model;
}

void ThermalModel::step(concurrency::Duration now, concurrency::Seconds length, double airflow) {
    const double seconds = length.count();
    const double intoSink = dieToSink * (die - sink);
    const double intoAir = (sinkToStillAir + sinkToMovingAir * airflow) * (sink - ambient);
    die += (watts(now) - intoSink) * seconds / dieCapacity;
    sink += (intoSink - intoAir) * seconds / sinkCapacity;
}

}  // namespace airflow::simulation
