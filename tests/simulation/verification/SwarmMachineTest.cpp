// The machines of random scenarios, and what befalls them.
#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <set>

#include "simulation/verification/DrawnScenarios.h"

namespace airflow::simulation {
namespace {

using namespace std::chrono_literals;
using concurrency::Duration;
using testing::Contains;
using testing::IsSupersetOf;
using testing::Not;
using testing::SizeIs;

TEST(SwarmMachine, hasUpToTenFansOnMachinesOfEveryKind) {
    std::map<std::size_t, int> fans;
    std::set<std::string> tenFans;
    for (const Scenario& scenario : drawn()) {
        ++fans[scenario.machine.fans.size()];
        if (scenario.machine.fans.size() == 10) tenFans.insert(scenario.machine.name);
    }
    EXPECT_THAT(fans, SizeIs(11));
    EXPECT_GT(fans[10], 10);
    EXPECT_GT(fans[2], 2000);
    EXPECT_THAT(tenFans, SizeIs(testing::Ge(5U)));
}

TEST(SwarmMachine, heatsEverySensorThatTheDaemonReadsAndNoOther) {
    std::set<std::string> withHub;
    std::set<std::string> withoutHub;
    for (const Scenario& scenario : drawn()) {
        const bool hasHub = scenario.machine.hasHIDSymbols && scenario.machine.hid;
        for (const TemperatureChange& change : scenario.temperatures) {
            for (const auto& [label, celsius] : change.hid) {
                EXPECT_TRUE(hasHub);
                if (celsius >= 96) withHub.insert(label);
            }
            for (const auto& [key, celsius] : change.smc) {
                EXPECT_FALSE(hasHub);
                if (celsius >= 96) withoutHub.insert(key);
            }
        }
    }
    EXPECT_THAT(withoutHub,
                testing::UnorderedElementsAre("TCHP", "TCMb", "TCMz", "TG0D", "TD01", "TB0T"));
    EXPECT_THAT(withHub, IsSupersetOf({"PMU tdie1", "PMU tdie6", "GPU MTR Temp Sensor1",
                                       "gas gauge battery", "NAND CH0 temp"}));
    EXPECT_THAT(withHub, Not(Contains("PMU tcal")));
}

TEST(SwarmMachine, hidesEveryTemperatureThatThereIs) {
    const auto hidden = [](const Scenario& scenario) {
        std::set<std::string> keys;
        for (const Fault& fault : scenario.faults) {
            if (fault.operation == Fault::Operation::read && fault.result) keys.insert(fault.key);
        }
        const bool isWholeSMC = std::ranges::all_of(
            scenario.machine.smc, [&](const auto& sensor) { return keys.contains(sensor.first); });
        const bool isHubGone =
            !scenario.machine.hid || !scenario.machine.hasHIDSymbols ||
            std::ranges::any_of(scenario.temperatures, &TemperatureChange::hidesHID);
        return isWholeSMC && isHubGone;
    };
    EXPECT_GT(countIf(hidden), 50U);
}

TEST(SwarmMachine, letsTheHubHangForShortAndLong) {
    std::size_t longer = 0;
    std::size_t all = 0;
    for (const Scenario& scenario : drawn()) {
        for (const HIDHang& hang : scenario.hidHangs) {
            EXPECT_LE(hang.until, troubleEnds);
            ++all;
            if (hang.until - hang.from > 15s) ++longer;
        }
    }
    EXPECT_GT(all, 300U);
    EXPECT_GT(longer, 50U);
}

TEST(SwarmMachine, rarelyLetsAFanRefuseForAHundredRetriesAndMore) {
    std::size_t hundred = 0;
    std::size_t hours = 0;
    for (const Scenario& scenario : drawn()) {
        const Duration length = scenario.length();
        const bool isLong = std::ranges::any_of(scenario.faults, [&](const Fault& fault) {
            return fault.value == 0 && fault.key.starts_with('F') &&
                   fault.until - fault.from > 200s;
        });
        EXPECT_EQ(isLong, length > troubleEnds + calm);
        if (!isLong) continue;
        ++hundred;
        if (length > 1h) ++hours;
        EXPECT_LT(scenario.events.size(), 6U);
    }
    EXPECT_GT(hundred, 10U);
    EXPECT_LT(hundred, 60U);
    EXPECT_GT(hours, 0U);
}

TEST(SwarmMachine, heatsAMachineWhoseFansAreHeldAndOneOfThemAtAStandstill) {
    const auto isHeldInHeat = [](const Scenario& scenario) {
        return std::ranges::any_of(eventsOf<Call>(scenario), [&](const Call& call) {
            const auto isStill = [](const plan::FanPlan& fan) {
                const auto* percent = std::get_if<plan::FixedPercent>(&fan.mode.mode);
                return percent && percent->percent == 0;
            };
            const bool isHot =
                std::ranges::any_of(scenario.temperatures, [&call](const auto& change) {
                    const auto celsius =
                        change.hid.empty() ? std::optional(0.0) : change.hid.front().second;
                    const double key = change.smc.empty() ? 0 : change.smc.front().second;
                    return change.at > call.at + 10s && std::max(celsius.value_or(0), key) >= 96;
                });
            const bool isHeard = std::ranges::any_of(
                eventsOf<Heartbeats>(scenario), [&call](const Heartbeats& beats) {
                    return beats.at == call.at && beats.until >= call.at + 60s;
                });
            return isHot && isHeard && call.plan.fans.size() > 1 &&
                   std::ranges::count_if(call.plan.fans, isStill) == 1;
        });
    };
    EXPECT_GT(countIf(isHeldInHeat), 50U);
}

TEST(SwarmMachine, setsTheClockBackByUpToAnHour) {
    double least = 0;
    for (const Scenario& scenario : drawn()) {
        for (const auto& jump : eventsOf<WallClockJump>(scenario)) {
            least = std::min(least, jump.seconds);
        }
    }
    EXPECT_LT(least, -3000);
    EXPECT_GE(least, -3600);
}

}  // namespace
}  // namespace airflow::simulation
