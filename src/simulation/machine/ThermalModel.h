// ThermalModel: where heat goes. Load heats the die, the die its heat sink, and air, driven by the
// fans, cools the sink.
#pragma once

#include <functional>
#include <utility>
#include <vector>

#include "concurrency/Clock.h"
#include "concurrency/Date.h"

namespace airflow::simulation {

/// Lumped, with constants of a laptop: in air of 25 °C, 45 W settle the die near 75 °C at full
/// speed and well above 95 °C at the lowest (a fifth of it). Starts where 8 W settle at the lowest
/// speed.
class ThermalModel {
public:
    /// From each moment on, that many watts. Ordered by time; 8 W before the first.
    using Load = std::vector<std::pair<concurrency::Duration, double>>;

    ThermalModel(Load load, double ambientCelsius);
    /// With a load that `watts` gives for each moment.
    static ThermalModel withLoad(std::function<double(concurrency::Duration)> watts,
                                 double ambientCelsius);

    /// Moves on by one step of this length. `airflow` is the fans' mean speed as a share of their
    /// maximum, [0, 1].
    void step(concurrency::Duration now, concurrency::Seconds length, double airflow);

    [[nodiscard]] double dieCelsius() const { return die; }
    [[nodiscard]] double sinkCelsius() const { return sink; }

private:
    std::function<double(concurrency::Duration)> watts;
    double ambient;
    double die;
    double sink;
};

}  // namespace airflow::simulation
