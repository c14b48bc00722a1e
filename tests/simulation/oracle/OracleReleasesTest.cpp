// What follows a reason to give fans back: the smallest runs that break a property, and the same
// runs on the right side of its bound.
#include "OracleTrace.h"

namespace airflow::simulation {
namespace {

using control::ControlResult;

class OracleReleasesTest : public OracleTrace {
protected:
    static Call planOf(std::vector<std::int64_t> fans) {
        Call call{.method = Method::applyConfig};
        for (const std::int64_t fan : fans) {
            call.plan.fans.push_back(
                {.fanID = fan, .mode = plan::FanControlModePlan::fixedRPM(3000)});
        }
        return call;
    }
};

// releaseBegins

TEST_F(OracleReleasesTest, theEndOfAConnectionIsFollowedByAReleaseWithinASecond) {
    serve();
    hold(1s);
    leave(5s);
    expectViolationJustAfter(6s, Property::releaseBegins);
}

TEST_F(OracleReleasesTest, aSignalIsFollowedByAReleaseWithinASecond) {
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

TEST_F(OracleReleasesTest, aStartIsFollowedByAReleaseWithinASecond) {
    scenario.machine.fans[0].mode = 1;
    start(7s);
    expectViolationJustAfter(8s, Property::releaseBegins);
}

TEST_F(OracleReleasesTest, aSafetyReleaseGivesEveryFanBackWithinASecond) {
    serve();
    hold(1s);
    publish(17s, control::HeartbeatLost{});
    expectViolationJustAfter(18s, Property::releaseBegins);
}

TEST_F(OracleReleasesTest, aFanThatRefusesIsNoReasonNotToAskTheNext) {
    addFan();
    serve();
    hold(1s, 0);
    hold(2s, 1);
    leave(5s);
    refuse(5s, 0);
    expectViolationJustAfter(6s, Property::releaseBegins);
    EXPECT_EQ(oracle().violation()->what.substr(0, 5), "fan 1");
}

TEST_F(OracleReleasesTest, aReleaseThatSkipsFansAboveOneIsFound) {
    addFan();
    addFan();
    serve();
    for (std::size_t fan = 0; fan < 3; ++fan) hold(1s, fan);
    leave(5s);
    giveBack(5s, 0);
    giveBack(5s, 1);
    expectViolationJustAfter(6s, Property::releaseBegins);
    EXPECT_EQ(oracle().violation()->what.substr(0, 5), "fan 2");
}

TEST_F(OracleReleasesTest, aCommandThatIsUnderWayDoesNotDelayARelease) {
    serve();
    (void)call(4s, manual());
    force(4s);
    leave(5s);
    expectViolationJustAfter(6s, Property::releaseBegins);
}

TEST_F(OracleReleasesTest, anotherClientsHeartbeatsDoNotDelayARelease) {
    serve();
    connect(1s, "other");
    hold(1s);
    leave(5s);
    (void)call(5500ms, {.client = "other", .method = Method::heartbeat});
    expectViolationJustAfter(6s, Property::releaseBegins);
}

TEST_F(OracleReleasesTest, garbageDoesNotDelayARelease) {
    serve();
    hold(1s);
    leave(5s);
    (void)call(5500ms, {.method = Method::applyConfig, .document = "{"});
    expectViolationJustAfter(6s, Property::releaseBegins);
}

TEST_F(OracleReleasesTest, aCommandThatCouldNotCountTheFansDoesNotDelayARelease) {
    serve();
    hold(1s);
    leave(5s);
    const auto id = call(5500ms, Method::fullBlast);
    access(5500ms, Fault::Operation::read, "FNum", 0, refusal);
    reply(5500ms, id, Method::fullBlast, ControlResult::failed("could not read FNum"));
    expectViolationJustAfter(6s, Property::releaseBegins);
}

TEST_F(OracleReleasesTest, aPlanThatCouldBeCountedIsNewer) {
    serve();
    hold(1s);
    leave(5s);
    (void)call(5500ms, Method::fullBlast);
    look(7s);
    expectNoViolation();
}

TEST_F(OracleReleasesTest, aCommandForAnotherFanDoesNotDelayARelease) {
    addFan();
    serve();
    hold(1s, 0);
    leave(5s);
    hold(5500ms, 1);
    expectViolationJustAfter(6s, Property::releaseBegins);
}

TEST_F(OracleReleasesTest, aFanThatANewPlanLeavesOutIsAskedToGoBack) {
    addFan();
    serve();
    hold(1s, 0);
    const auto id = call(5s, planOf({1}));
    force(5s, 1);
    reply(5s, id, Method::applyConfig);
    expectViolationJustAfter(6s, Property::releaseBegins);
}

TEST_F(OracleReleasesTest, aFanThatANewPlanManagesIsNotAskedToGoBack) {
    addFan();
    serve();
    hold(1s, 0);
    reply(5s, call(5s, planOf({0})), Method::applyConfig);
    look(10s);
    expectNoViolation();
}

TEST_F(OracleReleasesTest, ofACommandAndAReleaseInOneMomentEitherMayBeTheNewer) {
    serve();
    (void)call(5s, manual());
    force(5s);
    connect(5s, "other");
    leave(5s, "other");
    look(7s);
    expectNoViolation();
}

TEST_F(OracleReleasesTest, theEndOfTheLastConnectionIsNewerThanACommandOfTheSameMoment) {
    serve();
    (void)call(5s, manual());
    force(5s);
    leave(5s);
    expectViolationJustAfter(6s, Property::releaseBegins);
}

TEST_F(OracleReleasesTest, whatTheDriverTakesIsNotCounted) {
    serve();
    hold(1s);
    leave(5s);
    keepBusy(5s, 2s);
    expectViolationJustAfter(8s, Property::releaseBegins);
}

TEST_F(OracleReleasesTest, whatTheDriverTookBeforeIsNoExcuse) {
    serve();
    hold(1s);
    keepBusy(2s, 3s);
    leave(5s);
    expectViolationJustAfter(6s, Property::releaseBegins);
}

TEST_F(OracleReleasesTest, whatAnEarlierLifeAskedTheDriverIsNoExcuse) {
    serve();
    hold(1s);
    keepBusy(4s, 60s);
    end(5s, 137, true);
    start(6s);
    expectViolationJustAfter(7s, Property::releaseBegins);
}

TEST_F(OracleReleasesTest, aFanWithoutAModeKeyIsTheFirmwares) {
    scenario.machine.fans[0] = {.mode = 1};
    oracle().started(0s);
    listen();
    look(600s);
    terminate(600s);
    end(600s);
    expectNoViolation();
}

TEST_F(OracleReleasesTest, aFanThatTheMachineForcedByItselfIsNobodysHere) {
    serve();
    oracle().modeChanged(1s, 0, FanMode::forced);
    look(600s);
    expectNoViolation();
}

TEST_F(OracleReleasesTest, whoIsNotRootControlsNothing) {
    scenario.effectiveUserID = 501;
    serve();
    hold(1s);
    leave(5s);
    look(600s);
    end(600s, 1);
    expectNoViolation();
}

// releaseIsRetried

TEST_F(OracleReleasesTest, aFanThatRefusesIsAskedAgainWithinTwoAndAHalfSeconds) {
    serve();
    hold(1s);
    leave(5s);
    refuse(5s);
    look(7500ms);
    expectNoViolation();
    refuse(7500ms);
    expectViolationJustAfter(10s, Property::releaseIsRetried);
}

TEST_F(OracleReleasesTest, aRetryThatEndsAfterAHundredIsFound) {
    serve();
    hold(1s);
    leave(5s);
    for (int retry = 0; retry < 100; ++retry) {
        refuse(5s + retry * 2s);
        look(5s + retry * 2s + 1s);
    }
    expectNoViolation();
    expectViolationJustAfter(205500ms, Property::releaseIsRetried);
}

TEST_F(OracleReleasesTest, aFanThatRefusedIsAskedAgainWhileAnotherIsHeld) {
    addFan();
    serve();
    hold(1s, 0);
    leave(5s);
    refuse(5s, 0);
    hold(6s, 1);
    expectViolationJustAfter(7500ms, Property::releaseIsRetried);
}

TEST_F(OracleReleasesTest, whatTheDriverTakesBetweenTwoAttemptsIsNotCounted) {
    serve();
    hold(1s);
    leave(5s);
    refuse(5s);
    keepBusy(6s, 1500ms);
    expectViolationJustAfter(9s, Property::releaseIsRetried);
}

TEST_F(OracleReleasesTest, aModeKeyWhoseInformationFailsIsAskedToo) {
    serve();
    hold(1s);
    leave(5s);
    ask(5s, "F0Md", refusal);
    look(7500ms);
    expectNoViolation();
}

}  // namespace
}  // namespace airflow::simulation
