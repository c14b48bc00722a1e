// RunDiary: what happened in a run of a scenario, line by line.
#pragma once

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <cstdint>
#include <string>
#include <vector>

#include "simulation/scenario/ScenarioRun.h"
#include "support/ScenarioText.h"

namespace airflow::simulation {

/// Writes down everything but requests, states and the passing of seconds.
class RunDiary final : public ScenarioObserver {
public:
    void access(const SMCAccess&) override {}
    void modeChanged(concurrency::Duration time, std::size_t fan, FanMode mode) override {
        const bool isForced = mode == FanMode::forced;
        note(time, fmt::format("fan {} {}", fan, isForced ? "forced" : "not forced"));
    }
    void published(concurrency::Duration, const control::ControlState&) override {}
    void called(concurrency::Duration time, std::string_view client, const Call& call) override {
        note(time, fmt::format("{} calls {}", client, nameOf(call.method)));
    }
    void replied(concurrency::Duration time, const Reply& reply) override {
        if (!reply.isDelivered) return;
        std::string answer;
        if (reply.result) answer = fmt::format(" {}", reply.result->xpcCode());
        if (reply.state) answer = reply.state->isHolding ? " holding" : " not holding";
        note(time, fmt::format("{} is told {}{}{}", reply.client, nameOf(reply.method), answer,
                               reply.version));
    }
    void logged(concurrency::Duration time, std::string_view line) override {
        if (line.find("listening") != std::string_view::npos) return note(time, "listening");
        note(time, "log " + std::string(line.substr(0, line.size() - 1)));
    }
    void second(concurrency::Duration, SimulatedMac&) override {}
    void started(concurrency::Duration time) override { note(time, "starts"); }
    void signalled(concurrency::Duration time, daemon::Signal signal) override {
        note(time, signal == daemon::Signal::terminate ? "SIGTERM" : "SIGINT");
    }
    void ended(const ProcessEnd& end) override {
        note(end.time, fmt::format("ends {}{}", end.status, end.bySignal ? " by signal" : ""));
    }
    void connected(concurrency::Duration time, std::string_view client, bool) override {
        note(time, fmt::format("{} connects", client));
    }
    void disconnected(concurrency::Duration time, std::string_view client) override {
        note(time, fmt::format("{} is gone", client));
    }

    std::vector<std::string> lines;

private:
    void note(concurrency::Duration time, const std::string& what) {
        lines.push_back(fmt::format("{} {}", concurrency::inSeconds(time), what));
    }
};

class ScenarioRunTest : public testing::TestWithParam<std::uint64_t> {
protected:
    /// What happens on a machine with one fan, other than its daemon's first start.
    static std::vector<std::string> play(const std::string& events, const std::string& more = "") {
        const auto scenario = tests::parsedScenario(
            R"({"machine":{"fans":[{"modeKey":"F0Md"}],"hid":{"CPU":50},"smc":{}},"events":[)" +
            events + "]" + more + "}");
        if (!scenario) return {scenario.error().describe("scenario")};
        RunDiary diary;
        ScenarioRun(*scenario, diary, GetParam()).play(scenario->length());
        EXPECT_EQ(diary.lines.at(0), "0 starts");
        diary.lines.erase(diary.lines.begin());
        return diary.lines;
    }
};

}  // namespace airflow::simulation
