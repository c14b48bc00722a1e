// Heat ends control: the smallest runs that break this property, and the same runs on the right
// side of its bound.
#include "OracleTrace.h"

namespace airflow::simulation {
namespace {

class OracleHeatTest : public OracleTrace {
protected:
    /// From 10 s on the machine is so hot; its fan has been forced since 1 s.
    void heatTo(double celsius) {
        scenario.temperatures.push_back({.at = 10s, .hid = {{"CPU", celsius}}});
        serve();
        hold(1s);
        watch(2s, 9s);
        machine().setHIDTemperature("CPU", celsius);
        look(10s);
    }
};

TEST_F(OracleHeatTest, endsControlWithinFiveSeconds) {
    heatTo(95.5);
    watch(10s, 15s);
    expectViolationJustAfter(15s, Property::heatEndsControl);
}

TEST_F(OracleHeatTest, endsControlWithinTenSecondsMoreForEachFanWhereAClaimIsRefused) {
    addFan();
    heatTo(95.5);
    want(11s, 1);
    poll(12s, 1);
    watch(12s, 36s);
    expectViolationJustAfter(36s, Property::heatEndsControl);
}

TEST_F(OracleHeatTest, doesNotEndControlBelowTheCeiling) {
    heatTo(95.4);
    watch(10s, 31s);
    look(31s);
    expectNoViolation();
}

TEST_F(OracleHeatTest, countsFromItsLastBeginning) {
    heatTo(95.5);
    machine().setHIDTemperature("CPU", 95.4);
    look(11s);
    machine().setHIDTemperature("CPU", 95.5);
    look(12s);
    watch(10s, 17s);
    expectViolationJustAfter(17s, Property::heatEndsControl);
}

TEST_F(OracleHeatTest, givesAFanThatWasForcedLaterAsLong) {
    heatTo(95.5);
    giveBack(11s);
    hold(12s);
    watch(12s, 17s);
    expectViolationJustAfter(17s, Property::heatEndsControl);
}

TEST_F(OracleHeatTest, ofAnSMCTemperatureCountsWhereTheHubShowsNone) {
    scenario.machine.hid.reset();
    scenario.machine.smc = {{"TCMb", 50.0}};
    scenario.temperatures.push_back({.at = 10s, .smc = {{"TCMb", 99}}});
    serve();
    hold(1s);
    machine().setSMCTemperature("TCMb", 99);
    look(10s);
    watch(10s, 15s);
    expectViolationJustAfter(15s, Property::heatEndsControl);
}

TEST_F(OracleHeatTest, ofAnSMCTemperatureIsNotSeenWhereTheHubShowsSome) {
    scenario.machine.smc = {{"TCMb", 50.0}};
    scenario.temperatures.push_back({.at = 10s, .smc = {{"TCMb", 99}}});
    serve();
    hold(1s);
    machine().setSMCTemperature("TCMb", 99);
    look(10s);
    watch(10s, 15s);
    look(16s);
    expectNoViolation();
}

/// A stopped fan is a forced one, and so is what is held beside it.
TEST_F(OracleHeatTest, endsTheStopOfAFanToo) {
    addFan();
    heatTo(95.5);
    reply(10s, call(10s, manual(1, 0)), Method::setManualRPM);
    force(10s, 1);
    write(10s, "F1Tg", 0);
    giveBack(14s, 0);
    watch(11s, 15s);
    expectViolationJustAfter(15s, Property::heatEndsControl);
    EXPECT_EQ(oracle().violation()->what.substr(0, 5), "fan 1");
}

TEST_F(OracleHeatTest, thatCannotBeReadEndsNothing) {
    scenario.faults.push_back(
        {.key = "TC0P", .operation = Fault::Operation::read, .result = refusal});
    serve();
    hold(1s);
    machine().setHIDTemperature("CPU", 99);
    look(10s);
    watch(10s, 31s);
    look(31s);
    expectNoViolation();
}

TEST_F(OracleHeatTest, leavesAFanThatRefusesPending) {
    heatTo(95.5);
    watch(10s, 17s);
    refuse(14s);
    look(16500ms);
    expectNoViolation();
    look(16500ms + instant);
    expectViolation(Property::heatEndsControl, 16500ms + instant);
}

}  // namespace
}  // namespace airflow::simulation
