#include <gmock/gmock.h>

#include "control/ControlledFans.h"

namespace airflow::control {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

void take(ControlledFans& fans, ControlledFans::Fan fan) {
    fans.forced(fans.beginForcing(fan));
}
void giveBack(ControlledFans& fans, ControlledFans::Fan fan) {
    fans.released(fans.beginRelease(fan));
}

TEST(ControlledFans, beginWithNothing) {
    const ControlledFans fans;
    EXPECT_THAT(fans.claimed(), IsEmpty());
    EXPECT_THAT(fans.pending(), IsEmpty());
    EXPECT_THAT(fans.targetsRPM(), IsEmpty());
    EXPECT_THAT(fans.modes(), IsEmpty());
    EXPECT_THAT(fans.stopped(), IsEmpty());
    EXPECT_FALSE(fans.isAnyHeld());
}

TEST(ControlledFans, countAFanWhoseForcingWasTaken) {
    ControlledFans fans;
    take(fans, 1);
    EXPECT_THAT(fans.claimed(), ElementsAre(1));
    EXPECT_THAT(fans.pending(), IsEmpty());
}

TEST(ControlledFans, doNotCountAFanWhoseForcingHasOnlyBegun) {
    ControlledFans fans;
    (void)fans.beginForcing(1);
    EXPECT_THAT(fans.claimed(), IsEmpty());
}

TEST(ControlledFans, forgetAllOfAFanThatWasGivenBackButThatItStandsStill) {
    ControlledFans fans;
    take(fans, 0);
    fans.setMode(0, ControlMode::curve);
    fans.setTarget(0, 3000);
    fans.setStopped({0});
    fans.handBack(0);
    giveBack(fans, 0);
    EXPECT_THAT(fans.claimed(), IsEmpty());
    EXPECT_THAT(fans.pending(), IsEmpty());
    EXPECT_THAT(fans.targetsRPM(), IsEmpty());
    EXPECT_THAT(fans.modes(), IsEmpty());
    EXPECT_THAT(fans.stopped(), ElementsAre(0));
}

TEST(ControlledFans, forgetNothingOfTheFansBesideTheOneThatWasGivenBack) {
    ControlledFans fans;
    for (const ControlledFans::Fan fan : {0, 1}) {
        take(fans, fan);
        fans.setMode(fan, ControlMode::manual);
        fans.setTarget(fan, 3000);
        fans.handBack(fan);
    }
    giveBack(fans, 0);
    EXPECT_THAT(fans.claimed(), ElementsAre(1));
    EXPECT_THAT(fans.pending(), ElementsAre(1));
    EXPECT_THAT(fans.targetsRPM(), ElementsAre(Pair(1, 3000)));
    EXPECT_THAT(fans.modes(), ElementsAre(Pair(1, ControlMode::manual)));
}

TEST(ControlledFans, keepAFanThatRefusesToGoBackAndItsTarget) {
    ControlledFans fans;
    take(fans, 0);
    fans.setMode(0, ControlMode::manual);
    fans.setTarget(0, 3000);
    fans.refusedToGoBack(fans.beginRelease(0));
    EXPECT_THAT(fans.claimed(), ElementsAre(0));
    EXPECT_THAT(fans.pending(), ElementsAre(0));
    EXPECT_THAT(fans.targetsRPM(), ElementsAre(Pair(0, 3000)));
    EXPECT_THAT(fans.modes(), ElementsAre(Pair(0, ControlMode::manual)));
}

TEST(ControlledFans, haveStillToGiveBackAFanThatRefusesWithoutHavingBeenClaimed) {
    ControlledFans fans;
    fans.refusedToGoBack(fans.beginRelease(0));
    EXPECT_THAT(fans.claimed(), IsEmpty());
    EXPECT_THAT(fans.pending(), ElementsAre(0));
}

/// A control step gives a fan back that a release has still to ask for.
TEST(ControlledFans, keepAFanPendingThatAStepHasGivenBack) {
    ControlledFans fans;
    take(fans, 0);
    fans.handBack(0);
    fans.givenBack(fans.beginRelease(0));
    EXPECT_THAT(fans.claimed(), IsEmpty());
    EXPECT_THAT(fans.pending(), ElementsAre(0));
}

TEST(ControlledFans, doNotCountAForcingAfterWhichTheFanWasAskedFor) {
    ControlledFans fans;
    const auto forcing = fans.beginForcing(0);
    const auto givingBack = fans.beginRelease(0);
    fans.givenBack(givingBack);
    fans.forced(forcing);
    EXPECT_THAT(fans.claimed(), IsEmpty());
}

/// Two claims ask for one fan, and the SMC takes the first of their requests only.
TEST(ControlledFans, countAForcingAfterWhichAnotherIsRefused) {
    ControlledFans fans;
    const auto taken = fans.beginForcing(0);
    (void)fans.beginForcing(0);
    fans.forced(taken);
    EXPECT_THAT(fans.claimed(), ElementsAre(0));
}

TEST(ControlledFans, countAForcingAfterWhichAReleaseIsRefused) {
    ControlledFans fans;
    const auto forcing = fans.beginForcing(0);
    const auto givingBack = fans.beginRelease(0);
    fans.forced(forcing);
    fans.refusedToGoBack(givingBack);
    EXPECT_THAT(fans.claimed(), ElementsAre(0));
    EXPECT_THAT(fans.pending(), ElementsAre(0));
}

TEST(ControlledFans, forgetAFanThatWasGivenBackAndIsRefusedAfterwards) {
    ControlledFans fans;
    take(fans, 0);
    const auto givingBack = fans.beginRelease(0);
    const auto forcing = fans.beginForcing(0);
    fans.givenBack(givingBack);
    fans.refusedToForce(forcing);
    EXPECT_THAT(fans.claimed(), IsEmpty());
}

/// Somebody else's 0 carries the number of the request that it came after.
TEST(ControlledFans, forgetAFanThatSomebodyElseGaveBackAndThatIsRefusedAfterwards) {
    ControlledFans fans;
    const auto taken = fans.beginForcing(0);
    fans.forced(taken);
    const auto forcing = fans.beginForcing(0);
    fans.givenBack(taken);
    EXPECT_THAT(fans.claimed(), ElementsAre(0));
    fans.refusedToForce(forcing);
    EXPECT_THAT(fans.claimed(), IsEmpty());
}

TEST(ControlledFans, keepAFanThatIsHeldWhenItRefusesToBeForcedAgain) {
    ControlledFans fans;
    take(fans, 0);
    fans.refusedToForce(fans.beginForcing(0));
    EXPECT_THAT(fans.claimed(), ElementsAre(0));
}

/// A second release asks for the fan, too, and is refused: it was given back all the same.
TEST(ControlledFans, countAReleaseAfterWhichAnotherAsksForTheFan) {
    ControlledFans fans;
    take(fans, 0);
    const auto first = fans.beginRelease(0);
    const auto second = fans.beginRelease(0);
    fans.released(first);
    EXPECT_THAT(fans.claimed(), IsEmpty());
    fans.refusedToGoBack(second);
    EXPECT_THAT(fans.claimed(), IsEmpty());
    EXPECT_THAT(fans.pending(), ElementsAre(0));
}

TEST(ControlledFans, doNotForgetAFanThatIsBeingForcedAgain) {
    ControlledFans fans;
    take(fans, 0);
    const auto givingBack = fans.beginRelease(0);
    const auto forcing = fans.beginForcing(0);
    fans.givenBack(givingBack);
    EXPECT_THAT(fans.claimed(), ElementsAre(0));
    fans.forced(forcing);
    EXPECT_THAT(fans.claimed(), ElementsAre(0));
}

TEST(ControlledFans, haveNotToGiveBackAFanForARefusalAfterWhichItWasForced) {
    ControlledFans fans;
    const auto givingBack = fans.beginRelease(0);
    const auto forcing = fans.beginForcing(0);
    fans.refusedToGoBack(givingBack);
    fans.forced(forcing);
    EXPECT_THAT(fans.pending(), IsEmpty());
    EXPECT_THAT(fans.claimed(), ElementsAre(0));
}

TEST(ControlledFans, haveToGiveBackAFanThatIsHandedBackUntilAPlanManagesIt) {
    ControlledFans fans;
    fans.handBack(0);
    fans.handBack(1);
    EXPECT_THAT(fans.pending(), ElementsAre(0, 1));
    fans.keep(0);
    EXPECT_THAT(fans.pending(), ElementsAre(1));
}

TEST(ControlledFans, claimAFanThatStillHasToBeGivenBackWithoutSettlingThat) {
    ControlledFans fans;
    fans.handBack(0);
    take(fans, 0);
    EXPECT_THAT(fans.claimed(), ElementsAre(0));
    EXPECT_THAT(fans.pending(), ElementsAre(0));
}

TEST(ControlledFans, publishNoModeAndNoTargetOfAFanThatIsNotClaimed) {
    ControlledFans fans;
    take(fans, 1);
    fans.setMode(0, ControlMode::manual);
    fans.setTarget(0, 3000);
    EXPECT_THAT(fans.modes(), IsEmpty());
    EXPECT_THAT(fans.targetsRPM(), IsEmpty());
}

TEST(ControlledFans, publishTheLatestModeAndTargetOfAClaimedFan) {
    ControlledFans fans;
    take(fans, 0);
    fans.setMode(0, ControlMode::manual);
    fans.setMode(0, ControlMode::fullBlast);
    fans.setTarget(0, 3000);
    fans.setTarget(0, 3000.5);
    EXPECT_THAT(fans.modes(), ElementsAre(Pair(0, ControlMode::fullBlast)));
    EXPECT_THAT(fans.targetsRPM(), ElementsAre(Pair(0, 3000.5)));
}

TEST(ControlledFans, replaceTheStoppedFansAsAWholeAndForgetOneOfThem) {
    ControlledFans fans;
    fans.setStopped({0, 1});
    fans.setStopped({1, 2});
    EXPECT_THAT(fans.stopped(), ElementsAre(1, 2));
    fans.forgetStopped(1);
    EXPECT_THAT(fans.stopped(), ElementsAre(2));
}

TEST(ControlledFans, holdAFanThatIsClaimedAndNotToBeGivenBack) {
    ControlledFans fans;
    take(fans, 0);
    EXPECT_TRUE(fans.isAnyHeld());
    fans.handBack(0);
    EXPECT_FALSE(fans.isAnyHeld());
    take(fans, 1);
    EXPECT_TRUE(fans.isAnyHeld());
}

TEST(ControlledFans, holdNoFanThatOnlyHasToBeGivenBack) {
    ControlledFans fans;
    fans.handBack(0);
    EXPECT_FALSE(fans.isAnyHeld());
}

}  // namespace
}  // namespace airflow::control
