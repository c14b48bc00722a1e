// Random scenarios, and what their clients do.
#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <map>
#include <set>

#include "json/Writer.h"
#include "simulation/verification/DrawnScenarios.h"
#include "simulation/verification/Soak.h"

namespace airflow::simulation {
namespace {

using namespace std::chrono_literals;
using concurrency::Duration;
using testing::IsSupersetOf;

std::string textOf(const Scenario& scenario) {
    return json::encode(scenario).value_or("has no JSON form");
}

bool isForcing(const Call& call) {
    using Method = Call::Method;
    return call.method == Method::fullBlast || call.method == Method::setManualRPM ||
           call.method == Method::setPercent || call.method == Method::applyConfig;
}

bool isCalledBetween(const Scenario& scenario, Duration from, Duration until) {
    return std::ranges::any_of(eventsOf<Call>(scenario), [&](const Call& call) {
        return isForcing(call) && call.at > from && call.at < until;
    });
}

bool hasSlowWriteAt(const Scenario& scenario, Duration at) {
    return std::ranges::any_of(scenario.faults, [at](const Fault& fault) {
        return fault.operation == Fault::Operation::write && fault.from <= at && at < fault.until &&
               fault.latency > 0s;
    });
}

TEST(SwarmScenario, canBeSavedAsAFileAndReadAgain) {
    for (std::uint64_t seed = 1; seed <= drawn().size(); ++seed) {
        const std::string text = textOf(drawn().at(seed - 1));
        const auto again = Scenario::parse(text, {});
        ASSERT_TRUE(again) << seed << ": " << again.error().describe("scenario");
        ASSERT_EQ(textOf(*again), text) << seed;
    }
}

TEST(SwarmScenario, playsTheSameWhenItWasSavedAndRead) {
    for (std::uint64_t seed = 38; seed <= drawn().size(); seed += 100) {
        const Scenario& scenario = drawn().at(seed - 1);
        const auto again = Scenario::parse(textOf(scenario), {});
        ASSERT_TRUE(again) << seed << ": " << again.error().describe("scenario");
        EXPECT_EQ(judge(*again, seed).hash, judge(scenario, seed).hash) << seed;
    }
}

TEST(SwarmScenario, letsClientsSendHundredsOfCommandsInAnInstantAndGo) {
    std::size_t backlogs = 0;
    std::size_t several = 0;
    for (const Scenario& scenario : drawn()) {
        std::map<Duration, std::size_t> calls;
        for (const Call& call : eventsOf<Call>(scenario)) ++calls[call.at];
        std::size_t gone = 0;
        for (const auto& change : eventsOf<ConnectionChange>(scenario)) {
            if (calls[change.at] >= 100) ++gone;
        }
        if (gone > 0) ++backlogs;
        if (gone > 1) ++several;
    }
    EXPECT_GT(backlogs, 30U);
    EXPECT_GT(several, 10U);
}

TEST(SwarmScenario, asksForFansInTheMiddleOfAnUpgrade) {
    std::size_t crowded = 0;
    std::size_t slow = 0;
    for (const Scenario& scenario : drawn()) {
        for (const Call& call : eventsOf<Call>(scenario)) {
            if (call.method != Call::Method::shutdownForUpgrade) continue;
            if (!isCalledBetween(scenario, call.at, call.at + 200ms)) continue;
            ++crowded;
            if (hasSlowWriteAt(scenario, call.at)) ++slow;
        }
    }
    EXPECT_GT(crowded, 200U);
    EXPECT_GT(slow, 80U);
}

TEST(SwarmScenario, asksForFansWithinMillisecondsOfASignal) {
    std::size_t crowded = 0;
    std::size_t slow = 0;
    for (const Scenario& scenario : drawn()) {
        for (const ProcessEvent& event : eventsOf<ProcessEvent>(scenario)) {
            const bool isSignal = event.kind == ProcessEvent::Kind::terminate ||
                                  event.kind == ProcessEvent::Kind::interrupt;
            if (!isSignal || !isCalledBetween(scenario, event.at - 5ms, event.at + 15ms)) continue;
            ++crowded;
            if (hasSlowWriteAt(scenario, event.at)) ++slow;
        }
    }
    EXPECT_GT(crowded, 200U);
    EXPECT_GT(slow, 100U);
}

TEST(SwarmScenario, dropsAFanFromAPlanWhileItRefusesToGoBack) {
    const auto drops = [](const Scenario& scenario) {
        for (const Fault& fault : scenario.faults) {
            if (fault.value != 0 || !fault.key.ends_with("d")) continue;
            for (const Call& call : eventsOf<Call>(scenario)) {
                const bool isMeanwhile = call.at > fault.from && call.at < fault.until;
                const auto index = static_cast<std::int64_t>(fault.key[1] - '0');
                const bool isPartial =
                    call.plan.fans.size() + 1 == scenario.machine.fans.size() &&
                    std::ranges::find(call.plan.fans, index, &plan::FanPlan::fanID) ==
                        call.plan.fans.end();
                if (isMeanwhile && isPartial && !call.plan.fans.empty()) return true;
            }
        }
        return false;
    };
    EXPECT_GT(countIf(drops), 100U);
}

TEST(SwarmScenario, hasCurvesOfASensorThatIsNotTheHottest) {
    const auto followsBattery = [](const Scenario& scenario) {
        return std::ranges::any_of(eventsOf<Call>(scenario), [](const Call& call) {
            return std::ranges::any_of(call.plan.fans, [](const plan::FanPlan& fan) {
                const auto* curve = std::get_if<plan::FanCurve>(&fan.mode.mode);
                return curve && curve->sourceSensorID == "HID-gas gauge battery";
            });
        });
    };
    EXPECT_GT(countIf(followsBattery), 100U);
}

TEST(SwarmScenario, asksForTheStateAgainAndAgain) {
    const auto asksOften = [](const Scenario& scenario) {
        return std::ranges::count(eventsOf<Call>(scenario), std::string("reader"), &Call::client) >=
               10;
    };
    EXPECT_GT(countIf(asksOften), 100U);
}

TEST(SwarmScenario, hasPlansWithRules) {
    const auto hasRules = [](const Scenario& scenario) {
        return std::ranges::any_of(eventsOf<Call>(scenario),
                                   [](const Call& call) { return !call.plan.rules.empty(); });
    };
    EXPECT_GT(countIf(hasRules), 200U);
}

TEST(SwarmScenario, ofPossibleNumbersNamesNoFanThatTheMachineLacks) {
    for (std::uint64_t seed = 1; seed <= 1200; ++seed) {
        const Scenario scenario = swarmScenario(seed, SwarmNumbers::possible);
        const auto last = static_cast<std::int64_t>(scenario.machine.fans.size());
        for (const Call& call : eventsOf<Call>(scenario)) {
            ASSERT_TRUE(call.fan >= 0 && call.fan < std::max<std::int64_t>(last, 1)) << seed;
        }
        for (const Fault& fault : scenario.faults) {
            ASSERT_FALSE(fault.key == "FNum" && fault.reading) << seed;
        }
    }
}

TEST(SwarmScenario, ofAnyNumbersHasMoreOfThemAndNothingElseThatIsNew) {
    std::set<std::int64_t> fans;
    std::set<double> counts;
    bool isNotANumberDrawn = false;
    for (std::uint64_t seed = 1; seed <= 1200; ++seed) {
        const Scenario any = swarmScenario(seed, SwarmNumbers::any);
        Scenario rest = any;
        const Scenario possible = swarmScenario(seed, SwarmNumbers::possible);
        for (const Call& call : eventsOf<Call>(any)) fans.insert(call.fan);
        for (const Fault& fault : any.faults) {
            if (fault.key != "FNum" || !fault.reading) continue;
            if (std::isnan(*fault.reading))
                isNotANumberDrawn = true;
            else
                counts.insert(*fault.reading);
        }
        rest.events.resize(possible.events.size());
        rest.faults.resize(possible.faults.size());
        ASSERT_EQ(textOf(rest), textOf(possible)) << seed;
    }
    EXPECT_THAT(fans, IsSupersetOf({std::int64_t{10}, std::int64_t{-1}, std::int64_t{7}}));
    EXPECT_THAT(counts, IsSupersetOf({300.0, HUGE_VAL, 3e9, 0.0, 1.0}));
    EXPECT_TRUE(isNotANumberDrawn);
}

}  // namespace
}  // namespace airflow::simulation
