// ScenarioDiary: a scenario played through the whole daemon, and what became of its fans.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "simulation/scenario/ScenarioRun.h"
#include "support/ScenarioText.h"

namespace airflow::daemon {

class ScenarioDiary final : public simulation::ScenarioObserver {
public:
    using Duration = concurrency::Duration;

    /// Plays the members of a scenario, which stand without their outer braces.
    explicit ScenarioDiary(const std::string& members, std::uint64_t seed = 0) {
        const auto scenario = tests::parsedScenario("{" + members + "}");
        if (!scenario) {
            ADD_FAILURE() << scenario.error().description;
            return;
        }
        simulation::ScenarioRun(*scenario, *this, seed).play(scenario->length());
    }
    explicit ScenarioDiary(const simulation::Scenario& scenario) {
        simulation::ScenarioRun(scenario, *this, 0).play(scenario.length());
    }

    /// How long the fan has been forced in all, in seconds, from a second on.
    [[nodiscard]] double secondsForced(std::size_t fan, double from = 0) const {
        double sum = 0;
        if (!spans.contains(fan)) return 0;
        for (const auto& [begin, end] : spans.at(fan)) {
            const double stop = end.value_or(last);
            if (stop > from) sum += stop - std::max(begin, from);
        }
        return sum;
    }
    [[nodiscard]] bool isForced(std::size_t fan) const {
        return spans.contains(fan) && !spans.at(fan).empty() && !spans.at(fan).back().second;
    }
    [[nodiscard]] bool isAnyForced() const {
        for (const auto& [fan, each] : spans) {
            if (isForced(fan)) return true;
        }
        return false;
    }
    /// When it was last given back, in seconds; nothing when it is forced or never was.
    [[nodiscard]] std::optional<double> givenBack(std::size_t fan) const {
        if (!spans.contains(fan) || spans.at(fan).empty()) return std::nullopt;
        return spans.at(fan).back().second;
    }

    void access(const simulation::SMCAccess& access) override {
        if (access.operation == simulation::Fault::Operation::write) ++writes;
    }
    void modeChanged(Duration time, std::size_t fan, simulation::FanMode mode) override {
        const bool isNowForced = mode == simulation::FanMode::forced;
        if (isNowForced == isForced(fan)) return;
        if (isNowForced)
            spans[fan].emplace_back(seconds(time), std::nullopt);
        else
            spans[fan].back().second = seconds(time);
    }
    void published(Duration, const control::ControlState& state) override {
        if (state.lastError && (errors.empty() || errors.back() != *state.lastError)) {
            errors.push_back(*state.lastError);
        }
    }
    void called(Duration, std::string_view, const simulation::Call&) override {}
    void replied(Duration, const simulation::Reply& reply) override {
        if (reply.result) codes.push_back(reply.result->xpcCode());
    }
    void logged(Duration, std::string_view line) override { log += line; }
    void second(Duration time, simulation::SimulatedMac& mac) override {
        last = seconds(time);
        for (std::size_t fan = 0; last == 0 && fan < mac.fanCount(); ++fan) {
            modeChanged(time, fan, mac.fan(fan).mode);
        }
    }
    void guarded(Duration time) override { guardActed.push_back(seconds(time)); }
    void ended(const simulation::ProcessEnd& end) override {
        statuses.push_back(end.status);
        ends.push_back(seconds(end.time));
        last = seconds(end.time);
    }

    std::vector<std::string> errors;  ///< without repetitions
    std::vector<std::int64_t> codes;
    std::vector<int> statuses;
    std::vector<double> ends;        ///< of the process, in seconds
    std::vector<double> guardActed;  ///< when the guard gave fans back
    std::string log;
    int writes = 0;

private:
    static double seconds(Duration time) { return concurrency::inSeconds(time); }

    std::map<std::size_t, std::vector<std::pair<double, std::optional<double>>>> spans;
    double last = 0;
};

}  // namespace airflow::daemon
