// Two commands claim one fan at once, and the SMC takes one of their requests only.
#include <gmock/gmock.h>

#include "ScenarioDiary.h"

namespace airflow::daemon {
namespace {

using testing::DoubleNear;
using testing::IsEmpty;
using testing::Optional;

const std::string planOfFan1 =
    R"({"fans":[{"fanID":1,"mode":{"fixedRPM":{"_0":3000}}}],"rules":[],
        "tuning":{"emaAlpha":0.2,"hysteresisCelsius":3,"maxDeltaRPMPerTick":150,
                  "minDwellSeconds":6}})";

/// The SMC is busy whenever fan 0 is asked for, but for one request at 3.02 s.
std::string oneForcingIsTaken(const std::string& events) {
    return R"("machine":"laptop","duration":30,"faults":[
        {"key":"F0Md","value":1,"latency":0.12,"from":3.02,"until":3.05},
        {"key":"F0Md","value":1,"result":130,"latency":0.12}],
        "events":[{"at":1,"call":"setManualRPM","fan":0,"rpm":3000},
                  {"at":1.1,"call":"setManualRPM","fan":0,"rpm":4000},
                  {"at":2,"heartbeatEvery":2,"until":29},)" +
           events + "]";
}

TEST(OverlappingClaims, ofWhichOneTookTheFanGiveItBackWhenANewerPlanLeavesItOut) {
    const ScenarioDiary run(
        oneForcingIsTaken(R"({"at":3.42,"call":"applyConfig","plan":)" + planOfFan1 + "}"));
    EXPECT_GT(run.secondsForced(0), 0);
    EXPECT_THAT(run.givenBack(0), Optional(DoubleNear(3.9, 0.5)));
    EXPECT_TRUE(run.isForced(1));
    EXPECT_THAT(run.guardActed, IsEmpty());
}

TEST(OverlappingClaims, ofWhichOneTookTheFanLeaveNoneForcedAfterARelease) {
    const ScenarioDiary run(oneForcingIsTaken(R"({"at":3.42,"call":"automatic"})"));
    EXPECT_GT(run.secondsForced(0), 0);
    EXPECT_THAT(run.givenBack(0), Optional(DoubleNear(3.9, 0.5)));
    EXPECT_THAT(run.guardActed, IsEmpty());
}

TEST(OverlappingClaims, ofWhichOneTookTheFanLetTheWatchdogEndThePlan) {
    const ScenarioDiary run(R"("machine":"laptop","duration":60,"faults":[
        {"key":"F0Md","value":1,"latency":0.12,"from":3.02,"until":3.05},
        {"key":"F0Md","value":1,"result":130,"latency":0.12}],
        "events":[{"at":1,"call":"setManualRPM","fan":0,"rpm":3000},
                  {"at":1.1,"call":"setManualRPM","fan":0,"rpm":4000}])");
    EXPECT_GT(run.secondsForced(0), 0);
    EXPECT_FALSE(run.isAnyForced());
}

}  // namespace
}  // namespace airflow::daemon
