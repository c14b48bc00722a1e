#include "simulation/scenario/RunDiary.h"

namespace airflow::simulation {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Not;
using namespace std::chrono_literals;

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

TEST_P(ScenarioRunTest, noCallOfAnUntrustedPeerIsCarriedOut) {
    EXPECT_THAT(
        play(R"({"at":1,"call":"setManualRPM","fan":0,"rpm":3000},
                        {"at":2,"connect":"stranger","stranger":true},
                        {"at":3,"client":"stranger","call":"readState"})"),
        ElementsAre("0 listening", "1 app connects", "1 app calls setManualRPM", "1 fan 0 forced",
                    "1.08 app is told setManualRPM 0", "2 stranger connects",
                    "3 stranger calls readState", "3 stranger is gone", "3 fan 0 not forced"));
}

TEST_P(ScenarioRunTest, anUntrustedPeerThatConnectsAgainStaysUntrusted) {
    EXPECT_THAT(play(R"({"at":1,"connect":"stranger","stranger":true},
                        {"at":2,"client":"stranger","call":"fullBlast"},
                        {"at":3,"client":"stranger","call":"fullBlast"})"),
                ElementsAre("0 listening", "1 stranger connects", "2 stranger calls fullBlast",
                            "2 stranger is gone", "3 stranger connects",
                            "3 stranger calls fullBlast", "3 stranger is gone"));
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

TEST_P(ScenarioRunTest, aRefusedUntrustedPeerNeedNotDisconnect) {
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

}  // namespace
}  // namespace airflow::simulation
