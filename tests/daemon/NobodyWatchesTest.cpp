// Situations in which a fan could stay forced with nobody watching, through the whole daemon.
#include <gmock/gmock.h>

#include "ScenarioDiary.h"

namespace airflow::daemon {
namespace {

using testing::DoubleNear;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;

TEST(NobodyWatches, aClaimThatAReleaseSupersedesForcesNothingAfterIt) {
    const ScenarioDiary run(R"("machine":"laptop","duration":60,
        "faults":[{"key":"F0Md","value":1,"result":130,"until":15}],
        "temperatures":[{"at":20,"hid":{"PMU tdie1":99}}],
        "events":[{"at":1,"call":"setManualRPM","fan":0,"rpm":3000},
                  {"at":2,"heartbeatEvery":2,"until":59},
                  {"at":13,"call":"automatic"}])");
    EXPECT_FALSE(run.isAnyForced());
    EXPECT_THAT(run.codes, ElementsAre(0, 2));
}

TEST(NobodyWatches, aFullBlastOfAClientThatIsGoneForcesNothing) {
    for (std::uint64_t seed = 0; seed < 50; ++seed) {
        const ScenarioDiary run(R"("machine":"laptop","duration":40,
            "faults":[{"key":"FNum","operation":"read","latency":0.05,"from":0.5,"until":2}],
            "events":[{"at":1,"call":"fullBlast"},{"at":1.01,"disconnect":"app"}])",
                                seed);
        EXPECT_FALSE(run.isAnyForced()) << "seed " << seed;
        EXPECT_THAT(run.errors, IsEmpty()) << "seed " << seed;
    }
}

TEST(NobodyWatches, aRetryLeavesAPlanAloneThatCameDuringItsLastWrite) {
    const ScenarioDiary run(R"("machine":"laptop","duration":20,
        "faults":[{"key":"F0Md","value":0,"result":134,"latency":0.3,"from":1.5,"until":5}],
        "events":[{"at":1,"call":"setManualRPM","fan":0,"rpm":3000},{"at":2,"call":"automatic"},
                  {"at":4.5,"call":"setManualRPM","fan":0,"rpm":4000},
                  {"at":5,"heartbeatEvery":2,"until":19}])");
    EXPECT_TRUE(run.isForced(0));
    EXPECT_THAT(run.codes, ElementsAre(0, 7, 0));
}

TEST(NobodyWatches, aFanThatIsFoundWhileAReleaseIsUnderWayIsNotForced) {
    const ScenarioDiary run(R"("machine":"lower-case","duration":60,
        "faults":[{"key":"F0md","operation":"read","result":132,"until":2.4},
                  {"key":"F0Md","operation":"information","latency":0.4,"from":2.4}],
        "events":[{"at":1,"call":"setManualRPM","fan":0,"rpm":3000},
                  {"at":3.2,"call":"automatic"},{"at":4,"heartbeatEvery":2,"until":59}])");
    EXPECT_FALSE(run.isAnyForced());
}

/// Commands of a second client around the end of an upgrade, at every millisecond.
TEST(NobodyWatches, commandsDuringTheEndOfAnUpgradeForceNothing) {
    for (int later = 195; later < 215; ++later) {
        for (std::uint64_t seed = 0; seed < 10; ++seed) {
            const ScenarioDiary run(
                R"("machine":"laptop","duration":5,"faults":[{"key":"*","latency":0.0005}],
                "events":[{"at":0.2,"connect":"app"},{"at":0.2,"connect":"other"},
                          {"at":1,"call":"shutdownForUpgrade"},{"at":1.)" +
                    std::to_string(later) +
                    R"(,"client":"other","call":"setManualRPM","fan":0,"rpm":3000}])",
                seed);
            EXPECT_FALSE(run.isAnyForced()) << later << " ms, seed " << seed;
            EXPECT_THAT(run.statuses, ElementsAre(0));
        }
    }
}

TEST(NobodyWatches, commandsAroundASIGTERMForceNothing) {
    for (int later = 0; later < 20; ++later) {
        const std::string at = std::to_string(2 + later * 0.0005);
        const ScenarioDiary run(
            R"("machine":"unlock","duration":8,"faults":[{"key":"*","latency":0.001}],
            "events":[{"at":2.003,"signal":"SIGTERM"},
                      {"at":)" +
                at + R"(,"client":"one","call":"fullBlast"},
                      {"at":)" +
                at + R"(,"client":"two","call":"setPercent","fan":1,"percent":70}])",
            static_cast<std::uint64_t>(later));
        EXPECT_FALSE(run.isAnyForced()) << "at " << at;
        EXPECT_THAT(run.statuses, ElementsAre(143));
    }
}

/// 5,120 commands of twenty clients that go at once.
std::string backlog(const std::string& end) {
    std::string events;
    for (int client = 0; client < 20; ++client) {
        const std::string name = std::to_string(client);
        for (int call = 0; call < 256; ++call) {
            events += R"({"at":1,"client":")" + name +
                      R"(","call":"setPercent","fan":0,"percent":)" +
                      std::to_string(30 + call % 70) + "},";
        }
        if (end.empty()) events += R"({"at":1.001,"disconnect":")" + name + R"("},)";
    }
    events += end.empty() ? R"({"at":1.002,"wallClockJump":0})" : end;
    return R"("machine":"laptop","duration":90,"faults":[{"key":"*","latency":0.0005},
              {"key":"*","operation":"read","latency":0.0005}],"events":[)" +
           events + "]";
}

