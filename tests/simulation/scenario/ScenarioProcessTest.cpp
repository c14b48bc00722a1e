// How the daemon's process ends and starts anew in a scenario.
#include <algorithm>

#include "simulation/scenario/RunDiary.h"

namespace airflow::simulation {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Not;
using namespace std::chrono_literals;

using ScenarioProcess = ScenarioRunTest;

constexpr const char* term = "log [com.brisquell.helper] SIGTERM: restoring Auto...";

TEST_P(ScenarioProcess, aSignalIsHandled) {
    EXPECT_THAT(play(R"({"at":1,"call":"setManualRPM","fan":0,"rpm":3000},
                        {"at":2,"signal":"SIGTERM"},{"at":3,"signal":"SIGTERM"})"),
                ElementsAre("0 listening", "1 app connects", "1 app calls setManualRPM",
                            "1 fan 0 forced", "1.08 app is told setManualRPM 0", "2 SIGTERM",
                            std::string("2 ") + term, "2 fan 0 not forced", "2 ends 143"));
    EXPECT_THAT(
        play(R"({"at":2,"signal":"SIGINT"})"),
        ElementsAre("0 listening", "2 SIGINT",
                    "2 log [com.brisquell.helper] SIGINT: restoring Auto...", "2 ends 130"));
}

TEST_P(ScenarioProcess, aKilledDaemonLeavesTheFanUntilTheNextStart) {
    EXPECT_THAT(
        play(R"({"at":1,"call":"setManualRPM","fan":0,"rpm":3000},{"at":2,"kill":true},
                        {"at":3,"call":"automatic"},{"at":3,"disconnect":"app"},
                        {"at":3,"connect":"app"},{"at":3,"signal":"SIGTERM"},
                        {"at":4,"start":true},{"at":5,"start":true},{"at":6,"call":"readState"})"),
        ElementsAre("0 listening", "1 app connects", "1 app calls setManualRPM", "1 fan 0 forced",
                    "1.08 app is told setManualRPM 0", "2 ends 137 by signal", "4 starts",
                    "4 fan 0 not forced", "4 listening", "6 app connects", "6 app calls readState",
                    "6 app is told readState not holding"));
}

TEST_P(ScenarioProcess, anUpgradeEndsTheDaemonAndTheNextOneServes) {
    EXPECT_THAT(play(R"({"at":1,"call":"shutdownForUpgrade"},{"at":2,"start":true},
                        {"at":3,"call":"helperVersion"})"),
                ElementsAre("0 listening", "1 app connects", "1 app calls shutdownForUpgrade",
                            "1 app is told shutdownForUpgrade",
                            "1.2 log [com.brisquell.helper] process exit: restoring Auto...",
                            "1.2 ends 0", "2 starts", "2 listening", "3 app connects",
                            "3 app calls helperVersion", "3 app is told helperVersion1.0.3+6"));
}

TEST_P(ScenarioProcess, aSignalAtAnyStepOfAClaimEndsTheDaemonAndTheNextStartMakesItGood) {
    int beforeTheFanIsForced = 0;
    for (int steps = 1; steps < 20; ++steps) {
        const auto lines = play(fmt::format(
            R"({{"at":1,"call":"fullBlast"}},{{"at":1,"signal":"SIGTERM","afterSteps":{}}},)"
            R"({{"at":5,"start":true}})",
            steps));
        const auto count = [&lines](const std::string& what) {
            return std::ranges::count_if(
                lines, [&what](const std::string& line) { return line.ends_with(what); });
        };
        EXPECT_EQ(count(" ends 143"), 1) << steps;
        EXPECT_EQ(count(" fan 0 not forced"), count(" fan 0 forced")) << steps;
        EXPECT_EQ(lines.back(), "5 listening");
        const auto signal = std::ranges::find(lines, "1 SIGTERM");
        if (std::find(lines.begin(), signal, "1 fan 0 forced") == signal) ++beforeTheFanIsForced;
    }
    EXPECT_GT(beforeTheFanIsForced, 2);
    EXPECT_LT(beforeTheFanIsForced, 19);
}

TEST_P(ScenarioProcess, aKillAtAnyStepOfAStartIsMadeGoodByTheNext) {
    for (int steps = 1; steps < 15; ++steps) {
        const auto lines = play(fmt::format(
            R"({{"at":1,"call":"fullBlast"}},{{"at":2,"kill":true}},{{"at":3,"start":true}},)"
            R"({{"at":3,"kill":true,"afterSteps":{}}},{{"at":4,"start":true}})",
            steps));
        EXPECT_THAT(lines, Contains("4 listening"));
        const auto back = std::ranges::count(lines, "3 fan 0 not forced") +
                          std::ranges::count(lines, "4 fan 0 not forced");
        EXPECT_EQ(back, 1) << steps;
        EXPECT_THAT(lines, Not(Contains("3 listening"))) << steps;
    }
}

TEST_P(ScenarioProcess, aKillSomeStepsIntoTheFirstStartComesBeforeItListens) {
    EXPECT_THAT(play(R"({"at":0,"kill":true,"afterSteps":3})"),
                ElementsAre("0 ends 137 by signal"));
}

TEST_P(ScenarioProcess, stepsAreCountedAcrossMoments) {
    // An idle daemon takes no steps once its guard has looked at the fans, so a kill waits for the
    // first that it takes.
    const auto lines = play(R"({"at":4,"kill":true,"afterSteps":1},{"at":5,"call":"readState"})");
    EXPECT_THAT(lines, ElementsAre("0 listening", "5 app connects", "5 app calls readState",
                                   "5 ends 137 by signal"));
}

TEST_P(ScenarioProcess, aProcessThatHasEndedIsSentNoSignal) {
    EXPECT_THAT(play(R"({"at":1,"call":"readState"},{"at":1,"kill":true,"afterSteps":1},
                        {"at":1,"signal":"SIGTERM","afterSteps":1})"),
                ElementsAre("0 listening", "1 app connects", "1 app calls readState",
                            "1 ends 137 by signal"));
}

INSTANTIATE_TEST_SUITE_P(Seeds, ScenarioProcess,
                         testing::Range(std::uint64_t{0}, std::uint64_t{21}));

class Restarts : public testing::Test {
protected:
    Restarts() {
        scenario.machine = machinePreset("laptop").value();
        scenario.faults = {{.key = "F0Md", .value = 0, .result = std::uint8_t{0x86}}};
        scenario.duration = 1s;
    }
    void play() {
        RunDiary diary;
        ScenarioRun(scenario, diary, 0).play(scenario.length());
        starts = std::ranges::count(diary.lines, "starts", [](const std::string& line) {
            return line.substr(line.find(' ') + 1);
        });
    }

    Scenario scenario;
    std::ptrdiff_t starts = 0;
};

TEST_F(Restarts, withoutEndInOneMomentAreStuck) {
    scenario.restartAfter = 0s;
    EXPECT_THROW(play(), Stuck);
}

TEST_F(Restarts, thatTakeTimeGoOnForAsLongAsTheScenario) {
    scenario.restartAfter = 10ms;
    play();
    EXPECT_EQ(starts, 101);
}

}  // namespace
}  // namespace airflow::simulation
