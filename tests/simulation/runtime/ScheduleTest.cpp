#include <gmock/gmock.h>

#include <algorithm>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "concurrency/TaskScope.h"
#include "simulation/runtime/SimulatedRuntime.h"
#include "simulation/runtime/Steps.h"

namespace airflow::simulation {
namespace {

using namespace std::chrono_literals;
using namespace concurrency;
using testing::UnorderedElementsAre;

struct Trace {
    std::string text;
    std::uint64_t fingerprint = 0;

    bool operator==(const Trace&) const = default;
};

Trace runThreeTasks(SimulatedRuntime& runtime, int steps) {
    Trace trace;
    for (const char name : {'a', 'b', 'c'}) {
        runtime.detach("writer", writeSteps(runtime, &trace.text, name, steps));
    }
    runtime.advance(1s);
    trace.fingerprint = runtime.fingerprint();
    return trace;
}

Trace runThreeTasks(std::uint64_t seed, int steps = 10) {
    SimulatedRuntime runtime(seed);
    return runThreeTasks(runtime, steps);
}

TEST(ScheduleTest, seedZeroLetsExecutorsTakeTurns) {
    EXPECT_EQ(runThreeTasks(0, 3).text, "abcabcabc");
}

TEST(ScheduleTest, theSameSeedGivesTheSameRun) {
    for (const std::uint64_t seed : {0U, 1U, 2U, 3U}) {
        EXPECT_EQ(runThreeTasks(seed), runThreeTasks(seed)) << seed;
    }
}

TEST(ScheduleTest, everySeedGivesAnotherRun) {
    std::set<std::string> texts;
    std::set<std::uint64_t> fingerprints;
    for (std::uint64_t seed = 0; seed < 100; ++seed) {
        const Trace trace = runThreeTasks(seed);
        texts.insert(trace.text);
        fingerprints.insert(trace.fingerprint);
    }
    EXPECT_EQ(texts.size(), 100u);
    EXPECT_EQ(fingerprints.size(), 100u);
}

TEST(ScheduleTest, theFingerprintDependsOnTheMovementOfTime) {
    SimulatedRuntime once;
    SimulatedRuntime twice;
    once.advance(2s);
    twice.advance(1s);
    twice.advance(1s);
    EXPECT_NE(once.fingerprint(), twice.fingerprint());
}

TEST(ScheduleTest, theFingerprintDependsOnWhatIsRecorded) {
    SimulatedRuntime one;
    SimulatedRuntime other;
    one.record(1);
    other.record(2);
    EXPECT_NE(one.fingerprint(), other.fingerprint());
}

class Sequence : public Actor {
public:
    explicit Sequence(Runtime& runtime) : Actor(runtime.makeExecutor("sequence")) {}
    Task<void> append(int value) {
        values.push_back(value);
        co_return;
    }
    std::vector<int> values;
};

Task<void> appendAll(Sequence* sequence, int first) {
    for (int i = 0; i < 20; ++i) co_await sequence->append(first + i);
}

TEST(ScheduleTest, noSeedChangesTheOrderWithinATask) {
    for (std::uint64_t seed = 0; seed < 200; ++seed) {
        SimulatedRuntime runtime(seed);
        Sequence sequence(runtime);
        runtime.detach("low", appendAll(&sequence, 0));
        runtime.detach("high", appendAll(&sequence, 100));
        runtime.settle();
        std::vector<int> low;
        std::vector<int> high;
        for (const int value : sequence.values) (value < 100 ? low : high).push_back(value);
        ASSERT_EQ(low.size(), 20u);
        ASSERT_EQ(high.size(), 20u);
        EXPECT_TRUE(std::ranges::is_sorted(low));
        EXPECT_TRUE(std::ranges::is_sorted(high));
    }
}

/// Answers as it was told, then 0; remembers between how many it chose.
struct Script {
    std::vector<std::size_t> answers;
    std::vector<std::size_t> candidates;

    std::size_t choose(std::size_t count) {
        candidates.push_back(count);
        if (answers.size() < candidates.size()) answers.push_back(0);
        return answers[candidates.size() - 1];
    }
    /// The next script in order, or false after the last.
    bool advance() {
        while (!answers.empty() && answers.back() + 1 == candidates[answers.size() - 1]) {
            answers.pop_back();
        }
        candidates.clear();
        if (answers.empty()) return false;
        ++answers.back();
        return true;
    }
};

TEST(ScheduleTest, aTestCanChooseEverySchedule) {
    Script script;
    std::multiset<std::string> texts;
    do {
        SimulatedRuntime runtime([&script](std::size_t count) { return script.choose(count); });
        std::string text;
        runtime.detach("a", writeSteps(runtime, &text, 'a', 1));
        runtime.detach("b", writeSteps(runtime, &text, 'b', 1));
        runtime.settle();
        texts.insert(text);
    } while (script.advance());
    // Each task has two jobs: one that writes, one after its sleep. Six ways to merge them.
    EXPECT_THAT(texts, UnorderedElementsAre("ab", "ab", "ab", "ba", "ba", "ba"));
}

TEST(ScheduleTest, thereIsNoChoiceWhenOneExecutorHasWork) {
    int choices = 0;
    SimulatedRuntime runtime([&choices](std::size_t) {
        ++choices;
        return std::size_t{0};
    });
    std::string text;
    runtime.run(writeSteps(runtime, &text, 'a', 5));
    EXPECT_EQ(text, "aaaaa");
    EXPECT_EQ(choices, 0);
}

}  // namespace
}  // namespace airflow::simulation
