#include <cmath>

#include "evaluation/Builders.h"
#include "support/Doubles.h"

namespace airflow::evaluation {
namespace {

using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;
using tests::infinity;
using tests::notANumber;

class Smoothing : public EvaluatorTest {
protected:
    /// One tick with these sensors.
    void tickWith(std::vector<sensors::TempSensor> temps) {
        snapshot.temps = std::move(temps);
        tick(0);
    }
};

TEST_F(Smoothing, theFirstTickTakesEveryReadingAsItIs) {
    plan.tuning.emaAlpha = 0.25;
    tickWith({sensor("A", 40), sensor("B", -3.5)});
    EXPECT_THAT(evaluator.emaBySensor,
                UnorderedElementsAre(Pair("SMC-A", 40), Pair("SMC-B", -3.5)));
}

TEST_F(Smoothing, aReadingIsWeighedAgainstWhatWasSmoothedBefore) {
    plan.tuning.emaAlpha = 0.25;
    tickWith({sensor("A", 40)});
    tickWith({sensor("A", 60)});
    EXPECT_EQ(evaluator.emaBySensor.at("SMC-A"), 45);
    tickWith({sensor("A", 61)});
    EXPECT_EQ(evaluator.emaBySensor.at("SMC-A"), 49);
}

TEST_F(Smoothing, withAlphaOneTheSmoothedValueIsTheLatestReading) {
    plan.tuning.emaAlpha = 1;
    tickWith({sensor("A", 40)});
    tickWith({sensor("A", 90)});
    EXPECT_EQ(evaluator.emaBySensor.at("SMC-A"), 90);
}

TEST_F(Smoothing, withAlphaZeroTheSmoothedValueStaysAtTheFirstReading) {
    plan.tuning.emaAlpha = 0;
    tickWith({sensor("A", 40)});
    tickWith({sensor("A", 90)});
    tickWith({sensor("A", 95)});
    EXPECT_EQ(evaluator.emaBySensor.at("SMC-A"), 40);
}

TEST_F(Smoothing, anAlphaAboveOneIsUsedAsItStands) {
    plan.tuning.emaAlpha = 2;
    tickWith({sensor("A", 40)});
    tickWith({sensor("A", 50)});
    EXPECT_EQ(evaluator.emaBySensor.at("SMC-A"), 60);
}

TEST_F(Smoothing, theAlphaIsThatOfThePlanOfTheTick) {
    plan.tuning.emaAlpha = 0.5;
    tickWith({sensor("A", 40)});
    tickWith({sensor("A", 60)});
    plan.tuning.emaAlpha = 0.75;
    tickWith({sensor("A", 90)});
    EXPECT_EQ(evaluator.emaBySensor.at("SMC-A"), 80);
}

TEST_F(Smoothing, aSensorMissingFromOneSnapshotStartsAgainFromItsRawReading) {
    plan.tuning.emaAlpha = 0.5;
    tickWith({sensor("A", 40), sensor("B", 40)});
    tickWith({sensor("B", 60)});
    EXPECT_THAT(evaluator.emaBySensor, UnorderedElementsAre(Pair("SMC-B", 50)));
    tickWith({sensor("A", 90), sensor("B", 60)});
    EXPECT_THAT(evaluator.emaBySensor, UnorderedElementsAre(Pair("SMC-A", 90), Pair("SMC-B", 55)));
}

TEST_F(Smoothing, anEmptySnapshotForgetsEverySensor) {
    tickWith({sensor("A", 40), sensor("B", 50)});
    tickWith({});
    EXPECT_THAT(evaluator.emaBySensor, IsEmpty());
    EXPECT_EQ(evaluator.hottest(), std::nullopt);
}

TEST_F(Smoothing, sensorsOfTheSameKeyFromDifferentSourcesAreDifferent) {
    sensors::TempSensor hid = sensor("A", 30);
    hid.source = sensors::SensorSource::hid;
    tickWith({sensor("A", 40), hid});
    EXPECT_THAT(evaluator.emaBySensor, UnorderedElementsAre(Pair("SMC-A", 40), Pair("HID-A", 30)));
}

TEST_F(Smoothing, aSensorThatStandsTwiceIsSmoothedTwiceInOrder) {
    plan.tuning.emaAlpha = 0.25;
    tickWith({sensor("A", 40), sensor("A", 80)});
    EXPECT_EQ(evaluator.emaBySensor.at("SMC-A"), 50);  // 40 as it is, then 80 weighed against it
    tickWith({sensor("A", 90), sensor("A", 100)});
    EXPECT_EQ(evaluator.emaBySensor.at("SMC-A"), 70);  // 60, then 70
}

TEST_F(Smoothing, theHottestIsTheLargestSmoothedValueNotTheLargestReading) {
    plan.tuning.emaAlpha = 0.25;
    tickWith({sensor("A", 20), sensor("B", 60)});
    tickWith({sensor("A", 100), sensor("B", 60)});
    EXPECT_EQ(evaluator.hottest(), 60);  // A is smoothed to 40
}

TEST_F(Smoothing, theHottestMayBeBelowZero) {
    tickWith({sensor("A", -20), sensor("B", -10), sensor("C", -30)});
    EXPECT_EQ(evaluator.hottest(), -10);
}

TEST_F(Smoothing, thereIsNoHottestWithoutSensors) {
    EXPECT_EQ(evaluator.hottest(), std::nullopt);
}

TEST_F(Smoothing, aReadingThatIsNotANumberHidesNoHotterOne) {
    tickWith({sensor("A", notANumber), sensor("B", 60), sensor("C", 50)});
    EXPECT_EQ(evaluator.hottest(), 60);
    evaluator.reset();
    tickWith({sensor("A", 50), sensor("B", notANumber), sensor("C", 70)});
    EXPECT_EQ(evaluator.hottest(), 70);
    evaluator.reset();
    tickWith({sensor("A", 50), sensor("B", 40), sensor("C", notANumber)});
    EXPECT_EQ(evaluator.hottest(), 50);
}

TEST_F(Smoothing, theHottestOfNothingButBrokenReadingsIsNotANumber) {
    tickWith({sensor("A", notANumber), sensor("B", notANumber)});
    ASSERT_TRUE(evaluator.hottest().has_value());
    EXPECT_TRUE(std::isnan(*evaluator.hottest()));
}

TEST_F(Smoothing, aReadingThatIsNotANumberLastsUntilTheSensorIsLost) {
    plan.tuning.emaAlpha = 0.5;
    tickWith({sensor("A", notANumber)});
    tickWith({sensor("A", 60)});
    EXPECT_TRUE(std::isnan(evaluator.emaBySensor.at("SMC-A")));
    tickWith({});
    tickWith({sensor("A", 60)});
    EXPECT_EQ(evaluator.emaBySensor.at("SMC-A"), 60);
}

TEST_F(Smoothing, anInfiniteReadingIsTheHottest) {
    tickWith({sensor("A", 60), sensor("B", infinity), sensor("C", -infinity)});
    EXPECT_EQ(evaluator.hottest(), infinity);
}

TEST_F(Smoothing, sensorsAreSmoothedThoughNothingIsPlanned) {
    plan = plan::FanControlPlan::allAutomatic();
    tickWith({sensor("A", 40)});
    tickWith({sensor("A", 50)});
    EXPECT_DOUBLE_EQ(evaluator.emaBySensor.at("SMC-A"), 43);  // the standard alpha is 0.3
}

TEST_F(Smoothing, aCurveFollowsTheSmoothedValueNotTheReading) {
    plan.tuning.emaAlpha = 0.5;
    plan.tuning.maxDeltaRPMPerTick = 10'000;
    ask(degreesAsPercent());
    tickWith({sensor("A", 20)});
    snapshot.temps = {sensor("A", 60)};
    EXPECT_EQ(decisionAt(1), rpm(2600));  // 40 % of 1000 to 5000
}

TEST_F(Smoothing, aRuleWatchesTheSmoothedValueNotTheReading) {
    plan.tuning.emaAlpha = 0.5;
    plan.rules = {rule({.above = 80})};
    tickWith({sensor("A", 60)});
    tickWith({sensor("A", 99)});
    EXPECT_THAT(evaluator.ruleLatched, IsEmpty());  // 79.5
    tickWith({sensor("A", 99)});
    EXPECT_THAT(evaluator.ruleLatched, UnorderedElementsAre(ruleID(1)));  // 89.25
}

}  // namespace
}  // namespace airflow::evaluation
