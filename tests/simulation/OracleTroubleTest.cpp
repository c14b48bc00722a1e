// What the trouble of a machine or of a process excuses, and for how long.
#include "OracleTrace.h"

namespace airflow::simulation {
namespace {

using control::ControlResult;
using control::ControlState;

class OracleTroubleTest : public OracleTrace {
protected:
    [[nodiscard]] static ControlState holding() {
        ControlState state;
        state.isHolding = true;
        return state;
    }
    /// "Ftst" is on, and the client goes at 10 s. Something was refused before.
    void leaveForceTestOnAfterRefusal(Duration refused) {
        serve();
        ASSERT_TRUE(machine().smc().poke("Ftst", 1));
        hold(1s);
        write(refused, "Ftst", 1, refusal);
        leave(10s);
        giveBack(10s);
    }
};

// Refusals

TEST_F(OracleTroubleTest, aRefusedFanIsHeldOnForAsLongAsItIsAsked) {
    serve();
    hold(1s);
    refuse(28500ms);
    look(31s);
    expectNoViolation();
    look(31s + instant);
    expectViolation(Property::silenceEndsControl, 31s + instant);
}

TEST_F(OracleTroubleTest, theSameInTheHeat) {
    serve();
    hold(1s);
    machine().setHIDTemperature("CPU", 96);
    look(10s);
    refuse(22500ms);
    look(25s);
    expectNoViolation();
    look(25s + instant);
    expectViolation(Property::heatEndsControl, 25s + instant);
}

TEST_F(OracleTroubleTest, forceTestMayStayOnAfterARefusal) {
    leaveForceTestOnAfterRefusal(5s + instant);
    look(600s);
    expectNoViolation();
}

TEST_F(OracleTroubleTest, aRefusalFiveSecondsBeforeTheReleaseIsNoExcuse) {
    leaveForceTestOnAfterRefusal(5s);
    expectViolationJustAfter(13s, Property::forceTestIsLowered);
}

TEST_F(OracleTroubleTest, aStateGoesOnTellingOfAFanThatRefusedAtFirst) {
    serve();
    hold(1s);
    leave(5s);
    refuse(5s);
    giveBack(7s);
    tellState(600s, holding());
    expectNoViolation();
}

TEST_F(OracleTroubleTest, aReadThatFailsIsNoRefusal) {
    serve();
    hold(1s);
    leave(5s);
    access(5s, Fault::Operation::read, "F0Ac", 0, refusal);
    giveBack(5s);
    tellState(8s + instant, holding());
    expectViolation(Property::stateIsTrue, 8s + instant);
}

TEST_F(OracleTroubleTest, aModeKeyWhoseInformationFailsIsAskedToo) {
    serve();
    hold(1s);
    leave(5s);
    ask(5s, "F0Md", refusal);
    look(7500ms);
    expectNoViolation();
}

TEST_F(OracleTroubleTest, aTargetWhoseWriteDidNotReachTheSMCMayBeTold) {
    serve();
    hold(1s);
    ask(1s, "F0Tg", refusal);
    ControlState state = holding();
    state.targets[0] = 3000;
    tellState(2s, state);
    expectNoViolation();
}

TEST_F(OracleTroubleTest, anIdleStateIsTrueOfAFanThatTheSMCForcedAndDenied) {
    serve();
    const auto id = call(1s, manual());
    oracle().modeChanged(1s, 0, FanMode::forced);
    write(1s, "F0Md", 1, refusal);
    reply(1s, id, Method::setManualRPM, ControlResult::rejected(134));
    tellState(3s, ControlState::idle());
    expectNoViolation();
}

// A machine that does not do what it says

class OracleDishonestMachineTest : public OracleTrace {
protected:
    void applyWithoutForcing() {
        serve();
        reply(3s, call(2s, manual()), Method::setManualRPM);
    }
};

TEST_F(OracleDishonestMachineTest, excusesACommandWhoseWritesAreIgnored) {
    scenario.faults.push_back({.key = "F0Md", .effect = Fault::Effect::ignored});
    applyWithoutForcing();
    expectNoViolation();
}

TEST_F(OracleDishonestMachineTest, excusesItWhenItTakesFansBackByItself) {
    scenario.machine.reclaimAfter = 1s;
    applyWithoutForcing();
    expectNoViolation();
}

TEST_F(OracleDishonestMachineTest, excusesItWhenTheFirmwareWrites) {
    scenario.firmware.push_back({.at = 1s, .key = "F0Md", .value = 3});
    applyWithoutForcing();
    expectNoViolation();
}

TEST_F(OracleDishonestMachineTest, isNotOneThatRefusesAndSaysSo) {
    scenario.faults.push_back({.key = "F0Md", .result = refusal});
    applyWithoutForcing();
    expectViolation(Property::appliedIsTrue, 3s);
}

// Heat and readings

TEST_F(OracleTroubleTest, heatThatCannotBeReadEndsNothing) {
    scenario.faults.push_back(
        {.key = "TC0P", .operation = Fault::Operation::read, .result = refusal});
    serve();
    hold(1s);
    machine().setHIDTemperature("CPU", 99);
    look(10s);
    look(31s);
    expectNoViolation();
}

TEST_F(OracleTroubleTest, aFanMayBeGivenBackWhereItMayBeHot) {
    scenario.machine.hid = Temperatures{{"CPU", 95.0}};
    serve();
    hold(1s);
    giveBack(2s);
    expectNoViolation();
}

TEST_F(OracleTroubleTest, aFanMayBeGivenBackWhereNotEverythingIsRead) {
    scenario.jitter = 0;
    serve();
    hold(1s);
    giveBack(2s);
    expectNoViolation();
}

// Other commands

TEST_F(OracleTroubleTest, aFanMayBeGivenBackWhileACommandIsUnderWay) {
    serve();
    hold(1s);
    const auto id = call(2s, Method::readState);
    giveBack(2s);
    reply(2s, id, Method::readState);
    expectNoViolation();
}

TEST_F(OracleTroubleTest, whatTwoCommandsAtOnceLeaveBehindIsNotKnown) {
    serve();
    const auto first = call(1s, manual());
    const auto second = call(1s, manual());
    force(1s);
    reply(1s, first, Method::setManualRPM);
    reply(1s, second, Method::setManualRPM);
    giveBack(2s);
    expectNoViolation();
}

TEST_F(OracleTroubleTest, anIdleStateThatWasAskedForBeforeTheCommandIsTrue) {
    serve();
    const auto question = call(1s, Method::readState);
    const auto id = call(1s, manual());
    force(1s);
    reply(2s, id, Method::setManualRPM);
    oracle().replied(9s, {.client = onlyClient,
                          .method = Method::readState,
                          .state = ControlState::idle(),
                          .call = question});
    expectNoViolation();
}

// The process

TEST_F(OracleTroubleTest, aKilledProcessRestoresNothing) {
    serve();
    hold(1s);
    end(5s, 137, true);
    look(600s);
    expectNoViolation();
}

TEST_F(OracleTroubleTest, aStartThatFailsRestoresNothingThatItHasNotFound) {
    scenario.machine.fans[0].mode = 1;
    start();
    end(1s, 1);
    expectNoViolation();
}

TEST_F(OracleTroubleTest, anExitIsJudgedByItsOwnBoundOnly) {
    serve();
    hold(1s);
    terminate(5s);
    look(7s);
    expectNoViolation();
}

TEST_F(OracleTroubleTest, whoIsNotRootControlsNothing) {
    scenario.effectiveUserID = 501;
    serve();
    hold(1s);
    leave(5s);
    look(600s);
    end(600s, 1);
    expectNoViolation();
}

}  // namespace
}  // namespace airflow::simulation
