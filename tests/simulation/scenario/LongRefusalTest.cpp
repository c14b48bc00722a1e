// A fan that refuses to go back for a whole day after its client has gone.
#include <gmock/gmock.h>

#include <chrono>
#include <optional>
#include <vector>

#include "simulation/scenario/ScenarioRun.h"
#include "support/OracleObserver.h"

namespace airflow::simulation {
namespace {

using namespace std::chrono_literals;
using concurrency::Duration;

constexpr std::uint8_t refused = SimulatedMac::refused;

/// Writes down when the fan was asked to go back, and when it went.
class Watcher final : public tests::OracleObserver {
public:
    struct Request {
        Duration time{};
        std::uint8_t result = 0;
    };

    using OracleObserver::OracleObserver;

    void access(const SMCAccess& access) override {
        OracleObserver::access(access);
        const bool isWrite = access.operation == Fault::Operation::write;
        if (!isWrite || access.key != "F0Md" || access.value != 0) return;
        requests.push_back({.time = access.time, .result = access.result});
    }
    void modeChanged(Duration time, std::size_t fan, FanMode mode) override {
        OracleObserver::modeChanged(time, fan, mode);
        if (mode == FanMode::automatic) wentBack = time;
    }

    std::vector<Request> requests;
    std::optional<Duration> wentBack;
};

/// One client forces the fan at 1 s and goes at 10 s; the fan refuses from 1 s until `refusalEnd`.
Scenario refusingUntil(Duration refusalEnd) {
    Scenario scenario;
    scenario.machine.fans = {{.modeKey = "F0Md"}};
    scenario.machine.hid = Temperatures{{"CPU", 50.0}};
    scenario.faults = {
        {.from = 1s, .until = refusalEnd, .key = "F0Md", .value = 0, .result = refused}};
    scenario.events = {Call{.at = 1s, .method = Call::Method::setManualRPM, .fan = 0, .rpm = 3000},
                       ConnectionChange{.at = 10s, .kind = ConnectionChange::Kind::disconnect}};
    return scenario;
}

void expectAskedEveryTwoSecondsFromTenSeconds(const std::vector<Watcher::Request>& requests) {
    for (std::size_t i = 0; i < requests.size(); ++i) {
        ASSERT_EQ(requests[i].time, 10s + 2s * static_cast<std::int64_t>(i));
        ASSERT_EQ(requests[i].result, i + 1 < requests.size() ? refused : 0);
    }
}

TEST(LongRefusal, aFanThatRefusesForADayIsAskedEveryTwoSecondsAndGoesBack) {
    const Scenario scenario = refusingUntil(24h + 11s);
    Watcher watcher(scenario);
    ScenarioRun(scenario, watcher, 0).play(24h + 60s);
    ASSERT_FALSE(watcher.requests.empty());
    EXPECT_EQ(watcher.requests.front().time, 0s);  // the recovery of the start
    watcher.requests.erase(watcher.requests.begin());
    // At 10 s, when the client goes, and then every 2 s: 43,200 more up to 24 h later, all refused.
    // The refusal ends a second after the last of these, and the next takes the fan back.
    EXPECT_EQ(watcher.requests.size(), 43202U);
    expectAskedEveryTwoSecondsFromTenSeconds(watcher.requests);
    EXPECT_EQ(watcher.wentBack, 24h + 12s);
    EXPECT_FALSE(watcher.oracle.violation()) << describe(*watcher.oracle.violation());
}

TEST(LongRefusal, aRefusalThatEndsAsItIsAskedEndsAtOnce) {
    const Scenario scenario = refusingUntil(1h + 10s);
    Watcher watcher(scenario);
    ScenarioRun(scenario, watcher, 0).play(1h + 60s);
    EXPECT_EQ(watcher.wentBack, 1h + 10s);
    watcher.requests.erase(watcher.requests.begin());
    EXPECT_EQ(watcher.requests.size(), 1801U);  // every 2 s of the hour, and one at its end
    expectAskedEveryTwoSecondsFromTenSeconds(watcher.requests);
    EXPECT_FALSE(watcher.oracle.violation()) << describe(*watcher.oracle.violation());
}

}  // namespace
}  // namespace airflow::simulation
