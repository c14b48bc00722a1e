// What the daemon tells of its reasons: the smallest runs that break reasonsAreTrue, and that part
// of stateIsTrue which keeps a reason standing; and the same runs on the right side of their
// bounds.
#include "OracleTrace.h"

namespace airflow::simulation {
namespace {

using control::ControlState;

control::ControlError refusedRelease() {
    return control::NotRestored{
        {{.key = "F0Md", .answer = smc::SMCWriting::WriteResult(std::uint8_t{0x86})}}};
}

/// In an ordinary run the guard has nothing to do.
HIDHang reasonForTheGuard() {
    return {.from = 600s, .until = 601s};
}

class OracleStandingReasonTest : public OracleTrace {};

TEST_F(OracleStandingReasonTest, keepsTheReasonOfASafetyRelease) {
    serve();
    hold(1s);
    giveBack(17s);
    publish(17s, control::HeartbeatLost{});
    expectNoViolation();
    publish(18s);
    expectViolation(Property::stateIsTrue, 18s);
}

TEST_F(OracleStandingReasonTest, keepsItUntilSomethingNewerHappens) {
    serve();
    hold(1s);
    giveBack(17s);
    publish(17s, control::HeartbeatLost{});
    leave(18s);
    publish(18s);
    expectNoViolation();
}

TEST_F(OracleStandingReasonTest, keepsTheRefusalOfAFanThatRefusesStill) {
    serve();
    hold(1s);
    leave(5s);
    refuse(5s);
    publish(5s, refusedRelease());
    expectNoViolation();
    publish(6s);
    expectViolation(Property::stateIsTrue, 6s);
}

TEST_F(OracleStandingReasonTest, forgetsItWhenTheFanWentBack) {
    serve();
    hold(1s);
    leave(5s);
    refuse(5s);
    publish(5s, refusedRelease());
    giveBack(7s);
    publish(7s);
    expectNoViolation();
}

TEST_F(OracleStandingReasonTest, forgetsItWhenTheSMCSaysSoAndTheFanRefusesTheGuardLater) {
    serve();
    hold(1s);
    leave(5s);
    refuse(5s);
    publish(5s, refusedRelease());
    lie(7s);
    refuse(9s);
    publish(9s);
    expectNoViolation();
}

control::ControlError refusedForceTest() {
    return control::NotRestored{
        {{.key = "Ftst", .answer = smc::SMCWriting::WriteResult(std::uint8_t{0x86})}}};
}

TEST_F(OracleStandingReasonTest, keepsTheRefusalOfForceTestUntilItIsLowered) {
    serve();
    hold(1s);
    leave(5s);
    giveBack(5s);
    write(5s, "Ftst", 0, refusal);
    publish(5s, refusedForceTest());
    write(6s, "Ftst", 1);
    write(6s, "Ftst", 0, refusal);
    publish(6s, refusedForceTest());
    expectNoViolation();
    publish(7s);
    expectViolation(Property::stateIsTrue, 7s);
}

TEST_F(OracleStandingReasonTest, forgetsTheRefusalOfForceTestWhenItWasLowered) {
    serve();
    hold(1s);
    leave(5s);
    giveBack(5s);
    write(5s, "Ftst", 0, refusal);
    publish(5s, refusedForceTest());
    write(7s, "Ftst", 0);
    publish(7s);
    expectNoViolation();
}

TEST_F(OracleStandingReasonTest, isPublishedAgainWhenTheGuardHasActed) {
    scenario.hidHangs.push_back(reasonForTheGuard());
    serve();
    hold(1s);
    giveBack(17s);
    publish(17s, control::HeartbeatLost{});
    oracle().guarded(18s);
    publish(18s);
    expectNoViolation();
}

// reasonsAreTrue

class OracleReasonTest : public OracleTrace {
protected:
    /// The hold loop asserts what it holds at 7 s, and the guard acts and tells why.
    void checkAtSevenAndGuard(Duration guarded, Duration told) {
        scenario.hidHangs.push_back(reasonForTheGuard());
        serve();
        hold(1s);
        write(7s, "F0Md", 1);
        oracle().guarded(guarded);
        if (told > guarded) write(told, "F0Md", 1);
        publish(told, control::ChecksOverdue{});
    }
};

TEST_F(OracleReasonTest, isASilenceOfMoreThanFifteenSeconds) {
    serve();
    (void)call(1s, Method::heartbeat);
    publish(16s, control::HeartbeatLost{});
    expectViolation(Property::reasonsAreTrue, 16s);
}

TEST_F(OracleReasonTest, isASilenceOfAnInstantMore) {
    serve();
    (void)call(1s, Method::heartbeat);
    publish(16s + instant, control::HeartbeatLost{});
    expectNoViolation();
}

TEST_F(OracleReasonTest, isNoSilenceThatACommandEnded) {
    serve();
    hold(10s);
    publish(25s, control::HeartbeatLost{});
    expectViolation(Property::reasonsAreTrue, 25s);
}

TEST_F(OracleReasonTest, isASilenceThatEndedWithinTheLastThreeSeconds) {
    serve();
    (void)call(1s, Method::heartbeat);
    (void)call(17s, Method::heartbeat);
    publish(20s - instant, control::HeartbeatLost{});
    expectNoViolation();
}

TEST_F(OracleReasonTest, isNotASilenceThatEndedThreeSecondsAgo) {
    serve();
    (void)call(1s, Method::heartbeat);
    (void)call(17s, Method::heartbeat);
    publish(20s, control::HeartbeatLost{});
    expectViolation(Property::reasonsAreTrue, 20s);
}

TEST_F(OracleReasonTest, isASilenceByAWallClockThatWasSetForward) {
    serve();
    (void)call(1s, Method::heartbeat);
    oracle().clockJumped(2s, 10);
    publish(6s, control::HeartbeatLost{});
    expectViolation(Property::reasonsAreTrue, 6s);
}

TEST_F(OracleReasonTest, isASilenceByTheSecondsOfThatJump) {
    serve();
    (void)call(1s, Method::heartbeat);
    oracle().clockJumped(2s, 10);
    publish(6s + instant, control::HeartbeatLost{});
    expectNoViolation();
}

TEST_F(OracleReasonTest, isNoHeatOnAMachineThatIsNeverHot) {
    serve();
    publish(1s, control::CeilingExceeded{97});
    expectViolation(Property::reasonsAreTrue, 1s);
}

TEST_F(OracleReasonTest, isHeatOnOneThatMayBe) {
    scenario.machine.hid = Temperatures{{"CPU", 95.0}};
    serve();
    publish(1s, control::CeilingExceeded{95});
    expectNoViolation();
    publish(2s, control::CeilingExceeded{94.9});
    expectViolation(Property::reasonsAreTrue, 2s);
}

TEST_F(OracleReasonTest, areNoMissingTemperaturesWhereAllCanBeRead) {
    serve();
    publish(1s, control::TemperaturesMissing{.snapshots = 1, .limit = 2});
    expectNoViolation();
    publish(2s, control::TemperaturesMissing{.snapshots = 2, .limit = 2});
    expectViolation(Property::reasonsAreTrue, 2s);
}

TEST_F(OracleReasonTest, areMissingTemperaturesWhereSomeCannot) {
    scenario.temperatures.push_back({.at = 1s, .hidesHID = true});
    serve();
    publish(2s, control::TemperaturesMissing{.snapshots = 2, .limit = 2});
    expectNoViolation();
}

TEST_F(OracleReasonTest, areChecksOfMoreThanFiveSecondsAgo) {
    checkAtSevenAndGuard(12s + instant, 12s + instant);
    expectNoViolation();
}

TEST_F(OracleReasonTest, areNoChecksOfLess) {
    checkAtSevenAndGuard(12s, 12s);
    expectViolation(Property::reasonsAreTrue, 12s);
}

TEST_F(OracleReasonTest, isNotDisprovedByACheckThatComesWhenTheGuardHasMadeUpItsMind) {
    checkAtSevenAndGuard(12s + instant, 13s);
    expectNoViolation();
}

TEST_F(OracleReasonTest, isDisprovedByACheckFiveSecondsBeforeTheGuardActed) {
    checkAtSevenAndGuard(12s, 13s);
    expectViolation(Property::reasonsAreTrue, 13s);
}

TEST_F(OracleReasonTest, isNotDisprovedByTheClaimOfACommand) {
    scenario.hidHangs.push_back(reasonForTheGuard());
    serve();
    hold(1s);
    hold(7s);
    oracle().guarded(12s);
    publish(12s, control::ChecksOverdue{});
    expectNoViolation();
}

TEST_F(OracleReasonTest, isAFanThatNobodyHeld) {
    serve();
    hold(1s);
    publish(2s, control::FanUnattended{});
    expectViolation(Property::reasonsAreTrue, 2s);
}

TEST_F(OracleReasonTest, isAHeldFanThatNobodyHasWrittenToForMoreThanNineSeconds) {
    serve();
    hold(1s);
    giveBack(10s + instant);
    publish(10s + instant, control::FanUnattended{});
    expectNoViolation();
}

TEST_F(OracleReasonTest, isNoHeldFanThatSomebodyWroteToNineSecondsAgo) {
    serve();
    hold(1s);
    giveBack(10s);
    publish(10s, control::FanUnattended{});
    expectViolation(Property::reasonsAreTrue, 10s);
}

TEST_F(OracleReasonTest, isAFanThatWasForcedBesideThoseThatAreHeld) {
    addFan();
    serve();
    hold(1s, 0);
    oracle().modeChanged(2s, 1, FanMode::forced);
    oracle().modeChanged(3s, 1, FanMode::automatic);
    publish(3s, control::FanUnattended{});
    expectNoViolation();
}

TEST_F(OracleReasonTest, givesTheText) {
    serve();
    ControlState state;
    state.cause = control::Reclaimed{{0}};
    state.lastError = "something else";
    oracle().published(1s, state);
    expectViolation(Property::reasonsAreTrue, 1s);
}

TEST_F(OracleReasonTest, isTheSourceOfEveryText) {
    serve();
    ControlState state;
    state.lastError = "something";
    oracle().published(1s, state);
    expectViolation(Property::reasonsAreTrue, 1s);
}

}  // namespace
}  // namespace airflow::simulation
