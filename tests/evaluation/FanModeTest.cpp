#include <limits>

#include "evaluation/Builders.h"
#include "support/Doubles.h"

namespace airflow::evaluation {
namespace {

using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;
using tests::infinity;
using tests::notANumber;

class FanMode : public EvaluatorTest {};

TEST_F(FanMode, aPlanWithoutFansDecidesNothing) {
    plan = plan::FanControlPlan::allAutomatic();
    EXPECT_THAT(tick(0), IsEmpty());
}

TEST_F(FanMode, aFanThatIsNotPlannedGetsNoDecision) {
    snapshot.fans = {fan(0), fan(1)};
    ask(1, Mode::fixedRPM(2000));
    EXPECT_THAT(tick(0), UnorderedElementsAre(Pair(1, rpm(2000))));
}

TEST_F(FanMode, aPlannedFanAbsentFromTheSnapshotGetsNoDecisionAtAll) {
    ask(7, Mode::automatic());
    ask(8, Mode::fixedRPM(2000));
    EXPECT_THAT(tick(0), IsEmpty());
}

TEST_F(FanMode, aFanThatVanishesKeepsItsState) {
    ask(Mode::fixedPercent(0));
    tick(0);
    tick(10);
    ask(Mode::fixedPercent(50));
    tick(11);  // stopped, and its resume timer runs
    const PlanEvaluator before = evaluator;
    snapshot.fans = {};
    EXPECT_EQ(decisionAt(12), std::nullopt);
    EXPECT_EQ(evaluator, before);
    snapshot.fans = {fan(0)};
    EXPECT_EQ(decisionAt(14), rpm(3000));
}

TEST_F(FanMode, aFanThatVanishesKeepsItsLastTarget) {
    ask(Mode::fixedRPM(2000));
    tick(0);
    ask(degreesAsPercent());
    read(100);
    snapshot.fans = {};
    EXPECT_EQ(decisionAt(1), std::nullopt);
    snapshot.fans = {fan(0)};
    EXPECT_EQ(decisionAt(2), rpm(2400));
}

TEST_F(FanMode, anAutomaticFanIsReleasedAndForgotten) {
    ask(Mode::fixedPercent(0));
    tick(0);
    tick(10);
    ask(Mode::fixedPercent(50));
    tick(11);
    evaluator.lastTargetByFan[0] = 1234;
    ask(Mode::automatic());
    EXPECT_EQ(decisionAt(12), released);
    EXPECT_EQ(evaluator, PlanEvaluator{});
}

TEST_F(FanMode, aFixedSpeedIsClampedToTheFansLimits) {
    const std::vector<std::pair<double, double>> askedAndTarget = {
        {999.5, 1000},  {1000, 1000}, {1000.5, 1000.5}, {4999.5, 4999.5}, {5000, 5000},
        {5000.5, 5000}, {0, 1000},    {-1, 1000},       {infinity, 5000}, {-infinity, 1000}};
    for (const auto& [asked, target] : askedAndTarget) {
        ask(Mode::fixedRPM(asked));
        EXPECT_EQ(decisionAt(0), rpm(target)) << asked;
    }
}

TEST_F(FanMode, aFixedSpeedThatIsNotANumberIsTheMinimum) {
    ask(Mode::fixedRPM(notANumber));
    EXPECT_EQ(decisionAt(0), rpm(1000));
}

TEST_F(FanMode, aFixedSpeedJumpsAtOnce) {
    ask(Mode::fixedRPM(1200));
    EXPECT_EQ(decisionAt(0), rpm(1200));
    ask(Mode::fixedRPM(5000));
    EXPECT_EQ(decisionAt(1), rpm(5000));
    ask(Mode::fixedRPM(1200));
    EXPECT_EQ(decisionAt(2), rpm(1200));
}

TEST_F(FanMode, aFixedPercentageIsThatShareOfTheFansRange) {
    const std::vector<std::pair<double, double>> askedAndTarget = {
        {0, 1000},   {0.5, 1020},   {25, 2000}, {50, 3000},       {99.5, 4980},
        {100, 5000}, {100.5, 5000}, {-5, 1000}, {infinity, 5000}, {-infinity, 1000}};
    for (const auto& [asked, target] : askedAndTarget) {
        ask(Mode::fixedPercent(asked));
        EXPECT_EQ(decisionAt(0), rpm(target)) << asked;
    }
}

TEST_F(FanMode, aFixedPercentageThatIsNotANumberIsARequestToStandStill) {
    ask(Mode::fixedPercent(notANumber));
    EXPECT_EQ(decisionAt(0), rpm(1000));
    EXPECT_EQ(decisionAt(10), stopped);
}

TEST_F(FanMode, aFixedPercentageJumpsAtOnce) {
    ask(Mode::fixedPercent(5));
    EXPECT_EQ(decisionAt(0), rpm(1200));
    ask(Mode::fixedPercent(100));
    EXPECT_EQ(decisionAt(1), rpm(5000));
}

TEST_F(FanMode, aCurveFollowsItsOwnSensor) {
    snapshot.temps = {sensor("A", 75), sensor("B", 25)};
    ask(degreesAsPercent("SMC-B"));
    EXPECT_EQ(decisionAt(0), rpm(2000));
}

TEST_F(FanMode, aCurveWithoutASensorFollowsTheHottest) {
    snapshot.temps = {sensor("A", 25), sensor("B", 75), sensor("C", 50)};
    ask(degreesAsPercent());
    EXPECT_EQ(decisionAt(0), rpm(4000));
}

TEST_F(FanMode, aCurveIsAStraightLineBetweenItsPointsAndFlatBeyondThem) {
    plan.tuning.maxDeltaRPMPerTick = 10'000;
    ask(curve({{40, 20}, {60, 80}}));
    const std::vector<std::pair<double, double>> celsiusAndTarget = {
        {-10, 1800}, {40, 1800}, {45, 2400}, {50, 3000}, {60, 4200}, {99, 4200}};
    for (const auto& [celsius, target] : celsiusAndTarget) {
        read(celsius);
        EXPECT_EQ(decisionAt(0), rpm(target)) << celsius;
    }
}

TEST_F(FanMode, aCurvePointBeyondAHundredPercentIsReachedAsFullSpeed) {
    ask(curve({{40, 120}}));
    read(40);
    EXPECT_EQ(decisionAt(0), rpm(5000));
}

TEST_F(FanMode, aCurveWithoutPointsAsksTheFanToStandStill) {
    ask(curve({}));
    read(99);
    EXPECT_EQ(decisionAt(0), rpm(1000));
    EXPECT_EQ(decisionAt(10), stopped);
}

TEST_F(FanMode, aCurveWhoseSensorIsMissingReleasesItsFanAndClearsItsState) {
    snapshot.temps = {sensor("A", 0)};
    ask(degreesAsPercent("SMC-A"));
    tick(0);
    EXPECT_EQ(decisionAt(10), stopped);
    snapshot.temps = {sensor("B", 50)};
    EXPECT_EQ(decisionAt(11), released);
    evaluator.emaBySensor.clear();
    EXPECT_EQ(evaluator, PlanEvaluator{});
}

TEST_F(FanMode, aCurveWithoutASensorReleasesItsFanWhenThereAreNone) {
    ask(degreesAsPercent());
    read(50);
    EXPECT_EQ(decisionAt(0), rpm(3000));
    readNothing();
    EXPECT_EQ(decisionAt(1), released);
    EXPECT_EQ(evaluator, PlanEvaluator{});
}

TEST_F(FanMode, aCurveAtATemperatureThatIsNotANumberAsksTheFanToStandStill) {
    ask(degreesAsPercent());
    read(notANumber);
    EXPECT_EQ(decisionAt(0), rpm(1000));
    EXPECT_EQ(decisionAt(10), stopped);
}

TEST_F(FanMode, aCurveAtAnInfiniteTemperatureIsAtItsEnd) {
    ask(curve({{40, 20}, {60, 80}}));
    read(infinity);
    EXPECT_EQ(decisionAt(0), rpm(4200));
}

TEST_F(FanMode, aCurvePointThatIsNotANumberLeavesTheOthersInOrder) {
    ask(curve({{80, 80}, {notANumber, 0}, {20, 20}}));
    read(50);
    EXPECT_EQ(decisionAt(0), rpm(3000));
}

TEST_F(FanMode, theMaximumWinsOverAMinimumAboveIt) {
    snapshot.fans = {fan(0, 3000, 2000)};
    read(50);
    for (const Mode& mode :
         {Mode::fixedRPM(1000), Mode::fixedRPM(2500), Mode::fixedRPM(4000), Mode::fixedPercent(0),
          Mode::fixedPercent(50), Mode::fixedPercent(100), degreesAsPercent()}) {
        evaluator.reset();
        ask(mode);
        EXPECT_EQ(decisionAt(0), rpm(2000));
    }
}

TEST_F(FanMode, aFanWithEqualLimitsTurnsAtThatSpeed) {
    snapshot.fans = {fan(0, 2000, 2000)};
    read(50);
    for (const Mode& mode : {Mode::fixedRPM(0), Mode::fixedRPM(2000), Mode::fixedRPM(4000),
                             Mode::fixedPercent(0), Mode::fixedPercent(100), degreesAsPercent()}) {
        evaluator.reset();
        ask(mode);
        EXPECT_EQ(decisionAt(0), rpm(2000));
    }
}

TEST_F(FanMode, aFanWithoutLimitsIsHeldAtZero) {
    snapshot.fans = {fan(0, 0, 0)};
    ask(Mode::fixedRPM(3000));
    EXPECT_EQ(decisionAt(0), rpm(0));
}

TEST_F(FanMode, limitsAtTheEndsOfTheirTypeDoNotOverflow) {
    constexpr auto lowest = std::numeric_limits<std::int64_t>::min();
    constexpr auto highest = std::numeric_limits<std::int64_t>::max();
    snapshot.fans = {fan(0, lowest, highest)};
    ask(Mode::fixedPercent(50));
    EXPECT_EQ(decisionAt(0), rpm(0));
    ask(Mode::fixedPercent(100));
    EXPECT_EQ(decisionAt(1), rpm(9223372036854775808.0));
    ask(Mode::fixedRPM(-infinity));
    EXPECT_EQ(decisionAt(2), rpm(-9223372036854775808.0));
    snapshot.fans = {fan(0, highest, lowest)};
    ask(Mode::fixedPercent(25));
    EXPECT_EQ(decisionAt(3), rpm(-9223372036854775808.0));
}

TEST_F(FanMode, theLaterOfTwoPlansForOneFanReplacesTheDecision) {
    ask(0, Mode::fixedRPM(2000));
    ask(0, Mode::fixedRPM(4000));
    EXPECT_THAT(tick(0), UnorderedElementsAre(Pair(0, rpm(4000))));
    ask(0, Mode::automatic());
    EXPECT_THAT(tick(1), UnorderedElementsAre(Pair(0, released)));
}

TEST_F(FanMode, bothOfTwoPlansForOneFanWorkOnItsState) {
    read(100);
    ask(0, Mode::fixedRPM(2000));
    ask(0, degreesAsPercent());
    EXPECT_THAT(tick(0), UnorderedElementsAre(Pair(0, rpm(2400))));  // 400 above the first's 2000
}

TEST_F(FanMode, theFirstOfTwoFansOfOneNumberIsTheOneThatCounts) {
    snapshot.fans = {fan(0, 1000, 5000), fan(0, 100, 200)};
    ask(Mode::fixedRPM(3000));
    EXPECT_EQ(decisionAt(0), rpm(3000));
}

TEST_F(FanMode, fansOfAnyNumberAreServed) {
    snapshot.fans = {fan(-1), fan(std::numeric_limits<std::int64_t>::max())};
    ask(-1, Mode::fixedRPM(2000));
    ask(std::numeric_limits<std::int64_t>::max(), Mode::fixedRPM(3000));
    EXPECT_THAT(tick(0),
                UnorderedElementsAre(Pair(-1, rpm(2000)),
                                     Pair(std::numeric_limits<std::int64_t>::max(), rpm(3000))));
}

TEST_F(FanMode, whatAFanDoesNowHasNoSay) {
    ask(Mode::fixedRPM(2000));
    snapshot.fans[0].currentRPM = 4500;
    snapshot.fans[0].mode = 1;
    EXPECT_EQ(decisionAt(0), rpm(2000));
}

}  // namespace
}  // namespace airflow::evaluation
