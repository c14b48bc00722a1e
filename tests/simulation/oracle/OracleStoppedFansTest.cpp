// What the daemon tells of fans that a plan has stopped: the smallest runs that break stateIsTrue,
// and the same runs on the right side of their bounds.
#include "OracleTrace.h"

namespace airflow::simulation {
namespace {

using control::ControlState;

/// Something is held, and fan 0 stands still.
ControlState withStop() {
    ControlState state;
    state.isHolding = true;
    state.stoppedFans = {0};
    return state;
}

class OracleStoppedFanTest : public OracleTrace {
protected:
    /// Both fans are held, and at 5 s a plan keeps fan 1 only.
    void leaveOutFan0() {
        addFan();
        serve();
        hold(1s, 0);
        hold(2s, 1);
        Call plan{.method = Method::applyConfig};
        plan.plan.fans.push_back({.fanID = 1, .mode = plan::FanControlModePlan::fixedRPM(3000)});
        const auto id = call(5s, plan);
        giveBack(5s, 0);
        reply(5s, id, Method::applyConfig);
    }
};

TEST_F(OracleStoppedFanTest, mayTellAStopAfterEveryFanWasGivenBackUntilTheNextStep) {
    serve();
    hold(1s);
    leave(5s);
    giveBack(5s);
    ControlState state;
    state.stoppedFans = {0};
    tellState(60s, state);
    expectNoViolation();
}

TEST_F(OracleStoppedFanTest, tellsNoStopOfAFanThatAPlanHasLeftOutWhileAnotherIsHeld) {
    leaveOutFan0();
    const ControlState state = withStop();
    tellState(8s, state);
    expectNoViolation();
    tellState(8s + instant, state);
    expectViolation(Property::stateIsTrue, 8s + instant);
}

TEST_F(OracleStoppedFanTest, mayTellAStopOfAFanThatAReleaseGaveBackUntilTheNextStep) {
    addFan();
    serve();
    connect(1s, "other");
    hold(1s, 0);
    hold(2s, 1);
    leave(5s, "other");
    giveBack(6s - instant, 0);
    giveBack(6s - instant, 1);
    hold(7s, 1);
    tellState(60s, withStop());
    expectNoViolation();
}

/// Nobody wanted any fan for a while, and the next step of the plan that came then is still to
/// come.
TEST_F(OracleStoppedFanTest, mayTellAStopOfAFanThatWasGivenBackBeforeAReleaseUntilTheNextStep) {
    leaveOutFan0();
    connect(8s, "other");
    leave(8s, "other");
    giveBack(8s, 1);
    look(9s);
    hold(10s, 1);
    tellState(60s, withStop());
    expectNoViolation();
}

}  // namespace
}  // namespace airflow::simulation
