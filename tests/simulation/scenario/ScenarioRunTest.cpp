#include <fmt/format.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

#include "simulation/scenario/ScenarioRun.h"
#include "support/ScenarioText.h"

namespace airflow::simulation {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Not;
using namespace std::chrono_literals;

/// Writes down everything but requests, states and the passing of seconds.
class Diary final : public ScenarioObserver {
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
        Diary diary;
        ScenarioRun(*scenario, diary, GetParam()).play(scenario->length());
        EXPECT_EQ(diary.lines.at(0), "0 starts");
        diary.lines.erase(diary.lines.begin());
        return diary.lines;
    }
};

constexpr const char* term = "log [com.brisquell.helper] SIGTERM: restoring Auto...";

TEST_P(ScenarioRunTest, aHubThatHangsHoldsBackWhoeverReadsItAndNobodyElse) {
    EXPECT_THAT(play(R"({"at":1,"call":"setManualRPM","fan":0,"rpm":2000},
                        {"at":2,"call":"helperVersion"},{"at":3,"heartbeatEvery":5,"until":15})",
                     R"(,"hidHangs":[{"from":0.5,"until":20}],"duration":20.08)"),
                testing::AllOf(Contains(testing::StartsWith("2 app is told helperVersion")),
                               Contains("20.08 app is told setManualRPM 0")));
}

TEST_P(ScenarioRunTest, aDaemonThatIsKilledWhileTheHubHangsStartsAnew) {
    EXPECT_THAT(play(R"({"at":1,"call":"setManualRPM","fan":0,"rpm":2000},{"at":5,"kill":true},
                        {"at":6,"start":true},{"at":7,"call":"setManualRPM","fan":0,"rpm":2000})",
                     R"(,"hidHangs":[{"from":0.5,"until":20}],"duration":20.5)"),
                testing::AllOf(Contains("5 ends 137 by signal"), Contains("6 listening"),
                               Contains("20.08 app is told setManualRPM 0")));
}

TEST_P(ScenarioRunTest, aClientConnectsWithItsFirstCallAndOnlyThen) {
    EXPECT_THAT(play(R"({"at":1,"call":"helperVersion"},{"at":2,"call":"readState"},
                        {"at":3,"client":"other","call":"restoreAuto"})"),
                ElementsAre("0 listening", "1 app connects", "1 app calls helperVersion",
                            "1 app is told helperVersion1.0.3+6", "2 app calls readState",
                            "2 app is told readState not holding", "3 other connects",
                            "3 other calls restoreAuto", "3 other is told restoreAuto"));
}

TEST_P(ScenarioRunTest, aClientMayConnectBeforeItCallsAndConnectsOnce) {
    EXPECT_THAT(play(R"({"at":1,"connect":"app"},{"at":2,"connect":"app"},
                        {"at":3,"call":"heartbeat"})"),
                ElementsAre("0 listening", "1 app connects", "3 app calls heartbeat"));
}

TEST_P(ScenarioRunTest, theEndOfAConnectionGivesTheFanBackAndTheClientMayComeAgain) {
    EXPECT_THAT(play(R"({"at":1,"call":"setManualRPM","fan":0,"rpm":3000},
                        {"at":2,"disconnect":"app"},{"at":2.5,"disconnect":"app"},
                        {"at":3,"call":"readState"})"),
                ElementsAre("0 listening", "1 app connects", "1 app calls setManualRPM",
                            "1 fan 0 forced", "1.08 app is told setManualRPM 0", "2 app is gone",
                            "2 fan 0 not forced", "3 app connects", "3 app calls readState",
                            "3 app is told readState not holding"));
}

TEST_P(ScenarioRunTest, aClientThatWasNeverThereCannotGo) {
    EXPECT_THAT(play(R"({"at":1,"disconnect":"nobody"})"), ElementsAre("0 listening"));
}

TEST_P(ScenarioRunTest, anAnswerToAClientThatIsGoneReachesNobody) {
    const auto lines = play(R"({"at":1,"call":"fullBlast"},{"at":1,"disconnect":"app"},
                               {"at":1.05,"call":"readState"})");
    EXPECT_THAT(lines, Not(Contains("1.08 app is told fullBlast 0")));
    EXPECT_THAT(lines, Contains("1.05 app connects"));
}

TEST_P(ScenarioRunTest, noneOfAStrangersCallsIsCarriedOut) {
    EXPECT_THAT(
        play(R"({"at":1,"call":"setManualRPM","fan":0,"rpm":3000},
                        {"at":2,"connect":"stranger","stranger":true},
                        {"at":3,"client":"stranger","call":"readState"})"),
        ElementsAre("0 listening", "1 app connects", "1 app calls setManualRPM", "1 fan 0 forced",
                    "1.08 app is told setManualRPM 0", "2 stranger connects",
                    "3 stranger calls readState", "3 stranger is gone", "3 fan 0 not forced"));
}

