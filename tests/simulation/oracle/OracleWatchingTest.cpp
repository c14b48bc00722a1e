// Silence and overdue checks end control: the smallest runs that break these properties, and
// the same runs on the right side of their bounds.
#include "OracleTrace.h"

namespace airflow::simulation {
namespace {

using control::ControlResult;

// silenceEndsControl

class OracleSilenceTest : public OracleTrace {};

TEST_F(OracleSilenceTest, noFanIsHeldTwentySecondsAfterTheLastCommand) {
    serve();
    hold(1s);
    check(2s, 21s);
    expectViolationJustAfter(21s, Property::silenceEndsControl);
}

TEST_F(OracleSilenceTest, noFanIsHeldTwentySecondsAfterTheLastHeartbeat) {
    serve();
    hold(1s);
    (void)call(14s, Method::heartbeat);
    check(2s, 34s);
    expectViolationJustAfter(34s, Property::silenceEndsControl);
}

TEST_F(OracleSilenceTest, noFanIsHeldTwentySecondsAfterTheLastAnswer) {
    serve();
    const auto id = call(1s, manual());
    force(2s);
    reply(3s, id, Method::setManualRPM);
    check(2s, 23s);
    expectViolationJustAfter(23s, Property::silenceEndsControl);
}

TEST_F(OracleSilenceTest, aQuestionIsNoHeartbeat) {
    serve();
    hold(1s);
    check(2s, 15s);
    tellState(
        15s,
        {.perFanMode = {}, .targets = {}, .isHolding = true, .lastError = {}, .stoppedFans = {}});
    check(16s, 21s);
    expectViolationJustAfter(21s, Property::silenceEndsControl);
}

TEST_F(OracleSilenceTest, garbageIsNoHeartbeat) {
    serve();
    hold(1s);
    check(2s, 15s);
    reply(15s, call(15s, {.method = Method::applyConfig, .document = "{"}), Method::applyConfig,
          ControlResult::failed("no plan"));
    check(16s, 21s);
    expectViolationJustAfter(21s, Property::silenceEndsControl);
}

TEST_F(OracleSilenceTest, aHeartbeatOfAnUntrustedPeerIsNone) {
    serve();
    hold(1s);
    connect(2s, "stranger", true);
    check(2s, 21s);
    (void)call(20s, {.client = "stranger", .method = Method::heartbeat});
    expectViolationJustAfter(21s, Property::silenceEndsControl);
}

TEST_F(OracleSilenceTest, theAnswerToACommandThatAReleaseSupersededIsNoHeartbeat) {
    addFan();
    serve();
    const auto id = call(1s, manual());
    force(1s);
    connect(2s, "other");
    leave(2s, "other");
    refuse(2s);
    reply(9s, id, Method::setManualRPM, ControlResult::rejected(255));
    for (auto at = 4s; at <= 21s; at += 1s) {
        publish(at);
        refuse(at);
    }
    expectNoViolation();
    hold(21s, 1);
    giveBack(21s, 0);
    check(22s, 41s);
    expectViolationJustAfter(41s, Property::silenceEndsControl);
}

TEST_F(OracleSilenceTest, claimsThatAreRefusedDelayTheTickByTenSecondsForEachFan) {
    addFan();
    serve();
    hold(1s);
    want(1s, 1);
    poll(2s, 1);
    check(2s, 41s);
    expectViolationJustAfter(41s, Property::silenceEndsControl);
}

TEST_F(OracleSilenceTest, aClaimBeforeTheClientWasHeardDelaysNothing) {
    addFan();
    serve();
    poll(0s, 1);
    hold(1s);
    check(2s, 21s);
    expectViolationJustAfter(21s, Property::silenceEndsControl);
}

TEST_F(OracleSilenceTest, aWallClockThatIsSetBackLeavesItToTheGuard) {
    serve();
    hold(1s);
    oracle().clockJumped(2s, -7);
    check(2s, 25s);
    expectViolationJustAfter(25s, Property::silenceEndsControl);
}

TEST_F(OracleSilenceTest, theNextHeartbeatEndsTheDelayOfAWallClockThatWasSetBack) {
    serve();
    hold(1s);
    oracle().clockJumped(2s, -7);
    (void)call(3s, Method::heartbeat);
    check(4s, 23s);
    expectViolationJustAfter(23s, Property::silenceEndsControl);
}

TEST_F(OracleSilenceTest, aFanThatRefusesIsPendingForAsLongAsItIsAsked) {
    serve();
    hold(1s);
    check(2s, 21s);
    refuse(20s);
    look(22500ms);
    expectNoViolation();
    look(22500ms + instant);
    expectViolation(Property::silenceEndsControl, 22500ms + instant);
}

/// Defects of this kind: a watchdog that is off while another fan waits to be given back.
TEST_F(OracleSilenceTest, aFanThatIsPendingIsNoReasonToHoldTheNext) {
    addFan();
    serve();
    hold(1s, 0);
    hold(1s, 1);
    reply(2s, call(2s, manual(0, 0)), Method::setManualRPM);
    for (auto at = 3s; at <= 22s; at += 1s) {
        publish(at);
        refuse(at, 0);
    }
    expectViolationJustAfter(22s, Property::silenceEndsControl);
    EXPECT_EQ(oracle().violation()->what.substr(0, 5), "fan 1");
}

// overdueChecksEndControl

class OracleChecksTest : public OracleTrace {};

TEST_F(OracleChecksTest, thatAreOverdueEndControlWhateverClientsSay) {
    serve();
    hold(1s);
    publish(2s);
    for (auto at = 3s; at < 14s; at += 1s) (void)call(at, Method::heartbeat);
    expectViolationJustAfter(14s, Property::overdueChecksEndControl);
}

TEST_F(OracleChecksTest, waitForClaimsThatAreRefused) {
    addFan();
    serve();
    hold(1s);
    want(1s, 1);
    publish(2s);
    for (auto at = 3s; at < 34s; at += 1s) (void)call(at, Method::heartbeat);
    poll(5s, 1);
    expectViolationJustAfter(34s, Property::overdueChecksEndControl);
}

TEST_F(OracleChecksTest, areDueFromTheMomentInWhichAFanThatWasPendingIsWantedAgain) {
    serve();
    hold(1s);
    publish(2s);
    leave(3s);
    for (auto at = 3s; at <= 20s; at += 1s) refuse(at);
    hold(20s);
    for (auto at = 21s; at < 32s; at += 1s) (void)call(at, Method::heartbeat);
    expectViolationJustAfter(32s, Property::overdueChecksEndControl);
}

TEST_F(OracleChecksTest, thatAreOverdueTakeTheCeilingWithThem) {
    scenario.machine.hid = Temperatures{{"CPU", 99.0}};
    serve();
    hold(1s);
    look(1s);
    publish(2s);
    for (auto at = 3s; at < 14s; at += 1s) (void)call(at, Method::heartbeat);
    expectViolationJustAfter(14s, Property::overdueChecksEndControl);
}

}  // namespace
}  // namespace airflow::simulation
