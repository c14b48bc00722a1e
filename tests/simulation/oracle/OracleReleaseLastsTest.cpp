// What was released is not forced again, and what was hidden is found: the smallest runs that break
// these properties, and the same runs on the right side of their bounds.
#include "OracleTrace.h"

namespace airflow::simulation {
namespace {

using control::ControlResult;

class OracleReleaseLastsTest : public OracleTrace {};

TEST_F(OracleReleaseLastsTest, noClaimGoesOnAfterTheReleaseOfItsFan) {
    serve();
    hold(1s);
    leave(5s);
    giveBack(5s);
    poll(5s);
    expectNoViolation();  // may have been in the driver's queue
    poll(5s + instant);
    expectViolation(Property::releaseLasts, 5s + instant);
}

TEST_F(OracleReleaseLastsTest, noClaimOfACommandUnderWayGoesOnAfterTheReleaseOfItsFan) {
    serve();
    (void)call(4s, manual());
    poll(4900ms);
    leave(5s);
    lie(5s);
    poll(5100ms);
    expectViolation(Property::releaseLasts, 5100ms);
}

TEST_F(OracleReleaseLastsTest, noClaimGoesOnOfAFanThatTheReleaseDidNotAsk) {
    addFan();
    serve();
    (void)call(4s, manual(1));
    poll(4900ms, 1);
    leave(5s);
    poll(5100ms, 1);
    expectViolation(Property::releaseLasts, 5100ms);
}

TEST_F(OracleReleaseLastsTest, whatWasInTheDriversQueueMayComeBeforeTheReleasesOwnRequest) {
    serve();
    (void)call(4s, manual());
    keepBusy(4s, 2s);
    leave(5s);
    force(6s);
    giveBack(6s);
    look(10s);
    expectNoViolation();
}

TEST_F(OracleReleaseLastsTest, whatWasInTheDriversQueueIsGivenBackAtOnce) {
    serve();
    (void)call(4s, manual());
    keepBusy(4s, 2s);
    leave(5s);
    force(6s);
    expectViolationJustAfter(7s, Property::releaseBegins);
}

TEST_F(OracleReleaseLastsTest, aClaimThatComesWhenTheDriverIsFreeWasNotInItsQueue) {
    serve();
    (void)call(4s, manual());
    keepBusy(4s, 2s);
    leave(5s);
    force(6s + instant);
    expectViolation(Property::releaseLasts, 6s + instant);
}

TEST_F(OracleReleaseLastsTest, aNewerCommandMayForceWhateverItWants) {
    addFan();
    serve();
    leave(5s);
    hold(60s, 0);
    hold(61s, 1);
    expectNoViolation();
}

TEST_F(OracleReleaseLastsTest, aNewerCommandMayForceNothingThatItDoesNotWant) {
    addFan();
    serve();
    hold(1s, 1);
    leave(5s);
    giveBack(5s, 1);
    hold(60s, 0);
    poll(61s, 1);
    expectViolation(Property::releaseLasts, 61s);
}

TEST_F(OracleReleaseLastsTest, aNewerCommandThatCouldNotCountTheFansForcesNone) {
    serve();
    hold(1s);
    leave(5s);
    giveBack(5s);
    const auto id = call(6s, Method::fullBlast);
    access(6s, Fault::Operation::read, "FNum", 0, refusal);
    reply(6s, id, Method::fullBlast, ControlResult::failed("could not read FNum"));
    poll(7s);
    expectViolation(Property::releaseLasts, 7s);
}

TEST_F(OracleReleaseLastsTest, aStepThatASafetyReleaseSupersededForcesNothing) {
    serve();
    hold(1s);
    giveBack(17s);
    force(17s);
    publish(17s, control::HeartbeatLost{});
    expectNoViolation();  // of a moment the order is not known
    giveBack(17s);
    force(18s);
    expectViolation(Property::releaseLasts, 18s);
}

TEST_F(OracleReleaseLastsTest, aStepForcesNothingBetweenASafetyReleaseAndItsPublication) {
    serve();
    hold(1s);
    giveBack(17s);
    force(17s + instant);
    publish(17s + 2 * instant, control::HeartbeatLost{});
    expectViolation(Property::releaseLasts, 17s + 2 * instant);
}

// hiddenFansAreFound

class OracleHiddenFanTest : public OracleTrace {
protected:
    OracleHiddenFanTest() { scenario.machine.fans[0].mode = 1; }
    void startBlindly() {
        oracle().started(0s);
        ask(0s, "F0Md", refusal);
        listen(0s);
    }
};

TEST_F(OracleHiddenFanTest, isFoundWithinTwoAndAHalfSeconds) {
    startBlindly();
    expectViolationJustAfter(2500ms, Property::hiddenFansAreFound);
}

TEST_F(OracleHiddenFanTest, isNotJudgedOnceItHasBeenAsked) {
    startBlindly();
    giveBack(2s);
    look(600s);
    expectNoViolation();
}

TEST_F(OracleHiddenFanTest, isRetriedOnceItIsFound) {
    startBlindly();
    refuse(2s);
    expectViolationJustAfter(4500ms, Property::releaseIsRetried);
}

TEST_F(OracleHiddenFanTest, isFoundAfterItsKeyCanBeRead) {
    startBlindly();
    access(4s, Fault::Operation::read, "F0Md", 0, refusal);
    expectViolationJustAfter(6500ms, Property::hiddenFansAreFound);
}

TEST_F(OracleHiddenFanTest, isNotFoundWhileAFaultKeepsItsKeyFromBeingRead) {
    scenario.faults.push_back(
        {.until = 60s, .key = "F0Md", .operation = Fault::Operation::read, .result = refusal});
    startBlindly();
    for (auto at = 1s; at < 60s; at += 1s) look(at);
    look(61s);
    expectNoViolation();
    look(62s);
    expectViolation(Property::hiddenFansAreFound, 62s);
}

TEST_F(OracleHiddenFanTest, isLookedForAgainAfterTheNextReleaseIfTheSMCDeniedIt) {
    oracle().started(0s);
    ask(0s, "F0Md", SimulatedSMC::keyNotFound);
    listen(0s);
    look(60s);
    expectNoViolation();
    connect(60s);
    leave(60s);
    expectViolationJustAfter(62500ms, Property::hiddenFansAreFound);
}

TEST_F(OracleHiddenFanTest, thatTheCountConcealsIsFoundToo) {
    oracle().started(0s);
    read(0s, "FNum", 0);
    listen(0s);
    expectViolationJustAfter(2500ms, Property::hiddenFansAreFound);
}

class OracleFalseReleaseTest : public OracleTrace {};

TEST_F(OracleFalseReleaseTest, aFanThatSaidItWentBackIsLookedAtAgain) {
    serve();
    hold(1s);
    leave(5s);
    lie(5s);
    expectViolationJustAfter(9500ms, Property::hiddenFansAreFound);
}

TEST_F(OracleFalseReleaseTest, isNotJudgedWhileTheSMCAnswersFalsely) {
    scenario.faults.push_back({.until = 60s, .key = "F0Md", .effect = Fault::Effect::ignored});
    serve();
    hold(1s);
    leave(5s);
    lie(5s);
    for (auto at = 6s; at < 60s; at += 1s) look(at);
    look(63s);
    expectNoViolation();
    look(64s);
    expectViolation(Property::hiddenFansAreFound, 64s);
}

TEST_F(OracleFalseReleaseTest, aFanThatTheSMCForcedAndDeniedIsFoundAfterTheNextRelease) {
    serve();
    const auto id = call(1s, manual());
    oracle().modeChanged(1s, 0, FanMode::forced);
    poll(1s);
    reply(2s, id, Method::setManualRPM, ControlResult::rejected(refusal));
    leave(5s);
    expectViolationJustAfter(11500ms, Property::hiddenFansAreFound);
}

TEST_F(OracleFalseReleaseTest, aFanThatIsForcedAgainIsJudgedAsAnyOther) {
    serve();
    hold(1s);
    leave(5s);
    lie(5s);
    oracle().modeChanged(6s, 0, FanMode::automatic);
    hold(7s);
    leave(8s);
    expectViolationJustAfter(9s, Property::releaseBegins);
}

}  // namespace
}  // namespace airflow::simulation