TEST_P(ScenarioRunTest, aStrangerThatConnectsAgainIsStillOne) {
    EXPECT_THAT(play(R"({"at":1,"connect":"stranger","stranger":true},
                        {"at":2,"client":"stranger","call":"fullBlast"},
                        {"at":3,"client":"stranger","call":"fullBlast"})"),
                ElementsAre("0 listening", "1 stranger connects", "2 stranger calls fullBlast",
                            "2 stranger is gone", "3 stranger connects",
                            "3 stranger calls fullBlast", "3 stranger is gone"));
}

TEST_P(ScenarioRunTest, aSignalIsHandled) {
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

TEST_P(ScenarioRunTest, aKilledDaemonLeavesTheFanUntilTheNextStart) {
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

TEST_P(ScenarioRunTest, anUpgradeEndsTheDaemonAndTheNextOneServes) {
    EXPECT_THAT(play(R"({"at":1,"call":"shutdownForUpgrade"},{"at":2,"start":true},
                        {"at":3,"call":"helperVersion"})"),
                ElementsAre("0 listening", "1 app connects", "1 app calls shutdownForUpgrade",
                            "1 app is told shutdownForUpgrade",
                            "1.2 log [com.brisquell.helper] process exit: restoring Auto...",
                            "1.2 ends 0", "2 starts", "2 listening", "3 app connects",
                            "3 app calls helperVersion", "3 app is told helperVersion1.0.3+6"));
}

TEST_P(ScenarioRunTest, heartbeatsOfEachClientAreItsOwn) {
    EXPECT_THAT(play(R"({"at":1,"client":"other","heartbeatEvery":1,"until":2})"),
                ElementsAre("0 listening", "1 other connects", "1 other calls heartbeat",
                            "2 other calls heartbeat"));
}

TEST_P(ScenarioRunTest, aDocumentIsSentAsItIs) {
    EXPECT_THAT(play(R"({"at":1,"call":"applyConfig","document":"no plan"},
                        {"at":2,"call":"applyConfig","document":""},
                        {"at":3,"call":"applyConfig","plan":{"fans":[],"rules":[],"tuning":{
                         "emaAlpha":0.3,"hysteresisCelsius":2,"maxDeltaRPMPerTick":400,
                         "minDwellSeconds":3}}})"),
                ElementsAre("0 listening", "1 app connects", "1 app calls applyConfig",
                            "1 app is told applyConfig 7", "2 app calls applyConfig",
                            "2 app is told applyConfig 7", "3 app calls applyConfig",
                            "3 app is told applyConfig 0"));
}

TEST_P(ScenarioRunTest, aSignalAtAnyStepOfAClaimEndsTheDaemonAndTheNextStartMakesItGood) {
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

TEST_P(ScenarioRunTest, aKillAtAnyStepOfAStartIsMadeGoodByTheNext) {
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

TEST_P(ScenarioRunTest, aKillSomeStepsIntoTheFirstStartComesBeforeItListens) {
    EXPECT_THAT(play(R"({"at":0,"kill":true,"afterSteps":3})"),
                ElementsAre("0 ends 137 by signal"));
}

TEST_P(ScenarioRunTest, stepsAreCountedAcrossMoments) {
    // An idle daemon takes no steps once its guard has looked at the fans, so a kill waits for the
    // first that it takes.
    const auto lines = play(R"({"at":4,"kill":true,"afterSteps":1},{"at":5,"call":"readState"})");
    EXPECT_THAT(lines, ElementsAre("0 listening", "5 app connects", "5 app calls readState",
                                   "5 ends 137 by signal"));
}

TEST_P(ScenarioRunTest, aProcessThatHasEndedIsSentNoSignal) {
    EXPECT_THAT(play(R"({"at":1,"call":"readState"},{"at":1,"kill":true,"afterSteps":1},
                        {"at":1,"signal":"SIGTERM","afterSteps":1})"),
                ElementsAre("0 listening", "1 app connects", "1 app calls readState",
                            "1 ends 137 by signal"));
}

TEST_P(ScenarioRunTest, aRefusedStrangerNeedNotGo) {
    EXPECT_THAT(play(R"({"at":1,"connect":"stranger","stranger":true},
                        {"at":2,"client":"stranger","call":"readState"},
                        {"at":3,"disconnect":"stranger"})"),
                ElementsAre("0 listening", "1 stranger connects", "2 stranger calls readState",
                            "2 stranger is gone"));
}

TEST_P(ScenarioRunTest, aRunIsTheSameTwice) {
    const std::string events = R"({"at":1,"call":"fullBlast"},{"at":2,"kill":true,"afterSteps":3},
        {"at":3,"start":true},{"at":4,"call":"fullBlast"},{"at":5,"disconnect":"app"},
        {"at":6,"signal":"SIGINT"})";
    EXPECT_EQ(play(events), play(events));
}

INSTANTIATE_TEST_SUITE_P(Seeds, ScenarioRunTest,
                         testing::Range(std::uint64_t{0}, std::uint64_t{21}));

class Restarts : public testing::Test {
protected:
    Restarts() {
        scenario.machine = machinePreset("laptop").value();
        scenario.faults = {{.key = "F0Md", .value = 0, .result = std::uint8_t{0x86}}};
        scenario.duration = 1s;
    }
    void play() {
        Diary diary;
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
