// Situation: a few operations that overlap, and everything that can come of them.
//
// Each schedule within the bounds is one run of the whole daemon on a simulated machine, judged by
// the oracle. What else a run came to is said in words, and the test looks at all that was said.
#pragma once

#include <gmock/gmock.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Witness.h"
#include "simulation/runtime/Schedules.h"
#include "simulation/scenario/Scenario.h"

namespace airflow::simulation {

using namespace std::chrono_literals;
using concurrency::Duration;
using Method = Call::Method;
using plan::FanControlModePlan;

/// What a run came to, in words.
using Outcome = std::function<std::string(const Witness&)>;

class Situation {
public:
    /// Fans from 1200 to 6000 RPM and one sensor, at 50 °C. The clients "app" and "other" are
    /// connected at 0.5 s.
    explicit Situation(std::size_t fans = 2);

    Situation& add(Event event);
    Situation& add(const Fault& fault);
    /// A plan with the fans' speeds; 0: it leaves the fan on Auto.
    Situation& apply(Duration at, std::vector<double> speeds, const std::string& client = "app");
    Situation& call(Duration at, Method method, const std::string& client = "app");
    /// Every 5 s.
    Situation& heartbeats(Duration at, Duration last, const std::string& client = "app");
    Situation& disconnect(Duration at, const std::string& client);
    Situation& signal(Duration at, ProcessEvent::Kind kind = ProcessEvent::Kind::terminate);
    /// The SMC answers 0x86 to this mode write in this time.
    Situation& refuse(const std::string& key, double value, Duration from, Duration until);
    /// Where the schedules differ. The run goes on up to `end`.
    Situation& between(Duration from, Duration until, Duration end);

    /// Runs every schedule with at most `deviations`, or as many as AIRFLOW_SCHEDULE_BOUND says,
    /// for both ways of taking turns; for each at most AIRFLOW_SCHEDULE_LIMIT schedules. Prints how
    /// many there were. Fails the test when the oracle finds a violation, when an outcome is none
    /// of the expected ones, and, unless the limit stopped the search, when one of these never
    /// comes or when the schedules do not differ in anything that can be seen. The `rarer` outcomes
    /// take more deviations: they may come.
    void comesTo(const std::set<std::string>& expected, const Outcome& outcome,
                 std::size_t deviations = 2, const std::set<std::string>& rarer = {}) const;

    Scenario scenario;

private:
    struct Found {
        std::map<std::string, std::uint64_t> outcomes;  ///< how many schedules came to each
        std::set<std::uint64_t> traces;
        std::uint64_t schedules = 0;
        bool wasStopped = false;
    };

    void search(ScheduleBounds bounds, const Outcome& outcome, Found& found) const;

    Duration from{};
    Duration until{};
};

}  // namespace airflow::simulation
