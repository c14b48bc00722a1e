
#include "evaluation/Builders.h"
#include "support/Doubles.h"

namespace airflow::evaluation {
namespace {

using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;
using tests::infinity;

/// Fan 0 follows a curve that asks for as many percent as there are degrees; 400 RPM a tick.
class RateLimit : public EvaluatorTest {
protected:
    RateLimit() { ask(degreesAsPercent()); }

    std::optional<FanDecision> decisionAtCelsius(double celsius) {
        read(celsius);
        return decisionAt(seconds++);
    }

    double seconds = 0;
};

TEST_F(RateLimit, theFirstCurveTargetIsNotHeldBack) {
    EXPECT_EQ(decisionAtCelsius(100), rpm(5000));
}

TEST_F(RateLimit, aCurveTargetRisesByAtMostTheLimitEveryTick) {
    EXPECT_EQ(decisionAtCelsius(5), rpm(1200));
    EXPECT_EQ(decisionAtCelsius(50), rpm(1600));
    EXPECT_EQ(decisionAtCelsius(50), rpm(2000));
    EXPECT_EQ(decisionAtCelsius(50), rpm(2400));
    EXPECT_EQ(decisionAtCelsius(50), rpm(2800));
    EXPECT_EQ(decisionAtCelsius(50), rpm(3000));
    EXPECT_EQ(decisionAtCelsius(50), rpm(3000));
}

TEST_F(RateLimit, aCurveTargetFallsByAtMostTheLimitEveryTick) {
    EXPECT_EQ(decisionAtCelsius(50), rpm(3000));
    EXPECT_EQ(decisionAtCelsius(25), rpm(2600));
    EXPECT_EQ(decisionAtCelsius(25), rpm(2200));
    EXPECT_EQ(decisionAtCelsius(25), rpm(2000));
}

TEST_F(RateLimit, aStepOfExactlyTheLimitIsTakenWhole) {
    EXPECT_EQ(decisionAtCelsius(50), rpm(3000));
    EXPECT_EQ(decisionAtCelsius(60), rpm(3400));
    EXPECT_EQ(decisionAtCelsius(50), rpm(3000));
}

TEST_F(RateLimit, aStepJustBeyondTheLimitIsHeldBack) {
    EXPECT_EQ(decisionAtCelsius(50), rpm(3000));
    EXPECT_EQ(decisionAtCelsius(60.5), rpm(3400));  // 3420 asked
    EXPECT_EQ(decisionAtCelsius(49.5), rpm(3000));  // 2980 asked
}

TEST_F(RateLimit, aLimitOfZeroFreezesTheTarget) {
    plan.tuning.maxDeltaRPMPerTick = 0;
    EXPECT_EQ(decisionAtCelsius(50), rpm(3000));
    EXPECT_EQ(decisionAtCelsius(100), rpm(3000));
    EXPECT_EQ(decisionAtCelsius(10), rpm(3000));
}

// Raised to last - limit first, then lowered to last + limit: the lowering has the last word.
TEST_F(RateLimit, aNegativeLimitLowersTheTargetEveryTick) {
    plan.tuning.maxDeltaRPMPerTick = -300;
    EXPECT_EQ(decisionAtCelsius(50), rpm(3000));
    EXPECT_EQ(decisionAtCelsius(50), rpm(2700));
    EXPECT_EQ(decisionAtCelsius(100), rpm(2400));
    EXPECT_EQ(decisionAtCelsius(10), rpm(2100));
}

TEST_F(RateLimit, anInfiniteLimitHoldsNothingBack) {
    plan.tuning.maxDeltaRPMPerTick = infinity;
    EXPECT_EQ(decisionAtCelsius(5), rpm(1200));
    EXPECT_EQ(decisionAtCelsius(100), rpm(5000));
    EXPECT_EQ(decisionAtCelsius(5), rpm(1200));
}

TEST_F(RateLimit, theLimitIsThatOfThePlanOfTheTick) {
    EXPECT_EQ(decisionAtCelsius(50), rpm(3000));
    plan.tuning.maxDeltaRPMPerTick = 50;
    EXPECT_EQ(decisionAtCelsius(100), rpm(3050));
}

TEST_F(RateLimit, aCurveGoesOnFromAFixedSpeedInSteps) {
    ask(Mode::fixedRPM(2000));
    EXPECT_EQ(decisionAtCelsius(100), rpm(2000));
    ask(degreesAsPercent());
    EXPECT_EQ(decisionAtCelsius(100), rpm(2400));
}

TEST_F(RateLimit, aCurveGoesOnFromAFixedPercentageInSteps) {
    ask(Mode::fixedPercent(25));
    EXPECT_EQ(decisionAtCelsius(100), rpm(2000));
    ask(degreesAsPercent());
    EXPECT_EQ(decisionAtCelsius(100), rpm(2400));
}

TEST_F(RateLimit, aCurveGoesOnFromARuleInSteps) {
    plan.rules = {rule({.above = 80, .releaseBelow = 70, .percent = 100})};
    EXPECT_EQ(decisionAtCelsius(81), rpm(5000));
    EXPECT_EQ(decisionAtCelsius(50), rpm(4600));
}

TEST_F(RateLimit, aCurveGoesOnFromTheClampedTarget) {
    ask(Mode::fixedRPM(9000));
    EXPECT_EQ(decisionAtCelsius(50), rpm(5000));
    EXPECT_THAT(evaluator.lastTargetByFan, UnorderedElementsAre(Pair(0, 5000)));
    ask(degreesAsPercent());
    EXPECT_EQ(decisionAtCelsius(50), rpm(4600));
}

TEST_F(RateLimit, aReleaseForgetsWhereTheTargetWas) {
    EXPECT_EQ(decisionAtCelsius(10), rpm(1400));
    ask(Mode::automatic());
    EXPECT_EQ(decisionAtCelsius(100), released);
    ask(degreesAsPercent());
    EXPECT_EQ(decisionAtCelsius(100), rpm(5000));
}

TEST_F(RateLimit, aStopForgetsWhereTheTargetWas) {
    read(0);
    EXPECT_EQ(decisionAt(0), rpm(1000));
    EXPECT_EQ(decisionAt(10), stopped);
    EXPECT_THAT(evaluator.lastTargetByFan, IsEmpty());
    read(100);
    EXPECT_EQ(decisionAt(11), stopped);
    EXPECT_EQ(decisionAt(14), rpm(5000));
    read(50);
    EXPECT_EQ(decisionAt(15), rpm(4600));
}

TEST_F(RateLimit, theFansLimitsHaveTheLastWord) {
    EXPECT_EQ(decisionAtCelsius(50), rpm(3000));
    snapshot.fans = {fan(0, 4000, 5000)};
    EXPECT_EQ(decisionAtCelsius(50), rpm(4000));  // 3400 by the rate limit
    snapshot.fans = {fan(0, 1000, 2000)};
    EXPECT_EQ(decisionAtCelsius(50), rpm(2000));  // 3600 by the rate limit
    snapshot.fans = {fan(0, 3000, 2500)};
    EXPECT_EQ(decisionAtCelsius(50), rpm(2500));
}

TEST_F(RateLimit, aCurveThatAsksForNothingApproachesTheMinimumInSteps) {
    read(50);
    EXPECT_EQ(decisionAt(0), rpm(3000));
    read(0);
    EXPECT_EQ(decisionAt(1), rpm(2600));
    EXPECT_EQ(decisionAt(2), rpm(2200));
    EXPECT_EQ(decisionAt(10.999), rpm(1800));
    EXPECT_EQ(decisionAt(11), stopped);  // ten seconds of asking for nothing, wherever the fan is
}

TEST_F(RateLimit, everyFanHasItsOwnLastTarget) {
    snapshot.fans = {fan(0), fan(1)};
    ask(1, degreesAsPercent("SMC-B"));
    snapshot.temps = {sensor("A", 5), sensor("B", 0.5)};
    tick(0);
    snapshot.temps = {sensor("A", 90), sensor("B", 80)};
    EXPECT_THAT(tick(1), UnorderedElementsAre(Pair(0, rpm(1600)), Pair(1, rpm(1420))));
}

}  // namespace
}  // namespace airflow::evaluation
