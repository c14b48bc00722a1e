#include <gmock/gmock.h>

#include <chrono>
#include <utility>

#include "simulation/oracle/HeldFans.h"
#include "support/Doubles.h"

namespace airflow::simulation {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using tests::notANumber;
using namespace std::chrono_literals;
using Method = Call::Method;
using Mode = plan::FanControlModePlan;

Call manual(std::int64_t fan, std::int64_t rpm) {
    return {.method = Method::setManualRPM, .fan = fan, .rpm = rpm};
}
Call percentOf(std::int64_t fan, double percent) {
    return {.method = Method::setPercent, .fan = fan, .percent = percent};
}
plan::FanControlPlan planOf(std::vector<plan::FanPlan> fans,
                            std::vector<plan::FanRule> rules = {}) {
    plan::FanControlPlan plan;
    plan.fans = std::move(fans);
    plan.rules = std::move(rules);
    return plan;
}
Call plan(std::vector<plan::FanPlan> fans, std::vector<plan::FanRule> rules = {}) {
    return {.method = Method::applyConfig, .plan = planOf(std::move(fans), std::move(rules))};
}

class HeldFansTest : public testing::Test {
protected:
    void command(const Call& call) { held.command(call, true); }

    HeldFans held{3};
};

TEST_F(HeldFansTest, areNoneAtFirst) {
    EXPECT_THAT(held.fans(), IsEmpty());
}

TEST_F(HeldFansTest, areThoseWithASpeedAboveZero) {
    command(manual(1, 1));
    command(percentOf(0, 0.1));
    EXPECT_THAT(held.fans(), ElementsAre(0, 1));
    command(manual(1, 0));
    EXPECT_THAT(held.fans(), ElementsAre(0));
    command(percentOf(0, 0));
    EXPECT_THAT(held.fans(), IsEmpty());
}

TEST_F(HeldFansTest, areNotThoseWithASpeedBelowZero) {
    command(manual(1, 3000));
    command(percentOf(0, 50));
    command(manual(1, -1));
    command(percentOf(0, -0.1));
    EXPECT_THAT(held.fans(), IsEmpty());
}

TEST_F(HeldFansTest, areAllAtFullBlast) {
    command({.method = Method::fullBlast});
    EXPECT_THAT(held.fans(), ElementsAre(0, 1, 2));
}

TEST_F(HeldFansTest, areThoseThatAPlanFixesAndNoOthers) {
    command(manual(2, 3000));
    command(plan({{.fanID = 0, .mode = Mode::fixedRPM(1)},
                  {.fanID = 1, .mode = Mode::fixedPercent(0.1)},
                  {.fanID = 2, .mode = Mode::automatic()}}));
    EXPECT_THAT(held.fans(), ElementsAre(0, 1));
}

TEST_F(HeldFansTest, areNotThoseThatAPlanStopsOrLeavesToACurve) {
    command(plan({{.fanID = 0, .mode = Mode::fixedRPM(0)},
                  {.fanID = 1, .mode = Mode::fixedPercent(0)},
                  {.fanID = 2, .mode = Mode::curve({})}}));
    EXPECT_THAT(held.fans(), IsEmpty());
}

TEST_F(HeldFansTest, areNotThoseThatNoMachineHas) {
    command(plan({{.fanID = -1, .mode = Mode::fixedRPM(3000)}}));
    EXPECT_THAT(held.fans(), IsEmpty());
}

TEST_F(HeldFansTest, areNotKnownWhileAPlanHasRules) {
    command(plan({{.fanID = 0, .mode = Mode::fixedRPM(3000)}}, {{}}));
    EXPECT_THAT(held.fans(), IsEmpty());
    command(plan({{.fanID = 0, .mode = Mode::fixedRPM(3000)}}));
    EXPECT_THAT(held.fans(), ElementsAre(0));
}

TEST_F(HeldFansTest, areNotKnownAfterACommandThatWasNotAlone) {
    held.command(manual(0, 3000), false);
    EXPECT_THAT(held.fans(), IsEmpty());
    command(manual(1, 3000));  // changes one fan, and does not say what the others are
    EXPECT_THAT(held.fans(), IsEmpty());
    command(plan({{.fanID = 1, .mode = Mode::fixedRPM(3000)}}));
    EXPECT_THAT(held.fans(), ElementsAre(1));
}

TEST_F(HeldFansTest, areNotKnownAfterOneThatFailed) {
    command(manual(0, 3000));
    held.lose();
    EXPECT_THAT(held.fans(), IsEmpty());
}

TEST_F(HeldFansTest, areKnownToBeNoneAfterARelease) {
    command(manual(0, 3000));
    held.lose();
    held.release();
    EXPECT_THAT(held.fans(), IsEmpty());
    command(manual(1, 3000));
    EXPECT_THAT(held.fans(), ElementsAre(1));
}

TEST_F(HeldFansTest, areAtFullBlastWithAHundredPercentOrMore) {
    command({.method = Method::fullBlast});
    EXPECT_TRUE(held.isAtFullBlast(2));
    command(manual(2, 6000));
    EXPECT_FALSE(held.isAtFullBlast(2));
    command(percentOf(2, 99.9));
    EXPECT_FALSE(held.isAtFullBlast(2));
    command(percentOf(2, 100));
    EXPECT_TRUE(held.isAtFullBlast(2));
    command(plan({{.fanID = 0, .mode = Mode::fixedPercent(101)},
                  {.fanID = 1, .mode = Mode::fixedPercent(99)}}));
    EXPECT_TRUE(held.isAtFullBlast(0));
    EXPECT_FALSE(held.isAtFullBlast(1));
    EXPECT_FALSE(held.isAtFullBlast(2));
    held.lose();
    EXPECT_FALSE(held.isAtFullBlast(0));
}

TEST(ManagedFans, areThoseThatAPlanDoesNotLeaveOnAuto) {
    EXPECT_THAT(managedFans(plan({}), 2), IsEmpty());
    EXPECT_THAT(managedFans(plan({{.fanID = 0, .mode = Mode::automatic()}}), 2), IsEmpty());
    EXPECT_THAT(managedFans(plan({{.fanID = 0, .mode = Mode::automatic()},
                                  {.fanID = 1, .mode = Mode::curve({})}}),
                            2),
                ElementsAre(1));
    EXPECT_THAT(managedFans(plan({{.fanID = 0, .mode = Mode::fixedRPM(0)}}), 2), ElementsAre(0));
    EXPECT_THAT(managedFans(plan({{.fanID = -1, .mode = Mode::fixedRPM(1)}}), 2), IsEmpty());
}

TEST(ManagedFans, areAllWhereRulesMayChoose) {
    EXPECT_THAT(managedFans(plan({}, {{}}), 2), ElementsAre(0, 1));
}

TEST(ManagedFans, areThatOfACommandForOneFan) {
    EXPECT_THAT(managedFans(manual(1, 0), 2), ElementsAre(1));
    EXPECT_THAT(managedFans(manual(-1, 3000), 2), IsEmpty());
    EXPECT_THAT(managedFans({.method = Method::fullBlast}, 2), ElementsAre(0, 1));
}

TEST(FixedFans, areThoseWithASpeedAboveZero) {
    EXPECT_THAT(fixedFans(manual(1, 1), 2), ElementsAre(1));
    EXPECT_THAT(fixedFans(manual(1, 0), 2), IsEmpty());
    EXPECT_THAT(fixedFans(percentOf(0, 0.1), 2), ElementsAre(0));
    EXPECT_THAT(fixedFans({.method = Method::fullBlast}, 2), ElementsAre(0, 1));
    EXPECT_THAT(fixedFans(plan({{.fanID = 1, .mode = Mode::fixedRPM(1)}}), 2), ElementsAre(1));
    EXPECT_THAT(fixedFans(plan({{.fanID = 1, .mode = Mode::fixedRPM(1)}}, {{}}), 2), IsEmpty());
}

Scenario calm() {
    Scenario scenario;
    scenario.machine.hid = Temperatures{{"CPU", 50.0}};
    scenario.machine.smc = {{"TC0P", 50.0}};
    return scenario;
}

TEST(ReachesCeiling, whateverComesWithinATenthOfADegree) {
    EXPECT_FALSE(reachesCeiling(calm()));
    for (const auto& [celsius, isHot] : {std::pair(94.89, false), {94.9, true}, {95.0, true}}) {
        SCOPED_TRACE(celsius);
        Scenario byHID = calm();
        byHID.machine.hid->at(0).second = celsius;
        EXPECT_EQ(reachesCeiling(byHID), isHot);
        Scenario bySMC = calm();
        bySMC.machine.smc.at(0).second = celsius;
        EXPECT_EQ(reachesCeiling(bySMC), isHot);
        Scenario later = calm();
        later.temperatures.push_back({.at = 1s, .hid = {{"CPU", celsius}}});
        EXPECT_EQ(reachesCeiling(later), isHot);
        Scenario bySMCLater = calm();
        bySMCLater.temperatures.push_back({.at = 1s, .smc = {{"TC0P", celsius}}});
        EXPECT_EQ(reachesCeiling(bySMCLater), isHot);
    }
}

TEST(ReachesCeiling, whateverFollowsALoad) {
    Scenario scenario = calm();
    scenario.thermal.emplace();
    EXPECT_TRUE(reachesCeiling(scenario));
}

TEST(ReachesCeiling, noSensorThatVanishes) {
    Scenario scenario = calm();
    scenario.temperatures.push_back({.at = 1s, .hid = {{"CPU", std::nullopt}}});
    EXPECT_FALSE(reachesCeiling(scenario));
}

Fault faultOf(const std::string& key, Fault::Operation operation) {
    return {.key = key, .operation = operation, .result = 0x86};
}

TEST(ReadsEverything, unlessAReadIsWrong) {
    EXPECT_TRUE(readsEverything(calm()));
    for (const auto& [fault, isRead] : {std::pair(faultOf("F0Md", Fault::Operation::write), true),
                                        {faultOf("*", Fault::Operation::write), false},
                                        {faultOf("TC0P", Fault::Operation::read), false},
                                        {faultOf("F0Md", Fault::Operation::information), false},
                                        {faultOf("F0Md", Fault::Operation::enumeration), false}}) {
        Scenario scenario = calm();
        scenario.faults = {fault};
        EXPECT_EQ(readsEverything(scenario), isRead) << fault.key;
        EXPECT_EQ(showsHeat(scenario), isRead) << fault.key;
    }
}

TEST(ReadsEverything, unlessTheSensorsStandStill) {
    Scenario scenario = calm();
    scenario.jitter = 0;
    EXPECT_FALSE(readsEverything(scenario));
    EXPECT_FALSE(showsHeat(scenario));
}

TEST(ReadsEverything, unlessTemperaturesChange) {
    Scenario scenario = calm();
    scenario.temperatures.push_back({.at = 1s, .hid = {{"CPU", 60.0}}});
    EXPECT_FALSE(readsEverything(scenario));
    EXPECT_TRUE(showsHeat(scenario));
}

TEST(ShowsHeat, unlessWhatTheHubShowsCannotBeBelieved) {
    for (const auto& [celsius, isShown] : {std::pair(-40.0, false),
                                           {-39.9, true},
                                           {149.9, true},
                                           {150.0, false},
                                           {notANumber, false}}) {
        SCOPED_TRACE(celsius);
        Scenario scenario = calm();
        scenario.temperatures.push_back({.at = 1s, .hid = {{"CPU", celsius}}});
        EXPECT_EQ(showsHeat(scenario), isShown);
    }
}

TEST(ShowsHeat, unlessASensorOrTheHubVanishes) {
    Scenario sensor = calm();
    sensor.temperatures.push_back({.at = 1s, .hid = {{"CPU", std::nullopt}}});
    EXPECT_FALSE(showsHeat(sensor));
    Scenario hub = calm();
    hub.temperatures.push_back({.at = 1s, .hidesHID = true});
    EXPECT_FALSE(showsHeat(hub));
}

TEST(ShowsHeat, byTheSMCWhereTheHubCannotBeAsked) {
    Scenario scenario = calm();
    scenario.machine.hasHIDSymbols = false;
    scenario.temperatures.push_back({.at = 1s, .smc = {{"TC0P", 99.0}}});
    EXPECT_TRUE(showsHeat(scenario));
    scenario.temperatures.push_back({.at = 2s, .smc = {{"TC0P", 150.0}}});
    EXPECT_FALSE(showsHeat(scenario));
}

}  // namespace
}  // namespace airflow::simulation
