// Each property with the smallest run that breaks it, and the same run on the right side of the
// bound. What is let pass is in OracleExemptionsTest.cpp.
#include "OracleTrace.h"

namespace airflow::simulation {
namespace {

class OracleTest : public OracleTrace {};

// releaseBegins

TEST_F(OracleTest, theEndOfAConnectionIsFollowedByAReleaseWithinASecond) {
    serve();
    hold(1s);
    leave(5s);
    expectViolationJustAfter(6s, Property::releaseBegins);
}

TEST_F(OracleTest, aSignalIsFollowedByAReleaseWithinASecond) {
    serve();
    hold(1s);
    oracle().signalled(5s, daemon::Signal::interrupt);
    expectViolationJustAfter(6s, Property::releaseBegins);
}

class OracleReleaseCommandTest : public OracleTrace,
                                 public testing::WithParamInterface<Call::Method> {};

TEST_P(OracleReleaseCommandTest, isFollowedByAReleaseWithinASecond) {
    serve();
    hold(1s);
    (void)call(5s, GetParam());
    expectViolationJustAfter(6s, Property::releaseBegins);
}

INSTANTIATE_TEST_SUITE_P(Each, OracleReleaseCommandTest,
                         testing::Values(Call::Method::automatic, Call::Method::restoreAuto,
                                         Call::Method::shutdownForUpgrade));

TEST_F(OracleTest, aStartIsFollowedByAReleaseWithinASecond) {
    scenario.machine.fans[0].mode = 1;
    start(7s);
    expectViolationJustAfter(8s, Property::releaseBegins);
}

TEST_F(OracleTest, aSafetyReleaseIsFollowedByOneWithinASecond) {
    serve();
    hold(1s);
    publish(17s, "no heartbeat for >15s — released to Auto");
    expectViolationJustAfter(18s, Property::releaseBegins);
}

TEST_F(OracleTest, aFanThatRefusesIsNoReasonNotToAskTheNext) {
    addFan();
    serve();
    hold(1s, 0);
    hold(2s, 1);
    leave(5s);
    refuse(5s, 0);
    expectViolationJustAfter(6s, Property::releaseBegins);
    EXPECT_EQ(oracle().violation()->what.substr(0, 5), "fan 1");
}

// releaseIsRetried

TEST_F(OracleTest, aFanThatRefusesIsAskedAgainWithinTwoAndAHalfSeconds) {
    serve();
    hold(1s);
    leave(5s);
    refuse(5s);
    look(7500ms);
    expectNoViolation();
    refuse(7500ms);
    expectViolationJustAfter(10s, Property::releaseIsRetried);
}

// releaseLasts

TEST_F(OracleTest, afterAReleaseOneFanMayBeAskedToBeForcedButNoSecond) {
    addFan();
    serve();
    hold(1s);
    leave(5s);
    giveBack(5s);
    write(6s, "F1Md", 1, refusal);
    write(7s, "F1Md", 1, refusal);
    expectNoViolation();
    write(7s, "F0Md", 1, refusal);
    expectViolation(Property::releaseLasts, 7s);
}

TEST_F(OracleTest, afterAReleaseAFanMayBeForcedForTwelveSecondsAndTenForItself) {
    serve();
    hold(1s);
    leave(5s);
    giveBack(5s);
    force(27s);
    expectNoViolation();
}

TEST_F(OracleTest, andNotLater) {
    serve();
    hold(1s);
    leave(5s);
    giveBack(5s);
    force(27s + instant);
    expectViolation(Property::releaseLasts, 27s + instant);
}

TEST_F(OracleTest, aSecondFanMakesThatTenSecondsLonger) {
    addFan();
    serve();
    hold(1s);
    leave(5s);
    giveBack(5s);
    force(37s);
    giveBack(37s);
    expectNoViolation();
    force(37s + instant);
    expectViolation(Property::releaseLasts, 37s + instant);
}

// silenceEndsControl

TEST_F(OracleTest, noFanIsHeldThirtySecondsAfterTheLastCommand) {
    serve();
    hold(1s);
    expectViolationJustAfter(31s, Property::silenceEndsControl);
}

TEST_F(OracleTest, norThirtySecondsAfterTheLastHeartbeat) {
    serve();
    hold(1s);
    (void)call(14s, Method::heartbeat);
    expectViolationJustAfter(44s, Property::silenceEndsControl);
}

TEST_F(OracleTest, norFortySecondsAfterItWithTwoFans) {
    addFan();
    serve();
    hold(1s);
    expectViolationJustAfter(41s, Property::silenceEndsControl);
}

// everyCommandIsAnsweredOnce

TEST_F(OracleTest, aCommandIsAnsweredWithinSixtySecondsAndTwentyForTheFan) {
    serve();
    (void)call(1s, Method::readState);
    expectViolationJustAfter(81s, Property::everyCommandIsAnsweredOnce);
}

TEST_F(OracleTest, aSecondFanMakesThatTwentySecondsLonger) {
    addFan();
    serve();
    (void)call(1s, manual());
    expectViolationJustAfter(101s, Property::everyCommandIsAnsweredOnce);
}

TEST_F(OracleTest, aCommandIsNotAnsweredTwice) {
    serve();
    const auto id = call(1s, Method::automatic);
    reply(1s, id, Method::automatic);
    expectNoViolation();
    reply(2s, id, Method::automatic);
    expectViolation(Property::everyCommandIsAnsweredOnce, 2s);
}

// exitRestoresFirst

TEST_F(OracleTest, noExitLeavesAFanForcedThatWasNotAskedToGoBack) {
    serve();
    hold(1s);
    terminate(5s);
    end(8s - instant);
    expectViolation(Property::exitRestoresFirst, 8s - instant);
}

TEST_F(OracleTest, unlessItsThreeSecondsAreOver) {
    serve();
    hold(1s);
    terminate(5s);
    end(8s);
    expectNoViolation();
}

TEST_F(OracleTest, norIfTheFanRefused) {
    serve();
    hold(1s);
    terminate(5s);
    refuse(5s);
    end(5s);
    expectNoViolation();
}

TEST_F(OracleTest, whatWasAskedBeforeTheExitDoesNotCount) {
    serve();
    hold(1s);
    leave(5s - instant);
    refuse(5s - instant);
    terminate(5s);
    end(5s);
    expectViolation(Property::exitRestoresFirst, 5s);
}

TEST_F(OracleTest, anExitWithoutAnyRestorationIsOneToo) {
    serve();
    hold(1s);
    end(5s, 0);
    expectViolation(Property::exitRestoresFirst, 5s);
}

// exitIsInTime

TEST_F(OracleTest, anExitTakesThreeSecondsAtMost) {
    serve();
    terminate(5s);
    end(8s);
    expectNoViolation();
    serve(10s);
    terminate(15s);
    end(18s + instant);
    expectViolation(Property::exitIsInTime, 18s + instant);
}

// recoveryComesFirst

TEST_F(OracleTest, nothingIsForcedWhenTheDaemonBeginsToListen) {
    scenario.machine.fans[0].mode = 1;
    start();
    listen();
    expectViolation(Property::recoveryComesFirst, 0s);
}

TEST_F(OracleTest, soTheFanIsGivenBackBefore) {
    scenario.machine.fans[0].mode = 1;
    start();
    giveBack(0s);
    listen();
    expectNoViolation();
}

TEST_F(OracleTest, aFanWhoseModeKeyWasNotEvenLookedForIsNoneToBeForgiven) {
    scenario.machine.fans[0].mode = 1;
    oracle().started(0s);
    listen();
    expectViolation(Property::recoveryComesFirst, 0s);
}

TEST_F(OracleTest, nothingIsAnsweredBeforeTheDaemonListens) {
    start();
    const auto early = call(1s, Method::readState);
    reply(1s, early, Method::readState);
    expectViolation(Property::recoveryComesFirst, 1s);
}

TEST_F(OracleTest, whatWasAskedBeforeIsAnsweredAfterwards) {
    start();
    const auto early = call(1s, Method::readState);
    listen(2s);
    reply(2s, early, Method::readState);
    expectNoViolation();
}

}  // namespace
}  // namespace airflow::simulation
