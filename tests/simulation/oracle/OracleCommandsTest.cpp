// What becomes of commands: the smallest runs that break a property, and the same runs on the right
// side of its bound.
#include "OracleTrace.h"

namespace airflow::simulation {
namespace {

using control::ControlResult;

// everyCommandIsAnsweredOnce

class OracleAnswerTest : public OracleTrace {};

TEST_F(OracleAnswerTest, comesWithinSixtySecondsAndTwentyForTheFan) {
    serve();
    (void)call(1s, Method::readState);
    expectViolationJustAfter(81s, Property::everyCommandIsAnsweredOnce);
}

TEST_F(OracleAnswerTest, hasTwentySecondsMoreForASecondFan) {
    addFan();
    serve();
    (void)call(1s, manual());
    expectViolationJustAfter(101s, Property::everyCommandIsAnsweredOnce);
}

TEST_F(OracleAnswerTest, comesToGarbageToo) {
    serve();
    (void)call(1s, {.method = Method::applyConfig, .document = "{"});
    expectViolationJustAfter(81s, Property::everyCommandIsAnsweredOnce);
}

TEST_F(OracleAnswerTest, doesNotComeTwice) {
    serve();
    const auto id = call(1s, Method::automatic);
    reply(1s, id, Method::automatic);
    expectNoViolation();
    reply(2s, id, Method::automatic);
    expectViolation(Property::everyCommandIsAnsweredOnce, 2s);
}

TEST_F(OracleAnswerTest, doesNotComeToAnUntrustedPeer) {
    serve();
    connect(1s, "stranger", true);
    const auto id = call(1s, {.client = "stranger", .method = Method::readState});
    look(600s);
    expectNoViolation();
    reply(600s, id, Method::readState);
    expectViolation(Property::everyCommandIsAnsweredOnce, 600s);
}

// appliedIsTrue

class OracleAppliedTest : public OracleTrace {
protected:
    void applyWithoutForcing() {
        serve();
        reply(3s, call(2s, manual()), Method::setManualRPM);
    }
};

TEST_F(OracleAppliedTest, isNoCommandWhoseFanIsNotForced) {
    applyWithoutForcing();
    expectViolation(Property::appliedIsTrue, 3s);
}

TEST_F(OracleAppliedTest, isNotWhatACommandSaysThatFailed) {
    serve();
    const auto id = call(2s, manual());
    reply(3s, id, Method::setManualRPM, ControlResult::rejected(134));
    expectNoViolation();
}

TEST_F(OracleAppliedTest, isOneWhoseFanWasForcedWhenItWasSent) {
    serve();
    hold(1s);
    const auto id = call(3s, manual());
    oracle().modeChanged(3s, 0, FanMode::reclaimed);
    reply(4s, id, Method::setManualRPM);
    expectNoViolation();
}

TEST_F(OracleAppliedTest, isNoneWhoseFanWasForcedJustBefore) {
    serve();
    hold(1s);
    oracle().modeChanged(3s - instant, 0, FanMode::reclaimed);
    const auto id = call(3s, manual());
    reply(4s, id, Method::setManualRPM);
    expectViolation(Property::appliedIsTrue, 4s);
}

TEST_F(OracleAppliedTest, isFullBlastOfTheFansThatTheSMCTellsOf) {
    addFan();
    serve();
    const auto id = call(2s, Method::fullBlast);
    read(2s, "FNum", 1);
    force(2s, 0);
    reply(3s, id, Method::fullBlast);
    expectNoViolation();
}

TEST_F(OracleAppliedTest, isFullBlastOfEveryFan) {
    addFan();
    serve();
    const auto id = call(2s, Method::fullBlast);
    force(2s, 0);
    reply(3s, id, Method::fullBlast);
    expectViolation(Property::appliedIsTrue, 3s);
    EXPECT_EQ(oracle().violation()->what, "fullBlast was applied, and fan 1 is not forced");
}

TEST_F(OracleAppliedTest, mayBeACommandThatAReleaseUndid) {
    serve();
    connect(1s, "other");
    const auto id = call(2s, manual());
    force(2s);
    leave(3s, "other");
    giveBack(3s);
    reply(4s, id, Method::setManualRPM);
    expectNoViolation();
}

TEST_F(OracleAppliedTest, isNoCommandThatAReleaseCameBefore) {
    serve();
    connect(1s, "other");
    const auto id = call(2s, manual());
    leave(3s, "other");
    reply(4s, id, Method::setManualRPM);
    expectViolation(Property::appliedIsTrue, 4s);
}

TEST_F(OracleAppliedTest, maybeIsOneInWhoseMomentAReleaseCame) {
    serve();
    connect(1s, "other");
    const auto id = call(2s, manual());
    force(2s);
    leave(2s, "other");
    giveBack(2s);
    reply(3s, id, Method::setManualRPM);
    expectNoViolation();
}

TEST_F(OracleAppliedTest, excusesACommandWhoseWritesAreIgnored) {
    scenario.faults.push_back({.key = "F0Md", .effect = Fault::Effect::ignored});
    applyWithoutForcing();
    expectNoViolation();
}

TEST_F(OracleAppliedTest, doesNotExcuseItWhereOnlyAnotherFansWritesAre) {
    scenario.faults.push_back({.key = "F1Md", .effect = Fault::Effect::ignored});
    applyWithoutForcing();
    expectViolation(Property::appliedIsTrue, 3s);
}

TEST_F(OracleAppliedTest, excusesItWhenTheMachineTakesFansBackByItself) {
    scenario.machine.reclaimAfter = 1s;
    applyWithoutForcing();
    expectNoViolation();
}

TEST_F(OracleAppliedTest, excusesItWhenTheFirmwareWrites) {
    scenario.firmware.push_back({.at = 1s, .key = "F0Md", .value = 3});
    applyWithoutForcing();
    expectNoViolation();
}

TEST_F(OracleAppliedTest, doesNotExcuseItWhenTheMachineRefusesAndSaysSo) {
    scenario.faults.push_back({.key = "F0Md", .result = refusal});
    applyWithoutForcing();
    expectViolation(Property::appliedIsTrue, 3s);
}

// controlLasts

class OracleControlTest : public OracleTrace {};

TEST_F(OracleControlTest, lastsWhileTheClientIsHeard) {
    serve();
    hold(1s);
    check(2s, 16s);
    giveBack(16s);
    expectViolation(Property::controlLasts, 16s);
}

TEST_F(OracleControlTest, mayEndAfterFifteenSecondsOfSilence) {
    serve();
    hold(1s);
    check(2s, 16s);
    giveBack(16s + instant);
    expectNoViolation();
}

TEST_F(OracleControlTest, mayEndForASilenceThatEndedLessThanFiveSecondsAgo) {
    serve();
    hold(1s);
    (void)call(17s, Method::heartbeat);
    check(2s, 21s);
    giveBack(22s - instant);
    expectNoViolation();
    force(22s);
    giveBack(22s);
    expectViolation(Property::controlLasts, 22s);
}

TEST_F(OracleControlTest, isNotUndoneByAnOlderRetry) {
    addFan();
    serve();
    refuse(4s + instant, 1);
    hold(5s);
    check(5s, 7s);
    giveBack(7s);
    expectViolation(Property::controlLasts, 7s);
}

TEST_F(OracleControlTest, endsForAFanThatAClientWantsAutomatic) {
    serve();
    hold(1s);
    const auto id = call(3s, manual(0, 0));
    reply(3s, id, Method::setManualRPM);
    giveBack(3s);
    expectNoViolation();
}

TEST_F(OracleControlTest, doesNotEndForACommandOfAnUntrustedPeer) {
    serve();
    hold(1s);
    connect(2s, "stranger", true);
    (void)call(2s, {.client = "stranger", .method = Method::automatic});
    check(2s, 10s);
    giveBack(10s);
    expectViolation(Property::controlLasts, 10s);
}

TEST_F(OracleControlTest, mayEndWhereItMayBeHot) {
    scenario.machine.hid = Temperatures{{"CPU", 95.0}};
    serve();
    hold(1s);
    giveBack(2s);
    expectNoViolation();
}

TEST_F(OracleControlTest, mayEndWhereNotEverythingIsRead) {
    scenario.jitter = 0;
    serve();
    hold(1s);
    giveBack(2s);
    expectNoViolation();
}

TEST_F(OracleControlTest, mayEndWhileACommandIsUnderWay) {
    serve();
    hold(1s);
    const auto id = call(2s, Method::readState);
    giveBack(2s);
    reply(2s, id, Method::readState);
    expectNoViolation();
}

TEST_F(OracleControlTest, isNotKnownAfterTwoCommandsAtOnce) {
    serve();
    const auto first = call(1s, manual());
    const auto second = call(1s, manual());
    force(1s);
    reply(1s, first, Method::setManualRPM);
    reply(1s, second, Method::setManualRPM);
    giveBack(2s);
    expectNoViolation();
}

TEST_F(OracleControlTest, mayEndWhenChecksAreOverdue) {
    serve();
    hold(1s);
    publish(2s);
    (void)call(6s, Method::heartbeat);
    giveBack(7s + instant);
    expectNoViolation();
}

TEST_F(OracleControlTest, doesNotEndBecauseAnotherFanIsForcedThatNobodyHolds) {
    addFan();
    serve();
    hold(1s);
    oracle().modeChanged(2s, 1, FanMode::forced);
    giveBack(3s);
    expectViolation(Property::controlLasts, 3s);
}

}  // namespace
}  // namespace airflow::simulation
