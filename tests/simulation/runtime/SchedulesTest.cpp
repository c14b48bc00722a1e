#include <gmock/gmock.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "simulation/oracle/Oracle.h"
#include "simulation/runtime/Schedules.h"
#include "simulation/runtime/Steps.h"
#include "simulation/scenario/ScenarioRun.h"

namespace airflow::simulation {
namespace {

using concurrency::Runtime;
using concurrency::Task;
using testing::ElementsAre;
using testing::Pair;
using namespace std::chrono_literals;

using Usual = ScheduleBounds::Usual;
using Texts = std::map<std::string, int>;

constexpr std::size_t any = 1000;

/// Tasks called a, b and so on, each with so many steps and a job after the last; what they wrote.
std::string textOf(const SimulatedRuntime::Chooser& chooser, const std::vector<int>& steps) {
    SimulatedRuntime runtime(chooser);
    std::string text;
    char name = 'a';
    for (const int count : steps) {
        runtime.detach("writer", writeSteps(runtime, &text, name, count));
        ++name;
    }
    runtime.settle();
    return text;
}

ScheduleBounds bounds(std::size_t deviations, Usual usual = Usual::oldest) {
    return {.usual = usual, .deviations = deviations};
}

struct Explored {
    Exploration exploration;
    Texts texts;
};

Explored exploreTasks(const std::vector<int>& steps, ScheduleBounds within) {
    Explored explored;
    explored.exploration = explore(
        [&](const SimulatedRuntime::Chooser& chooser) -> std::optional<std::string> {
            ++explored.texts[textOf(chooser, steps)];
            return std::nullopt;
        },
        within);
    return explored;
}

// Two tasks of two jobs each: six ways to merge them.
TEST(Schedules, allOfASmallRunAreFoundEachOnce) {
    for (const Usual usual : {Usual::oldest, Usual::newest}) {
        const auto [exploration, texts] = exploreTasks({1, 1}, bounds(any, usual));
        EXPECT_EQ(exploration.schedules, 6U);
        EXPECT_TRUE(exploration.isComplete());
        EXPECT_EQ(exploration.failure.has_value(), false);
        EXPECT_THAT(texts, ElementsAre(Pair("ab", 3), Pair("ba", 3)));
    }
}

// Three tasks of two jobs each: 6! / (2! 2! 2!) ways.
TEST(Schedules, allOfThreeTasksAreFound) {
    const auto [exploration, texts] = exploreTasks({1, 1, 1}, bounds(any));
    EXPECT_EQ(exploration.schedules, 90U);
    EXPECT_TRUE(exploration.isComplete());
    EXPECT_EQ(texts.size(), 6U);
}

TEST(Schedules, withoutDeviationsThereIsTheUsualOne) {
    const auto inTurns = exploreTasks({3, 3}, bounds(0, Usual::oldest));
    EXPECT_THAT(inTurns.texts, ElementsAre(Pair("ababab", 1)));
    EXPECT_TRUE(inTurns.exploration.wasCut);
    EXPECT_FALSE(inTurns.exploration.isComplete());
    const auto newest = exploreTasks({3, 3}, bounds(0, Usual::newest));
    EXPECT_THAT(newest.texts, ElementsAre(Pair("bbbaaa", 1)));
}

TEST(Schedules, aDeviationDelaysTheOldestByAStep) {
    const auto explored = exploreTasks({2, 2}, bounds(1, Usual::oldest));
    EXPECT_THAT(explored.texts,
                ElementsAre(Pair("aabb", 1), Pair("abab", 3), Pair("abba", 1), Pair("baba", 1)));
    EXPECT_TRUE(explored.exploration.wasCut);
}

TEST(Schedules, aDeviationInterruptsTheNewestForAsLongAsTheOtherHasWork) {
    const auto explored = exploreTasks({2, 2}, bounds(1, Usual::newest));
    EXPECT_THAT(explored.texts, ElementsAre(Pair("aabb", 1), Pair("baab", 1), Pair("bbaa", 2)));
}

TEST(Schedules, enoughDeviationsAreAllOfThem) {
    const auto explored = exploreTasks({1, 1}, bounds(3));
    EXPECT_EQ(explored.exploration.schedules, 6U);
    EXPECT_FALSE(explored.exploration.wasCut);
    EXPECT_TRUE(exploreTasks({1, 1}, bounds(1)).exploration.wasCut);
}

TEST(Schedules, theSearchStopsAtItsLimit) {
    ScheduleBounds limited = bounds(any);
    limited.schedules = 5;
    EXPECT_TRUE(exploreTasks({1, 1}, limited).exploration.wasStopped);
    EXPECT_EQ(exploreTasks({1, 1}, limited).exploration.schedules, 5U);
    limited.schedules = 6;
    EXPECT_FALSE(exploreTasks({1, 1}, limited).exploration.wasStopped);
    EXPECT_TRUE(exploreTasks({1, 1}, limited).exploration.isComplete());
}

TEST(Schedules, theLongestListOfChoicesIsReported) {
    EXPECT_EQ(exploreTasks({1}, bounds(any)).exploration.longest, 0U);
    EXPECT_EQ(exploreTasks({1, 1}, bounds(any)).exploration.longest, 3U);
}

TEST(Schedules, aFailureEndsTheSearchAndCanBeReplayed) {
    for (const Usual usual : {Usual::oldest, Usual::newest}) {
        std::string last;
        const auto exploration = explore(
            [&](const SimulatedRuntime::Chooser& chooser) -> std::optional<std::string> {
                last = textOf(chooser, {3, 3});
                if (last != "abbaab") return std::nullopt;
                return "was abbaab";
            },
            bounds(any, usual));
        ASSERT_TRUE(exploration.failure);
        EXPECT_FALSE(exploration.isComplete());
        EXPECT_EQ(exploration.failure->what, "was abbaab");
        EXPECT_EQ(last, "abbaab");
        EXPECT_EQ(textOf(replaying(exploration.failure->choices), {3, 3}), "abbaab");
    }
}

TEST(Schedules, aRunThatDoesNotRepeatItselfIsAFailure) {
    int runs = 0;
    const auto withMore = explore(
        [&runs](const SimulatedRuntime::Chooser& choose) -> std::optional<std::string> {
            (void)choose(++runs > 1 ? 3 : 2);
            return std::nullopt;
        },
        bounds(any));
    ASSERT_TRUE(withMore.failure);
    EXPECT_EQ(withMore.failure->what, "the same choices did not give the same run");
    EXPECT_EQ(withMore.schedules, 2U);

    runs = 0;
    const auto withFewer = explore(
        [&runs](const SimulatedRuntime::Chooser& choose) -> std::optional<std::string> {
            if (++runs == 1) (void)choose(2);
            return std::nullopt;
        },
        bounds(any));
    ASSERT_TRUE(withFewer.failure);
    EXPECT_EQ(withFewer.failure->what, "the same choices did not give the same run");
}

TEST(Schedules, aRunWithoutChoicesIsRunOnce) {
    const auto explored = exploreTasks({3}, bounds(any));
    EXPECT_EQ(explored.exploration.schedules, 1U);
    EXPECT_TRUE(explored.exploration.isComplete());
    EXPECT_THAT(explored.texts, ElementsAre(Pair("aaa", 1)));
}

/// Two commands at 1 s, two at 2 s.
Scenario fourCommands() {
    Scenario scenario;
    scenario.machine.fans.push_back({.modeKey = "F0Md"});
    scenario.machine.hid = Temperatures{{"CPU", 50.0}};
    scenario.duration = 3s;
    for (const auto at : {1s, 2s}) {
        for (const char* client : {"app", "other"}) {
            scenario.events.emplace_back(
                Call{.at = at, .client = client, .method = Call::Method::automatic});
        }
    }
    return scenario;
}

std::size_t choicesIn(ChosenSchedule schedule, const Scenario& scenario) {
    std::size_t choices = 0;
    schedule.choose = [&choices](std::size_t) {
        ++choices;
        return std::size_t{0};
    };
    Oracle oracle(scenario);
    ScenarioRun(scenario, oracle, schedule).play(scenario.length());
    return choices;
}

TEST(Schedules, aScenarioLeavesTheChoiceToItsSchedule) {
    const Scenario scenario = fourCommands();
    const std::size_t first = choicesIn({.from = 1s, .until = 2s}, scenario);
    const std::size_t second = choicesIn({.from = 2s, .until = 3s}, scenario);
    EXPECT_GT(first, 0U);
    EXPECT_GT(second, 0U);
    EXPECT_EQ(choicesIn({.from = 1s}, scenario), first + second);
    EXPECT_EQ(choicesIn({.from = 3s}, scenario), 0U);
}

/// The hold loop's tick and a release at the same moment: the schedule decides which comes first.
TEST(Schedules, whatHappensInAMomentComesTogetherWithTheTimersOfThatMoment) {
    Scenario scenario = fourCommands();
    scenario.events = {Call{.at = 1s, .method = Call::Method::setManualRPM, .rpm = 3000},
                       Call{.at = 2500ms, .method = Call::Method::automatic}};
    std::set<std::uint64_t> traces;
    const auto run = [&](const SimulatedRuntime::Chooser& chooser) -> std::optional<std::string> {
        Oracle oracle(scenario);
        ScenarioRun(scenario, oracle, {.choose = chooser, .from = 2500ms, .until = 2501ms})
            .play(scenario.length());
        traces.insert(oracle.hash());
        return std::nullopt;
    };
    EXPECT_GT(explore(run, bounds(1)).schedules, 5U);
    EXPECT_GT(traces.size(), 1U);
}

}  // namespace
}  // namespace airflow::simulation
