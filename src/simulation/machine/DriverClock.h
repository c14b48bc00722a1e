// DriverClock: time without the SMC driver's slow answers, during which nothing can be written.
#pragma once

#include <algorithm>

#include "concurrency/Clock.h"

namespace airflow::simulation {

class DriverClock {
public:
    using Duration = concurrency::Duration;

    /// A moment, by the clock and by how long the driver had been busy until then.
    struct Mark {
        Duration time{};
        Duration busy{};
    };

    /// A request was answered at `time`, and its answer takes `latency` to arrive.
    void answered(Duration time, Duration latency) {
        busyUntil = std::max(busyUntil, time) + latency;
        busy += latency;
    }
    /// Nobody waits any more for what was asked until now.
    void abandon(Duration now) {
        busy = busyAt(now);
        busyUntil = std::min(busyUntil, now);
    }

    [[nodiscard]] Mark mark(Duration time) const { return {.time = time, .busy = busyAt(time)}; }
    /// From the mark up to now, without what the driver was busy.
    [[nodiscard]] Duration since(const Mark& mark, Duration now) const {
        return now - mark.time - (busyAt(now) - mark.busy);
    }
    /// Whether an answer is still on its way.
    [[nodiscard]] bool isBusy(Duration now) const { return busyUntil > now; }

    /// The later of two.
    [[nodiscard]] static Mark later(const Mark& one, const Mark& other) {
        return one.time < other.time ? other : one;
    }

private:
    [[nodiscard]] Duration busyAt(Duration now) const {
        return busy - std::max(busyUntil - now, Duration::zero());
    }

    Duration busy{};       ///< with all the answers that were asked for
    Duration busyUntil{};  ///< the last of them
};

}  // namespace airflow::simulation
