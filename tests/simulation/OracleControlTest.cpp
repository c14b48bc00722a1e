// What happens while clients are heard, reasonsAreTrue, controlLasts, appliedIsTrue and
// heatEndsControl: the smallest runs that break them, and the same on the right side of the bound.
#include "OracleTrace.h"

namespace airflow::simulation {
namespace {

using control::ControlResult;

constexpr const char* silenceError = "no heartbeat for >15s — released to Auto";
constexpr const char* heatError = "thermal ceiling 97°C exceeded — released to Auto";
constexpr const char* blindError = "temperature data unavailable — released to Auto";

class OracleControlTest : public OracleTrace {};

// reasonsAreTrue

TEST_F(OracleControlTest, silenceIsMoreThanFifteenSecondsLong) {
    serve();
    (void)call(1s, Method::heartbeat);
    publish(16s, silenceError);
    expectViolation(Property::reasonsAreTrue, 16s);
}

TEST_F(OracleControlTest, andThenItIsAReason) {
    serve();
    (void)call(1s, Method::heartbeat);
    publish(16s + instant, silenceError);
    expectNoViolation();
}

TEST_F(OracleControlTest, aCommandEndsSilenceAsAHeartbeatDoes) {
    serve();
    hold(10s);
    publish(25s, silenceError);
    expectViolation(Property::reasonsAreTrue, 25s);
}

TEST_F(OracleControlTest, aSilenceThatEndedWithinTheLastThreeSecondsIsAReasonStill) {
    serve();
    (void)call(1s, Method::heartbeat);
    (void)call(17s, Method::heartbeat);
    publish(20s - instant, silenceError);
    expectNoViolation();
    publish(20s, silenceError);
    expectViolation(Property::reasonsAreTrue, 20s);
}

TEST_F(OracleControlTest, heatIsNoReasonOnAMachineThatIsNeverHot) {
    serve();
    publish(1s, heatError);
    expectViolation(Property::reasonsAreTrue, 1s);
}

TEST_F(OracleControlTest, butItIsOnOneThatMayBe) {
    scenario.machine.hid = Temperatures{{"CPU", 95.0}};
    serve();
    publish(1s, heatError);
    expectNoViolation();
}

TEST_F(OracleControlTest, missingTemperaturesAreNoReasonWhereAllCanBeRead) {
    serve();
    publish(1s, "temperature data unavailable (1/2)");
    expectNoViolation();
    publish(2s, blindError);
    expectViolation(Property::reasonsAreTrue, 2s);
}

TEST_F(OracleControlTest, butTheyAreWhereSomeCannot) {
    scenario.temperatures.push_back({.at = 1s, .hidesHID = true});
    serve();
    publish(2s, blindError);
    expectNoViolation();
}

// controlLasts

TEST_F(OracleControlTest, aFanThatAClientWantsIsNotGivenBackWhileTheClientIsHeard) {
    serve();
    hold(1s);
    giveBack(16s);
    expectViolation(Property::controlLasts, 16s);
}

TEST_F(OracleControlTest, butAfterFifteenSecondsOfSilenceItMayBe) {
    serve();
    hold(1s);
    giveBack(16s + instant);
    expectNoViolation();
}

TEST_F(OracleControlTest, evenIfTheSilenceEndedFiveSecondsAgo) {
    serve();
    hold(1s);
    (void)call(17s, Method::heartbeat);
    giveBack(22s - instant);
    expectNoViolation();
    force(22s);
    giveBack(22s);
    expectViolation(Property::controlLasts, 22s);
}

/// A retry may be in its last write as the command comes, and then undoes it.
TEST_F(OracleControlTest, whatARetryMayUndoIsNotKnown) {
    addFan();
    serve();
    refuse(4s + instant, 1);
    hold(5s);
    giveBack(7s);
    expectNoViolation();
}

TEST_F(OracleControlTest, aSecondAfterItsWriteItUndoesNothing) {
    addFan();
    serve();
    refuse(4s, 1);
    hold(5s);
    giveBack(7s);
    expectViolation(Property::controlLasts, 7s);
}

TEST_F(OracleControlTest, aFanThatAClientWantsAutomaticIsGivenBack) {
    serve();
    hold(1s);
    const auto id = call(3s, manual(0, 0));
    reply(3s, id, Method::setManualRPM);
    giveBack(3s);
    expectNoViolation();
}

// appliedIsTrue

TEST_F(OracleControlTest, aCommandIsNotAppliedWhileItsFanIsNotForced) {
    serve();
    const auto id = call(2s, manual());
    reply(3s, id, Method::setManualRPM);
    expectViolation(Property::appliedIsTrue, 3s);
}

TEST_F(OracleControlTest, aCommandThatSaysThatItFailedMayFail) {
    serve();
    const auto id = call(2s, manual());
    reply(3s, id, Method::setManualRPM, ControlResult::rejected(134));
    expectNoViolation();
}

TEST_F(OracleControlTest, aFanThatWasForcedWhenTheCommandWasSentIsEnough) {
    serve();
    hold(1s);
    const auto id = call(3s, manual());
    oracle().modeChanged(3s, 0, FanMode::reclaimed);
    reply(4s, id, Method::setManualRPM);
    expectNoViolation();
}

TEST_F(OracleControlTest, oneThatWasForcedJustBeforeIsNot) {
    serve();
    hold(1s);
    oracle().modeChanged(3s - instant, 0, FanMode::reclaimed);
    const auto id = call(3s, manual());
    reply(4s, id, Method::setManualRPM);
    expectViolation(Property::appliedIsTrue, 4s);
}

TEST_F(OracleControlTest, fullBlastForcesOnlyTheFansThatTheSMCTellsOf) {
    addFan();
    serve();
    const auto id = call(2s, Method::fullBlast);
    read(2s, "FNum", 1);
    force(2s, 0);
    reply(3s, id, Method::fullBlast);
    expectNoViolation();
}

TEST_F(OracleControlTest, fullBlastForcesEveryFan) {
    addFan();
    serve();
    const auto id = call(2s, Method::fullBlast);
    force(2s, 0);
    reply(3s, id, Method::fullBlast);
    expectViolation(Property::appliedIsTrue, 3s);
    EXPECT_EQ(oracle().violation()->what, "fullBlast was applied, and fan 1 is not forced");
}

// heatEndsControl

class OracleHeatTest : public OracleTrace {
protected:
    /// From 10 s on the machine is so hot; its fan has been forced since 1 s.
    void heatTo(double celsius) {
        scenario.temperatures.push_back({.at = 10s, .hid = {{"CPU", celsius}}});
        serve();
        hold(1s);
        machine().setHIDTemperature("CPU", celsius);
        look(10s);
    }
};

TEST_F(OracleHeatTest, endsControlWithinFiveSecondsAndTenForTheFan) {
    heatTo(95.5);
    expectViolationJustAfter(25s, Property::heatEndsControl);
}

TEST_F(OracleHeatTest, andTenMoreForASecondFan) {
    addFan();
    heatTo(95.5);
    expectViolationJustAfter(35s, Property::heatEndsControl);
}

TEST_F(OracleHeatTest, doesNotWhenItIsLess) {
    heatTo(95.4);
    look(31s);
    expectNoViolation();
}

TEST_F(OracleHeatTest, countsFromItsLastBeginning) {
    heatTo(95.5);
    machine().setHIDTemperature("CPU", 95.4);
    look(11s);
    machine().setHIDTemperature("CPU", 95.5);
    look(12s);
    expectViolationJustAfter(27s, Property::heatEndsControl);
}

TEST_F(OracleHeatTest, givesAFanThatWasForcedLaterAsLong) {
    heatTo(95.5);
    giveBack(11s);
    hold(12s);
    expectViolationJustAfter(27s, Property::heatEndsControl);
}

}  // namespace
}  // namespace airflow::simulation
