// What the daemon tells of fans: the smallest runs that break stateIsTrue, and the same runs on the
// right side of their bounds.
#include "OracleTrace.h"

namespace airflow::simulation {
namespace {

using control::ControlMode;
using control::ControlResult;
using control::ControlState;

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
ControlState withMode(ControlMode mode) {
    ControlState state = holding();
    state.perFanMode.emplace(0, mode);
    return state;
}
class OracleStateTest : public OracleTrace {
protected:
    /// At 5 s a plan leaves the fan out, and it goes back; another client's plan may stand.
    void giveBackInPart() {
        const auto id = call(5s, {.method = Method::applyConfig});
        giveBack(5s);
        reply(5s, id, Method::applyConfig);
    }
};

TEST_F(OracleStateTest, isNotIdleWhenAFanHasBeenHeldForTwoSeconds) {
    serve();
    hold(1s);
    tellState(3s - instant, ControlState::idle());
    expectNoViolation();
    tellState(3s, ControlState::idle());
    expectViolation(Property::stateIsTrue, 3s);
}

TEST_F(OracleStateTest, isNotIdleWithAnError) {
    serve();
    hold(1s);
    ControlState state;
    state.lastError = "reclaimed: fan(s) [0] reverted to mode 3";
    tellState(3s, state);
    expectNoViolation();
}

TEST_F(OracleStateTest, mayBeIdleUntilAStepHasClaimedItsLastFan) {
    addFan();
    serve();
    hold(1s);
    want(1s, 1);
    poll(2s, 1);
    tellState(23s - instant, ControlState::idle());
    expectNoViolation();
    tellState(23s, ControlState::idle());
    expectViolation(Property::stateIsTrue, 23s);
}

TEST_F(OracleStateTest, mayBeIdleWhenTheSMCForcedAFanAndDeniedIt) {
    serve();
    const auto id = call(1s, manual());
    oracle().modeChanged(1s, 0, FanMode::forced);
    poll(1s);
    reply(1s, id, Method::setManualRPM, ControlResult::rejected(134));
    tellState(23s, ControlState::idle());
    expectNoViolation();
}

TEST_F(OracleStateTest, mayBeIdleWhenItWasAskedForBeforeTheCommand) {
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

TEST_F(OracleStateTest, mayBeIdleWhileTheDriverIsBusy) {
    serve();
    hold(1s);
    keepBusy(4s, 1s);
    tellState(5s - instant, ControlState::idle());
    expectNoViolation();
    tellState(5s, ControlState::idle());
    expectViolation(Property::stateIsTrue, 5s);
}

/// An earlier process has left it forced, and it has refused since whatever it was asked.
TEST_F(OracleStateTest, mayBeIdleOverAFanThatTheDaemonHasNotFound) {
    scenario.machine.fans[0].mode = 1;
    oracle().started(0s);
    ask(0s, "F0Md", refusal);
    listen();
    const auto id = call(1s, manual());
    poll(1s);
    reply(1s, id, Method::setManualRPM, ControlResult::rejected(134));
    tellState(13s, ControlState::idle());
    expectNoViolation();
}

TEST_F(OracleStateTest, holdsNothingThreeSecondsAfterARelease) {
    serve();
    hold(1s);
    leave(5s);
    giveBack(5s);
    tellState(8s, holding());
    expectNoViolation();
    tellState(8s + instant, holding());
    expectViolation(Property::stateIsTrue, 8s + instant);
}

TEST_F(OracleStateTest, holdsNothingThreeSecondsAfterARetryEither) {
    serve();
    hold(1s);
    leave(5s);
    refuse(5s);
    giveBack(7s);
    tellState(10s + instant, holding());
    expectViolation(Property::stateIsTrue, 10s + instant);
}

TEST_F(OracleStateTest, mayHoldWhatTheSMCSaidItHadForcedAndHadNot) {
    serve();
    (void)call(1s, manual());
    write(1s, "F0Md", 1);
    leave(5s);
    tellState(60s, holding());
    expectNoViolation();
}

TEST_F(OracleStateTest, tellsNoModeOfAFanThatWasGivenBack) {
    serve();
    hold(1s);
    giveBackInPart();
    ControlState state = withMode(ControlMode::manual);
    tellState(8s, state);
    expectNoViolation();
    tellState(8s + instant, state);
    expectViolation(Property::stateIsTrue, 8s + instant);
}

TEST_F(OracleStateTest, mayTellOfAFanThatWasGivenBackUntilACommandThatReleasesEveryFanIsAnswered) {
    serve();
    hold(1s);
    giveBackInPart();
    const auto id = call(8s, Method::automatic);
    tellState(9s, withMode(ControlMode::manual));
    expectNoViolation();
    reply(9s, id, Method::automatic);
    tellState(9s, withMode(ControlMode::manual));
    expectViolation(Property::stateIsTrue, 9s);
}

TEST_F(OracleStateTest, mayTellOfAFanThatWasGivenBackWhileATickClaimsOthers) {
    addFan();
    serve();
    hold(1s, 1);
    hold(1s, 0);
    giveBackInPart();
    poll(5s, 1);
    tellState(28s, withMode(ControlMode::manual));
    expectNoViolation();
    tellState(28s + instant, withMode(ControlMode::manual));
    expectViolation(Property::stateIsTrue, 28s + instant);
}

TEST_F(OracleStateTest, tellsNoTargetOfAFanThatWasGivenBack) {
    serve();
    hold(1s);
    write(1s, "F0Tg", 3000);
    giveBackInPart();
    tellState(8s, withTarget(3000));
    expectNoViolation();
    tellState(8s + instant, withTarget(3000));
    expectViolation(Property::stateIsTrue, 8s + instant);
}

TEST_F(OracleStateTest, mayTellOfAFanThatIsBackAndRefusesAllTheSame) {
    addFan();
    serve();
    hold(1s, 1);
    hold(1s, 0);
    giveBackInPart();
    refuse(6s);
    tellState(60s, withMode(ControlMode::manual));
    expectNoViolation();
}

TEST_F(OracleStateTest, tellsATargetOnlyWhenItWasWritten) {
    serve();
    hold(1s);
    tellState(2s, withTarget(3000));
    expectViolation(Property::stateIsTrue, 2s);
}

TEST_F(OracleStateTest, tellsATargetThatDiffersByOneFromWhatWasWritten) {
    serve();
    hold(1s);
    write(1s, "F0Tg", 3000);
    tellState(2s, withTarget(2999));
    tellState(2s, withTarget(3001));
    expectNoViolation();
    tellState(2s, withTarget(3002));
    expectViolation(Property::stateIsTrue, 2s);
}

TEST_F(OracleStateTest, tellsNoTargetOfAnEarlierLife) {
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

TEST_F(OracleStateTest, mayTellATargetWhoseWriteDidNotReachTheSMC) {
    serve();
    hold(1s);
    ask(1s, "F0Tg", refusal);
    tellState(2s, withTarget(3000));
    expectNoViolation();
}

TEST_F(OracleStateTest, tellsFullBlastOfAFanThatIsHeldAtAHundredPercent) {
    serve();
    hold(1s);
    const auto id = call(5s, Method::fullBlast);
    force(5s);
    reply(5s, id, Method::fullBlast);
    tellState(6s, withMode(ControlMode::fullBlast));
    expectNoViolation();
    tellState(7s, withMode(ControlMode::manual));
    expectViolation(Property::stateIsTrue, 7s);
}

TEST_F(OracleStateTest, mayTellAnotherModeOfAFanThatIsBeingGivenBack) {
    serve();
    hold(1s);
    const auto id = call(5s, Method::fullBlast);
    force(5s);
    reply(5s, id, Method::fullBlast);
    oracle().modeChanged(6s, 0, FanMode::automatic);
    tellState(6s, withMode(ControlMode::manual));
    expectNoViolation();
}

TEST_F(OracleStateTest, tellsFullBlastOfNoOther) {
    serve();
    hold(1s);
    tellState(2s, withMode(ControlMode::manual));
    expectNoViolation();
    tellState(3s, withMode(ControlMode::fullBlast));
    expectViolation(Property::stateIsTrue, 3s);
}

}  // namespace
}  // namespace airflow::simulation
