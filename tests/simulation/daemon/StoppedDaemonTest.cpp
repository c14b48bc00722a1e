// A simulated daemon that meets a bug: its process stops itself, and the one that simulates it goes
// on.
#include <fmt/format.h>
#include <gmock/gmock.h>

#include <chrono>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "concurrency/Require.h"
#include "concurrency/StopGuard.h"
#include "json/Decoder.h"
#include "json/Writer.h"
#include "simulation/scenario/ScenarioRun.h"

namespace airflow::simulation {
namespace {

using testing::ElementsAre;
using testing::IsSupersetOf;
using namespace std::chrono_literals;

/// Writes down starts, modes, log lines and ends. What a test puts into `while...` runs inside the
/// daemon, as a part of it that is wrong.
class Witness : public ScenarioObserver {
public:
    void access(const SMCAccess& access) override {
        const bool isClaim = access.operation == Fault::Operation::write && access.key == "F0Md" &&
                             access.value == 1;
        if (isClaim && whileClaiming) whileClaiming();
    }
    void modeChanged(concurrency::Duration time, std::size_t fan, FanMode mode) override {
        note(time, fmt::format("fan {} {}", fan, mode == FanMode::forced ? "forced" : "back"));
    }
    void published(concurrency::Duration, const control::ControlState& state) override {
        if (state.isHolding && whilePublishing) whilePublishing();
    }
    void called(concurrency::Duration, std::string_view, const Call&) override {}
    void replied(concurrency::Duration time, const Reply& reply) override {
        if (whileReplying) whileReplying();
        note(time, fmt::format("replies to {}", nameOf(reply.method)));
    }
    void logged(concurrency::Duration time, std::string_view line) override {
        note(time, std::string(line.substr(0, line.size() - 1)));
    }
    void second(concurrency::Duration, SimulatedMac&) override {}
    void started(concurrency::Duration time) override { note(time, "starts"); }
    void ended(const ProcessEnd& end) override {
        note(end.time, fmt::format("ends {}{}", end.status, end.bySignal ? " by signal" : ""));
    }

    std::vector<std::string> lines;
    std::function<void()> whileClaiming;
    std::function<void()> whilePublishing;
    std::function<void()> whileReplying;

protected:
    void note(concurrency::Duration time, const std::string& what) {
        lines.push_back(fmt::format("{} {}", concurrency::inSeconds(time), what));
    }
};

class ExpectingWitness final : public Witness {
public:
    void metBug(concurrency::Duration time, std::string_view violation) override {
        note(time, fmt::format("told: {}", violation));
    }
};

Scenario scenarioOf(const std::string& events, const std::string& more = "") {
    auto scenario = json::decode<Scenario>(
        R"({"machine":{"fans":[{"modeKey":"F0Md"}],"hid":{"CPU":50},"smc":{}},"events":[)" +
        events + "]" + more + "}");
    EXPECT_TRUE(scenario) << scenario.error().describe("scenario");
    return std::move(*scenario);
}

void play(const Scenario& scenario, Witness& witness, std::uint64_t seed) {
    ScenarioRun(scenario, witness, seed).play(scenario.length());
}

constexpr const char* listening =
    "[com.brisquell.helper] listening on com.brisquell.helper (build 1.0.3+6)";
constexpr const char* claims = R"({"at":1,"call":"setManualRPM","fan":0,"rpm":3000})";

class StoppedDaemonTest : public testing::TestWithParam<std::uint64_t> {
protected:
    void play(const Scenario& scenario) { simulation::play(scenario, witness, GetParam()); }

