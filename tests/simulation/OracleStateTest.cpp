// What the daemon tells and leaves behind, forceTestIsLowered and stateIsTrue: the smallest runs
// that break them, and the same on the right side of the bound.
#include "OracleTrace.h"

namespace airflow::simulation {
namespace {

using control::ControlMode;
using control::ControlState;

ControlState idle() {
    return ControlState::idle();
}
ControlState holding() {
    ControlState state;
    state.isHolding = true;
    return state;
}
ControlState withTarget(std::int64_t rpm) {
    ControlState state = holding();
    state.targets[0] = rpm;
    return state;
}

// forceTestIsLowered

class OracleForceTestTest : public OracleTrace {
protected:
    /// The client has gone and its fan is back; "Ftst" was last written at 5 s, and is on.
    void leaveForceTestOn() {
        serve();
        ASSERT_TRUE(machine().smc().poke("Ftst", 1));
        hold(1s);
        leave(5s);
        giveBack(5s);
        write(5s, "Ftst", 1);
    }
};

TEST_F(OracleForceTestTest, isOffThreeSecondsAfterARelease) {
    leaveForceTestOn();
    expectViolationJustAfter(8s, Property::forceTestIsLowered);
}

TEST_F(OracleForceTestTest, orIndeedAtOnce) {
    leaveForceTestOn();
    ASSERT_TRUE(machine().smc().poke("Ftst", 0));
    look(60s);
    expectNoViolation();
}

TEST_F(OracleForceTestTest, staysOnWhileAnotherFanIsForced) {
    addFan();
    leaveForceTestOn();
    force(5s, 1);
    look(8s + instant);
    expectNoViolation();
}

// stateIsTrue

class OracleStateTest : public OracleTrace {};

TEST_F(OracleStateTest, aStateIsNotIdleWhenAFanHasBeenHeldForTwoSeconds) {
    serve();
    hold(1s);
    tellState(3s - instant, idle());
    expectNoViolation();
    tellState(3s, idle());
    expectViolation(Property::stateIsTrue, 3s);
}

TEST_F(OracleStateTest, aStateThatTellsOfAnErrorIsNotIdle) {
    serve();
    hold(1s);
    ControlState state;
    state.lastError = "reclaimed: fan(s) [0] reverted to mode 3";
    tellState(3s, state);
    expectNoViolation();
}

TEST_F(OracleStateTest, aStateHoldsNothingThreeSecondsAfterARelease) {
    serve();
    hold(1s);
    leave(5s);
    giveBack(5s);
    tellState(8s, holding());
    expectNoViolation();
    tellState(8s + instant, holding());
    expectViolation(Property::stateIsTrue, 8s + instant);
}

TEST_F(OracleStateTest, norDoesItTellAModeOfAnyFan) {
    serve();
    hold(1s);
    leave(5s);
    giveBack(5s);
    ControlState state;
    state.perFanMode[0] = ControlMode::manual;
    tellState(8s, state);
    expectNoViolation();
    tellState(8s + instant, state);
    expectViolation(Property::stateIsTrue, 8s + instant);
}

TEST_F(OracleStateTest, aTargetIsToldOnlyWhenItWasWritten) {
    serve();
    hold(1s);
    tellState(2s, withTarget(3000));
    expectViolation(Property::stateIsTrue, 2s);
}

TEST_F(OracleStateTest, aTargetThatIsToldMayDifferByOneFromWhatWasWritten) {
    serve();
    hold(1s);
    write(1s, "F0Tg", 3000);
    tellState(2s, withTarget(2999));
    tellState(2s, withTarget(3001));
    expectNoViolation();
    tellState(2s, withTarget(3002));
    expectViolation(Property::stateIsTrue, 2s);
}

TEST_F(OracleStateTest, aTargetOfAnEarlierLifeIsNoneOfThisOne) {
    serve();
    hold(1s);
    write(1s, "F0Tg", 3000);
    terminate(2s);
    giveBack(2s);
    end(2s);
    serve(3s);
    tellState(4s, withTarget(3000));
    expectViolation(Property::stateIsTrue, 4s);
}

}  // namespace
}  // namespace airflow::simulation
