// Fans that the SMC hides for a while, and somebody asks for all fans to go back.
#include <gmock/gmock.h>

#include "ScenarioDiary.h"

namespace airflow::daemon {
namespace {

using testing::DoubleNear;
using testing::IsEmpty;
using testing::Optional;

/// Neither the start nor the guard's first look can know of the fans.
std::string hiddenUntil10(const std::string& events) {
    return R"("machine":"left-forced","duration":30,"faults":[
        {"key":"FNum","operation":"read","reading":0},
        {"key":"F0Md","operation":"information","result":132,"until":10},
        {"key":"F1Md","operation":"information","result":132,"until":10}],
        "events":[)" +
           events + "]";
}

TEST(HiddenFans, areFoundTwoSecondsAfterAReleaseThatKnewOfNoFan) {
    const ScenarioDiary run(hiddenUntil10(R"({"at":12,"call":"restoreAuto"})"));
    for (const std::size_t fan : {0U, 1U}) {
        EXPECT_THAT(run.givenBack(fan), Optional(DoubleNear(14.5, 0.6))) << "fan " << fan;
    }
    EXPECT_FALSE(run.guardActed.empty());
}

TEST(HiddenFans, areFoundTwoSecondsAfterTheLastClientThatHeldNoFanIsGone) {
    const ScenarioDiary run(
        hiddenUntil10(R"({"at":1,"connect":"app"},{"at":12,"disconnect":"app"})"));
    for (const std::size_t fan : {0U, 1U}) {
        EXPECT_THAT(run.givenBack(fan), Optional(DoubleNear(14.5, 0.6))) << "fan " << fan;
    }
}

/// Nobody has asked for anything, so nobody looks.
TEST(HiddenFans, areNotLookedForWhenNobodyAsksForARelease) {
    const ScenarioDiary run(hiddenUntil10(R"({"at":1,"heartbeatEvery":5,"until":29})"));
    EXPECT_TRUE(run.isForced(0));
    EXPECT_THAT(run.guardActed, IsEmpty());
}

}  // namespace
}  // namespace airflow::daemon
