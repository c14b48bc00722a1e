#include "Situation.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <cstdio>
#include <cstdlib>
#include <limits>
#include <optional>

#include "json/Writer.h"
#include "simulation/scenario/ScenarioRun.h"

namespace airflow::simulation {

namespace {

using Usual = ScheduleBounds::Usual;

std::optional<std::uint64_t> numberIn(const char* variable) {
    const char* const text = std::getenv(variable);
    if (!text) return std::nullopt;
    return std::strtoull(text, nullptr, 10);
}

std::string nameOfTest() {
    const auto* test = testing::UnitTest::GetInstance()->current_test_info();
    return fmt::format("{}.{}", test->test_suite_name(), test->name());
}

std::string documentOf(const Scenario& scenario) {
    json::Writer writer;
    writer.write(scenario);
    return writer.take().value_or("");
}

void tell(const Exploration& found, ScheduleBounds bounds) {
    std::string line =
        fmt::format("{}, {}: {} schedules, at most {} deviations, up to {} choices", nameOfTest(),
                    bounds.usual == Usual::oldest ? "in turns" : "newest first", found.schedules,
                    bounds.deviations, found.longest);
    if (found.wasStopped) line += fmt::format("; stopped at {}", found.schedules);
    if (found.isComplete()) line += "; complete";
    std::puts(line.c_str());
}

}  // namespace

Situation::Situation(std::size_t fans) {
    for (std::size_t fan = 0; fan < fans; ++fan) {
        scenario.machine.fans.push_back({.modeKey = upperModeKey(fan)});
    }
    scenario.machine.hid = Temperatures{{"CPU", 50.0}};
    for (const char* client : {"app", "other"}) {
        add(ConnectionChange{.at = 500ms, .client = client});
    }
}

Situation& Situation::add(Event event) {
    scenario.events.push_back(std::move(event));
    return *this;
}

Situation& Situation::add(const Fault& fault) {
    scenario.faults.push_back(fault);
    return *this;
}

Situation& Situation::apply(Duration at, std::vector<double> speeds, const std::string& client) {
    Call call{.at = at, .client = client, .method = Method::applyConfig};
    for (std::size_t fan = 0; fan < speeds.size(); ++fan) {
        if (speeds[fan] == 0) continue;
        call.plan.fans.push_back({.fanID = static_cast<std::int64_t>(fan),
                                  .mode = FanControlModePlan::fixedRPM(speeds[fan])});
    }
    return add(call);
}

Situation& Situation::call(Duration at, Method method, const std::string& client) {
    return add(Call{.at = at, .client = client, .method = method});
}

Situation& Situation::heartbeats(Duration at, Duration last, const std::string& client) {
    return add(Heartbeats{.at = at, .client = client, .every = 5s, .until = last});
}

Situation& Situation::disconnect(Duration at, const std::string& client) {
    return add(
        ConnectionChange{.at = at, .kind = ConnectionChange::Kind::disconnect, .client = client});
}

Situation& Situation::signal(Duration at, ProcessEvent::Kind kind) {
    return add(ProcessEvent{.at = at, .kind = kind});
}

Situation& Situation::refuse(const std::string& key, double value, Duration first, Duration last) {
    return add(Fault{.from = first, .until = last, .key = key, .value = value, .result = 0x86});
}

Situation& Situation::between(Duration first, Duration last, Duration end) {
    from = first;
    until = last;
    scenario.duration = end;
    return *this;
}

void Situation::search(ScheduleBounds bounds, const Outcome& outcome, Found& found) const {
    const auto run = [&](const SimulatedRuntime::Chooser& chooser) -> std::optional<std::string> {
        Witness witness(scenario);
        try {
            ScenarioRun(scenario, witness, {.choose = chooser, .from = from, .until = until})
                .play(scenario.length());
        } catch (const Stuck& stuck) {
            return stuck.what();
        }
        found.traces.insert(witness.oracle.hash());
        if (const auto& violation = witness.oracle.violation()) return describe(*violation);
        ++found.outcomes[outcome(witness)];
        return std::nullopt;
    };
    const Exploration exploration = explore(run, bounds);
    tell(exploration, bounds);
    found.schedules += exploration.schedules;
    found.wasStopped = found.wasStopped || exploration.wasStopped;
    if (!exploration.failure) return;
    ADD_FAILURE() << exploration.failure->what << "\nchoices: "
                  << fmt::format("{}", fmt::join(exploration.failure->choices, ","))
                  << "\nscenario: " << documentOf(scenario);
}

void Situation::comesTo(const std::set<std::string>& expected, const Outcome& outcome,
                        std::size_t deviations, const std::set<std::string>& rarer) const {
    ScheduleBounds bounds;
    bounds.deviations = numberIn("AIRFLOW_SCHEDULE_BOUND").value_or(deviations);
    bounds.schedules = numberIn("AIRFLOW_SCHEDULE_LIMIT").value_or(bounds.schedules);
    Found found;
    for (const auto usual : {Usual::newest, Usual::oldest}) {
        bounds.usual = usual;
        search(bounds, outcome, found);
    }
    for (const auto& [name, count] : found.outcomes) {
        std::puts(fmt::format("    {} schedules: {}", count, name).c_str());
        EXPECT_TRUE(expected.contains(name) || rarer.contains(name)) << name;
    }
    for (const std::string& name : expected) {
        EXPECT_TRUE(found.wasStopped || found.outcomes.contains(name)) << "never: " << name;
    }
    testing::Test::RecordProperty("schedules", std::to_string(found.schedules));
    testing::Test::RecordProperty("deviations", std::to_string(bounds.deviations));
    EXPECT_TRUE(found.wasStopped || found.traces.size() > 1) << "no choice made a difference";
}

}  // namespace airflow::simulation
