// What the oracle lets pass, because the daemon cannot help it or because it is a hole that is
// known; and what it does not let pass although it looks like that.
#include "OracleTrace.h"

namespace airflow::simulation {
namespace {

using control::ControlResult;
using control::ControlState;

class OracleExemptionsTest : public OracleTrace {
protected:
    static Call garbage() { return {.method = Method::applyConfig, .document = "{"}; }
};

// A fan lied about

TEST_F(OracleExemptionsTest, aFanOfWhichTheSMCSaidThatItWentBackIsOutOfOurHands) {
    serve();
    hold(1s);
    leave(5s);
    write(5s, "F0Md", 0);
    look(600s);
    expectNoViolation();
}

TEST_F(OracleExemptionsTest, untilItIsForcedAgain) {
    serve();
    hold(1s);
    leave(5s);
    write(5s, "F0Md", 0);
    oracle().modeChanged(6s, 0, FanMode::automatic);
    hold(7s);
    leave(8s);
    expectViolationJustAfter(9s, Property::releaseBegins);
}

TEST_F(OracleExemptionsTest, aFanLiedAboutInRecoveryDoesNotKeepTheDaemonFromListening) {
    scenario.machine.fans[0].mode = 1;
    start();
    write(0s, "F0Md", 0);
    listen();
    expectNoViolation();
}

// Mode keys

TEST_F(OracleExemptionsTest, aFanWhoseModeKeyCannotBeReadAtTheStartIsNotKnown) {
    scenario.machine.fans[0].mode = 1;
    oracle().started(0s);
    ask(0s, "F0Md", refusal);
    look(600s);
    listen(600s);
    look(1200s);
    expectNoViolation();
}

TEST_F(OracleExemptionsTest, oneWhoseSecondNameCanBeReadIsKnown) {
    scenario.machine.fans[0].mode = 1;
    oracle().started(0s);
    ask(0s, "F0Md", refusal);
    read(0s, "F0md", 1);
    listen(0s);
    expectViolation(Property::recoveryComesFirst, 0s);
}

TEST_F(OracleExemptionsTest, oneWhoseKeyIsKnownAndCannotBeReadIsUnknown) {
    scenario.machine.fans[0].mode = 1;
    oracle().started(0s);
    ask(0s, "F0Md");
    access(0s, Fault::Operation::read, "F0Md", 0, refusal);
    listen(0s);
    expectNoViolation();
}

TEST_F(OracleExemptionsTest, aFanThatTheCountLeavesOutIsUnknown) {
    scenario.machine.fans[0].mode = 1;
    oracle().started(0s);
    read(0s, "FNum", 0);
    listen(0s);
    expectNoViolation();
}

TEST_F(OracleExemptionsTest, aFanThatTheCountTellsOfIsRecovered) {
    scenario.machine.fans[0].mode = 1;
    start();
    read(0s, "FNum", 1);
    listen(0s);
    expectViolation(Property::recoveryComesFirst, 0s);
}

TEST_F(OracleExemptionsTest, aFanWithoutAModeKeyIsTheFirmwares) {
    scenario.machine.fans[0] = {.mode = 1};
    oracle().started(0s);
    listen();
    look(600s);
    terminate(600s);
    end(600s);
    expectNoViolation();
}

// The driver's latency

TEST_F(OracleExemptionsTest, whatTheDriverTakesIsNotCounted) {
    serve();
    hold(1s);
    leave(5s);
    keepBusy(5s, 2s);
    expectViolationJustAfter(8s, Property::releaseBegins);
}

TEST_F(OracleExemptionsTest, norWhatItTakesBetweenTwoAttempts) {
    serve();
    hold(1s);
    leave(5s);
    refuse(5s);
    keepBusy(6s, 1500ms);
    expectViolationJustAfter(9s, Property::releaseIsRetried);
}

TEST_F(OracleExemptionsTest, whatItTookBeforeIsNoExcuse) {
    serve();
    hold(1s);
    keepBusy(2s, 3s);
    leave(5s);
    expectViolationJustAfter(6s, Property::releaseBegins);
}

// Another client

TEST_F(OracleExemptionsTest, anotherClientsHeartbeatsDoNotPutOffARelease) {
    serve();
    hold(1s);
    leave(5s);
    (void)call(5500ms, {.client = "other", .method = Method::heartbeat});
    expectViolationJustAfter(6s, Property::releaseBegins);
}

// Garbage

TEST_F(OracleExemptionsTest, garbageDoesNotPutOffARelease) {
    serve();
    hold(1s);
    leave(5s);
    (void)call(5500ms, garbage());
    expectViolationJustAfter(6s, Property::releaseBegins);
}

TEST_F(OracleExemptionsTest, garbageIsNoSignOfLife) {
    serve();
    hold(1s);
    reply(10s, call(10s, garbage()), Method::applyConfig, ControlResult::failed("no plan"));
    expectViolationJustAfter(31s, Property::silenceEndsControl);
}

TEST_F(OracleExemptionsTest, garbageIsAnsweredAllTheSame) {
    serve();
    (void)call(1s, garbage());
    expectViolationJustAfter(81s, Property::everyCommandIsAnsweredOnce);
}

// Strangers

TEST_F(OracleExemptionsTest, aStrangersCallIsNotAnswered) {
    serve();
    oracle().connected(1s, "stranger", true);
    const auto id = call(1s, {.client = "stranger", .method = Method::readState});
    look(600s);
    expectNoViolation();
    reply(600s, id, Method::readState);
    expectViolation(Property::everyCommandIsAnsweredOnce, 600s);
}

TEST_F(OracleExemptionsTest, aStrangersReleaseCommandIsNoReasonToRelease) {
    serve();
    hold(1s);
    oracle().connected(2s, "stranger", true);
    (void)call(2s, {.client = "stranger", .method = Method::automatic});
    look(10s);
    expectNoViolation();
    giveBack(10s);
    expectViolation(Property::controlLasts, 10s);
}

TEST_F(OracleExemptionsTest, aStrangersHeartbeatIsNoSignOfLife) {
    serve();
    hold(1s);
    oracle().connected(2s, "stranger", true);
    (void)call(20s, {.client = "stranger", .method = Method::heartbeat});
    expectViolationJustAfter(31s, Property::silenceEndsControl);
}

TEST_F(OracleExemptionsTest, theEndOfAStrangersConnectionIsAReasonToRelease) {
    serve();
    hold(1s);
    oracle().connected(2s, "stranger", true);
    oracle().disconnected(5s, "stranger");
    expectViolationJustAfter(6s, Property::releaseBegins);
}

// The wall clock

TEST_F(OracleExemptionsTest, aWallClockThatIsSetBackPutsTheWatchdogOff) {
    serve();
    hold(1s);
    oracle().clockJumped(2s, -7);
    expectViolationJustAfter(38s, Property::silenceEndsControl);
}

TEST_F(OracleExemptionsTest, theNextHeartbeatMakesUpForThat) {
    serve();
    hold(1s);
    oracle().clockJumped(2s, -7);
    (void)call(3s, Method::heartbeat);
    expectViolationJustAfter(33s, Property::silenceEndsControl);
}

TEST_F(OracleExemptionsTest, aWallClockThatIsSetForwardMakesSilence) {
    serve();
    (void)call(1s, Method::heartbeat);
    oracle().clockJumped(2s, 10);
    publish(6s + instant, "no heartbeat for >15s — released to Auto");
    expectNoViolation();
}

TEST_F(OracleExemptionsTest, butOnlyAsMuchAsItIsSetForward) {
    serve();
    (void)call(1s, Method::heartbeat);
    oracle().clockJumped(2s, 10);
    publish(6s, "no heartbeat for >15s — released to Auto");
    expectViolation(Property::reasonsAreTrue, 6s);
}

}  // namespace
}  // namespace airflow::simulation