    ExpectingWitness witness;
};

TEST_P(StoppedDaemonTest, aStopOfTheScenarioLeavesTheFansAsTheyAre) {
    play(scenarioOf(std::string(claims) + R"(,{"at":5,"stop":true})"));
    EXPECT_THAT(witness.lines,
                ElementsAre("0 starts", std::string("0 ") + listening, "1 fan 0 forced",
                            "1.08 replies to setManualRPM",
                            "5 [com.brisquell.helper] A bug: the scenario asked for one.",
                            "5 ends 134 by signal"));
}

TEST_P(StoppedDaemonTest, aStopWithoutADaemonDoesNothing) {
    play(scenarioOf(R"({"at":1,"kill":true},{"at":2,"stop":true})"));
    EXPECT_THAT(witness.lines,
                ElementsAre("0 starts", std::string("0 ") + listening, "1 ends 137 by signal"));
}

TEST_P(StoppedDaemonTest, theNextLifeGivesBackWhatAStopLeftForced) {
    play(scenarioOf(std::string(claims) + R"(,{"at":5,"stop":true})", R"(,"restartAfter":1)"));
    EXPECT_THAT(witness.lines, IsSupersetOf({"5 ends 134 by signal", "6 starts", "6 fan 0 back"}));
}

TEST_P(StoppedDaemonTest, aBugInsideTheDaemonEndsItsProcessWhereItIs) {
    for (auto* place : {&witness.whileClaiming, &witness.whilePublishing, &witness.whileReplying}) {
        witness.lines.clear();
        *place = [] { concurrency::require(false, "this holds"); };
        play(scenarioOf(std::string(claims), R"(,"restartAfter":2)"));
        *place = nullptr;
        // Nothing of the process comes between the bug and its end.
        const auto line = std::ranges::find_if(witness.lines, [](const std::string& each) {
            return each.ends_with(" [com.brisquell.helper] A bug: expected that this holds.");
        });
        ASSERT_GE(witness.lines.end() - line, 5);
        const std::string time = line->substr(0, line->find(' '));
        EXPECT_EQ(line[1], time + " told: A bug: expected that this holds.");
        EXPECT_EQ(line[2], time + " ends 134 by signal");
        EXPECT_THAT(line[3], testing::EndsWith(" starts"));
    }
}

TEST_P(StoppedDaemonTest, anExceptionThatNobodyCatchesIsABugToo) {
    witness.whileReplying = [] { throw std::runtime_error("out of luck"); };
    play(scenarioOf(claims));
    EXPECT_THAT(
        witness.lines,
        ElementsAre("0 starts", std::string("0 ") + listening, "1 fan 0 forced",
                    "1.08 [com.brisquell.helper] A bug: nobody caught an exception: out of luck",
                    "1.08 told: A bug: nobody caught an exception: out of luck",
                    "1.08 ends 134 by signal"));
}

TEST_P(StoppedDaemonTest, aBugThatIsMetWhileAnotherUnwindsIsNotReported) {
    witness.whileReplying = [] {
        try {
            concurrency::stopProcess("first");
        } catch (const concurrency::ProcessStop&) {
            concurrency::stopProcess("second");
        }
    };
    play(scenarioOf(claims));
    EXPECT_THAT(witness.lines, ElementsAre("0 starts", std::string("0 ") + listening,
                                           "1 fan 0 forced", "1.08 [com.brisquell.helper] first",
                                           "1.08 told: first", "1.08 ends 134 by signal"));
}

TEST_P(StoppedDaemonTest, aRunWithABugIsTheSameTwice) {
    witness.whilePublishing = [] { concurrency::stopProcess("no"); };
    const Scenario scenario = scenarioOf(claims, R"(,"restartAfter":2)");
    play(scenario);
    const auto first = std::exchange(witness.lines, {});
    play(scenario);
    EXPECT_EQ(witness.lines, first);
}

INSTANTIATE_TEST_SUITE_P(Seeds, StoppedDaemonTest,
                         testing::Range(std::uint64_t{0}, std::uint64_t{21}));

TEST(StoppedDaemonDeathTest, aBugThatNobodyExpectsEndsTheProcessThatSimulatesTheDaemon) {
    Witness witness;
    witness.whilePublishing = [] { concurrency::require(false, "this holds"); };
    EXPECT_DEATH(play(scenarioOf(claims), witness, 0), "^A bug: expected that this holds\\.\n$");
}

TEST(StoppedDaemon, aStopSurvivesBeingWritten) {
    const Scenario scenario = scenarioOf(R"({"at":1.5,"stop":true,"afterSteps":7})");
    const auto written = json::encode(scenario);
    ASSERT_TRUE(written);
    EXPECT_THAT(*written, testing::HasSubstr(R"({"at":1.5,"stop":true,"afterSteps":7})"));
    const auto again = json::decode<Scenario>(*written);
    ASSERT_TRUE(again);
    const auto& event = std::get<ProcessEvent>(again->events.at(0));
    EXPECT_EQ(event.at, 1500ms);
    EXPECT_EQ(event.kind, ProcessEvent::Kind::stop);
    EXPECT_EQ(event.afterSteps, 7u);
}

}  // namespace
}  // namespace airflow::simulation