TEST(NobodyWatches, aBacklogOfClientsThatAreGoneForcesNothingAfterThem) {
    const ScenarioDiary run(backlog(""));
    EXPECT_FALSE(run.isAnyForced());
    EXPECT_EQ(run.secondsForced(0, 5), 0);
}

TEST(NobodyWatches, theThreeSecondsOfAnExitAreEnoughWhateverIsQueued) {
    const ScenarioDiary run(backlog(R"({"at":1.5,"signal":"SIGTERM"})"));
    EXPECT_FALSE(run.isAnyForced());
    EXPECT_THAT(run.statuses, ElementsAre(143));
}

TEST(NobodyWatches, aWallClockThatWasSetBackDelaysTheWatchdogByLessThanTenSeconds) {
    const ScenarioDiary run(R"("machine":"laptop","duration":60,
        "events":[{"at":1,"call":"fullBlast"},{"at":5,"wallClockJump":-3600}])");
    EXPECT_THAT(run.givenBack(0), Optional(DoubleNear(22.5, 1.5)));
    EXPECT_THAT(run.errors, ElementsAre("no heartbeat for >15s — released to Auto"));
}

/// A hang of a minute, from this second on. The tick that it meets does not see that it gets hot,
/// and tells it when the fans are back long since.
std::string hangOfTheHub(const std::string& from, const std::string& events = "") {
    return R"("machine":"laptop","duration":90,
              "hidHangs":[{"from":)" +
           from + R"(,"until":75}],"temperatures":[{"at":)" + from +
           R"(,"hid":{"PMU tdie1":110}}],"events":[{"at":1,"call":"fullBlast"})" + events + "]";
}

TEST(NobodyWatches, aHangOfTheHIDHubEndsControlWithinTenSecondsThoughTheClientIsHeard) {
    const ScenarioDiary run(hangOfTheHub("5", R"(,{"at":2,"heartbeatEvery":2,"until":89})"));
    for (const std::size_t fan : {0U, 1U}) {
        EXPECT_THAT(run.givenBack(fan), Optional(DoubleNear(13, 2))) << "fan " << fan;
    }
    EXPECT_THAT(run.errors, ElementsAre("safety checks overdue — released to Auto"));
}

/// The client was last heard after a second, and the last check was made before the twelfth.
TEST(NobodyWatches, aHangOfTheHIDHubDelaysTheWatchdogByLessThanThreeSeconds) {
    const ScenarioDiary run(hangOfTheHub("12"));
    for (const std::size_t fan : {0U, 1U}) {
        EXPECT_THAT(run.givenBack(fan), Optional(DoubleNear(17.5, 1.5))) << "fan " << fan;
    }
    EXPECT_THAT(run.errors, ElementsAre("no heartbeat for >15s — released to Auto"));
}

TEST(NobodyWatches, aFanWhoseModeKeyCannotBeReadAtTheStartIsFoundOnceItCanBeRead) {
    const ScenarioDiary run(R"("machine":"left-forced","duration":60,
        "faults":[{"key":"F1Md","operation":"read","result":1,"until":20}])");
    EXPECT_FALSE(run.isForced(0));
    EXPECT_THAT(run.givenBack(1), Optional(DoubleNear(21.5, 1.5)));
    EXPECT_THAT(run.log, testing::HasSubstr("listening"));
}

/// What the recovery had asked before the signal is withheld, and the exit asks again.
TEST(NobodyWatches, aSIGTERMAtAnyStepOfTheStartLeavesNoFanForcedOnceTheHandlersStand) {
    for (int steps = 0; steps < 40; ++steps) {
        const ScenarioDiary run(R"("machine":"left-forced","duration":5,
            "events":[{"at":0,"signal":"SIGTERM","afterSteps":)" +
                                std::to_string(steps) + "}]");
        const bool wasHandled = run.log.find("restoring") != std::string::npos;
        EXPECT_EQ(run.isAnyForced(), !wasHandled) << steps;
        EXPECT_THAT(run.statuses, ElementsAre(143));
    }
}

TEST(NobodyWatches, aFanThatTheCountLeavesOutAtTheStartIsFoundSoonAfter) {
    const ScenarioDiary run(R"("machine":"left-forced","duration":10,
        "faults":[{"key":"FNum","operation":"read","reading":1,"until":1}])");
    EXPECT_THAT(run.givenBack(1), Optional(DoubleNear(2, 1)));
}

TEST(NobodyWatches, aFanWhoseReleaseTheSMCFalselyReportedIsGivenBackOnceItAnswersTruly) {
    const ScenarioDiary run(R"("machine":"laptop","duration":60,
        "faults":[{"key":"F0Md","value":0,"effect":"ignored","until":30}],
        "events":[{"at":1,"call":"setManualRPM","fan":0,"rpm":3000},{"at":5,"call":"automatic"}])");
    EXPECT_THAT(run.givenBack(0), Optional(DoubleNear(31.5, 1.5)));
}

TEST(NobodyWatches, aFanThatTheSMCRefusesAndForcesAllTheSameIsGivenBack) {
    const ScenarioDiary run(R"("machine":"laptop","duration":60,
        "faults":[{"key":"F0Md","value":1,"result":135,"effect":"applied"}],
        "events":[{"at":1,"call":"setManualRPM","fan":0,"rpm":3000},
                  {"at":3,"call":"setManualRPM","fan":1,"rpm":3000},
                  {"at":4,"call":"applyConfig","plan":{"fans":[{"fanID":1,"mode":{"fixedRPM":{"_0":3000}}}],"rules":[],"tuning":{"emaAlpha":0.2,"hysteresisCelsius":3,"maxDeltaRPMPerTick":150,"minDwellSeconds":6}}},
                  {"at":5,"heartbeatEvery":5,"until":60}])");
    EXPECT_FALSE(run.isForced(0));
    EXPECT_TRUE(run.isForced(1));
}

/// What the plan holds stays held while the guard gives back a fan that is not the plan's.
TEST(NobodyWatches, aFanThatRefusedBothWaysIsGivenBackWithoutEndingThePlan) {
    const ScenarioDiary run(R"("machine":"laptop","duration":40,
        "faults":[{"key":"F1Md","result":135,"effect":"applied","from":0.5,"until":12}],
        "events":[{"at":1,"call":"restoreAuto"},
                  {"at":2.5,"call":"setPercent","fan":1,"percent":42},
                  {"at":5,"call":"applyConfig","plan":{"fans":[{"fanID":0,"mode":{"fixedRPM":{"_0":3000}}}],"rules":[],"tuning":{"emaAlpha":0.2,"hysteresisCelsius":3,"maxDeltaRPMPerTick":150,"minDwellSeconds":6}}},
                  {"at":6,"heartbeatEvery":5,"until":40}])");
    EXPECT_TRUE(run.isForced(0));
    EXPECT_FALSE(run.isForced(1));
    EXPECT_GT(run.secondsForced(1), 0);
}

TEST(NobodyWatches, noNumberOfAFanStopsTheProcess) {
    for (const char* fan : {"10", "-1", "9223372036854775807", "-9223372036854775808"}) {
        const ScenarioDiary run(R"("machine":"laptop","duration":10,
            "events":[{"at":1,"call":"setManualRPM","rpm":3000,"fan":)" +
                                std::string(fan) + "}]");
        EXPECT_THAT(run.codes, ElementsAre(7)) << fan;
        EXPECT_THAT(run.errors, Each(testing::HasSubstr("neither F" + std::string(fan) + "Md")));
        EXPECT_THAT(run.statuses, IsEmpty());
    }
}

}  // namespace
}  // namespace airflow::daemon
