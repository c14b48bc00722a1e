
#include "evaluation/Builders.h"
#include "support/Doubles.h"

namespace airflow::evaluation {
namespace {

using testing::Pair;
using testing::UnorderedElementsAre;
using tests::infinity;
using tests::notANumber;

/// Sensor A reads a temperature at a time; the plan has rules, and no fans.
class RuleLatch : public EvaluatorTest {
protected:
    bool isLatchedAt(double seconds, double celsius, std::uint8_t id = 1) {
        read(celsius);
        tick(seconds);
        return evaluator.ruleLatched.contains(ruleID(id));
    }
    [[nodiscard]] bool isFiring() const { return evaluator.ruleFiringSince.contains(ruleID(1)); }
};

TEST_F(RuleLatch, withoutDwellARuleLatchesOnTheFirstTickAboveItsThreshold) {
    plan.rules = {rule({.above = 80, .dwell = 0})};
    EXPECT_TRUE(isLatchedAt(0, 80.001));
}

TEST_F(RuleLatch, aRuleDoesNotFireAtItsThresholdOrBelow) {
    plan.rules = {rule({.above = 80, .dwell = 0})};
    EXPECT_FALSE(isLatchedAt(0, 79.999));
    EXPECT_FALSE(isLatchedAt(1, 80));
    EXPECT_FALSE(isFiring());
}

TEST_F(RuleLatch, aRuleLatchesOnceItsDwellHasPassedAndNotBefore) {
    plan.rules = {rule({.above = 80, .dwell = 5})};
    EXPECT_FALSE(isLatchedAt(0, 81));
    EXPECT_FALSE(isLatchedAt(4.999, 81));
    EXPECT_TRUE(isLatchedAt(5, 81));
}

TEST_F(RuleLatch, aRuleLatchesThoughTheTickComesLongAfterItsDwell) {
    plan.rules = {rule({.above = 80, .dwell = 5})};
    EXPECT_FALSE(isLatchedAt(0, 81));
    EXPECT_TRUE(isLatchedAt(5.001, 81));
}

TEST_F(RuleLatch, theDwellCountsFromTheFirstTickAboveTheThreshold) {
    plan.rules = {rule({.above = 80, .dwell = 5})};
    EXPECT_FALSE(isLatchedAt(0, 80));
    EXPECT_FALSE(isLatchedAt(3, 81));
    EXPECT_FALSE(isLatchedAt(6, 82));
    EXPECT_THAT(evaluator.ruleFiringSince, UnorderedElementsAre(Pair(ruleID(1), at(3))));
    EXPECT_TRUE(isLatchedAt(8, 83));
}

TEST_F(RuleLatch, fallingToTheThresholdForgetsTheTimer) {
    plan.rules = {rule({.above = 80, .dwell = 5})};
    EXPECT_FALSE(isLatchedAt(0, 81));
    EXPECT_FALSE(isLatchedAt(4, 80));
    EXPECT_FALSE(isFiring());
    EXPECT_FALSE(isLatchedAt(5, 81));
    EXPECT_FALSE(isLatchedAt(9.999, 81));
    EXPECT_TRUE(isLatchedAt(10, 81));
}

TEST_F(RuleLatch, aMissingValueForgetsTheTimerOfARuleThatIsNotLatched) {
    plan.rules = {rule({.above = 80, .dwell = 5})};
    EXPECT_FALSE(isLatchedAt(0, 81));
    readNothing();
    tick(2);
    EXPECT_FALSE(isFiring());
    EXPECT_FALSE(isLatchedAt(5, 81));
}

TEST_F(RuleLatch, aMissingValueKeepsALatchedRuleLatched) {
    plan.rules = {rule({.above = 80, .releaseBelow = 70})};
    EXPECT_TRUE(isLatchedAt(0, 81));
    readNothing();
    tick(1);
    tick(1000);
    EXPECT_THAT(evaluator.ruleLatched, UnorderedElementsAre(ruleID(1)));
    EXPECT_TRUE(isFiring());
}

TEST_F(RuleLatch, aLatchedRuleLetsGoBelowItsReleaseLevelAndNotAtIt) {
    plan.rules = {rule({.above = 80, .releaseBelow = 70})};
    EXPECT_TRUE(isLatchedAt(0, 81));
    EXPECT_TRUE(isLatchedAt(1, 75));
    EXPECT_TRUE(isLatchedAt(2, 70));
    EXPECT_FALSE(isLatchedAt(3, 69.999));
    EXPECT_FALSE(isFiring());
}

TEST_F(RuleLatch, aReleaseAboveTheThresholdIsHalfADegreeBelowItInstead) {
    plan.rules = {rule({.above = 80, .releaseBelow = 90})};
    EXPECT_TRUE(isLatchedAt(0, 81));
    EXPECT_TRUE(isLatchedAt(1, 80));
    EXPECT_TRUE(isLatchedAt(2, 79.5));
    EXPECT_FALSE(isLatchedAt(3, 79.499));
}

TEST_F(RuleLatch, aReleaseWithinHalfADegreeOfTheThresholdIsHalfADegreeBelowIt) {
    plan.rules = {rule({.above = 80, .releaseBelow = 79.75})};
    EXPECT_TRUE(isLatchedAt(0, 81));
    EXPECT_TRUE(isLatchedAt(1, 79.6));
    EXPECT_FALSE(isLatchedAt(2, 79.4));
}

TEST_F(RuleLatch, aReleaseMoreThanHalfADegreeBelowTheThresholdIsTakenAsItIs) {
    plan.rules = {rule({.above = 80, .releaseBelow = 79.25})};
    EXPECT_TRUE(isLatchedAt(0, 81));
    EXPECT_TRUE(isLatchedAt(1, 79.25));
    EXPECT_FALSE(isLatchedAt(2, 79.2));
}

TEST_F(RuleLatch, theHysteresisOfTheTuningHasNoSay) {
    plan.tuning.hysteresisCelsius = 20;
    plan.tuning.minDwellSeconds = 60;
    plan.rules = {rule({.above = 80, .releaseBelow = 79})};
    EXPECT_TRUE(isLatchedAt(0, 81));
    EXPECT_FALSE(isLatchedAt(1, 78.9));
}

TEST_F(RuleLatch, aRuleThatLetGoDwellsAgainBeforeItLatches) {
    plan.rules = {rule({.above = 80, .releaseBelow = 70, .dwell = 5})};
    EXPECT_FALSE(isLatchedAt(0, 81));
    EXPECT_TRUE(isLatchedAt(5, 81));
    EXPECT_FALSE(isLatchedAt(6, 60));
    EXPECT_FALSE(isLatchedAt(7, 81));
    EXPECT_FALSE(isLatchedAt(11.999, 81));
    EXPECT_TRUE(isLatchedAt(12, 81));
}

TEST_F(RuleLatch, aDisabledRuleNeitherFiresNorLatches) {
    plan.rules = {rule({.above = 80, .enabled = false})};
    EXPECT_FALSE(isLatchedAt(0, 99));
    EXPECT_FALSE(isFiring());
}

TEST_F(RuleLatch, aDisabledRuleKeepsItsTimer) {
    plan.rules = {rule({.above = 80, .dwell = 5})};
    EXPECT_FALSE(isLatchedAt(0, 81));
    plan.rules[0].enabled = false;
    EXPECT_FALSE(isLatchedAt(1, 50));  // enabled, this would forget the timer
    EXPECT_THAT(evaluator.ruleFiringSince, UnorderedElementsAre(Pair(ruleID(1), at(0))));
    plan.rules[0].enabled = true;
    EXPECT_TRUE(isLatchedAt(5, 81));
}

TEST_F(RuleLatch, aDisabledRuleKeepsItsLatch) {
    plan.rules = {rule({.above = 80, .releaseBelow = 70})};
    EXPECT_TRUE(isLatchedAt(0, 81));
    plan.rules[0].enabled = false;
    EXPECT_TRUE(isLatchedAt(1, 50));
    plan.rules[0].enabled = true;
    EXPECT_TRUE(isLatchedAt(2, 75));
}

TEST_F(RuleLatch, aRuleThatLeftThePlanKeepsItsLatchAndTimer) {
    plan.rules = {rule({.id = 1, .above = 80}), rule({.id = 2, .above = 80, .dwell = 5})};
    EXPECT_TRUE(isLatchedAt(0, 81));
    plan.rules = {};
    EXPECT_TRUE(isLatchedAt(1, 20));
    EXPECT_THAT(evaluator.ruleFiringSince,
                UnorderedElementsAre(Pair(ruleID(1), at(0)), Pair(ruleID(2), at(0))));
}

TEST_F(RuleLatch, aClockThatJumpsBackMakesTheDwellLonger) {
    plan.rules = {rule({.above = 80, .dwell = 5})};
    EXPECT_FALSE(isLatchedAt(100, 81));
    EXPECT_FALSE(isLatchedAt(50, 81));
    EXPECT_FALSE(isLatchedAt(104.999, 81));
    EXPECT_TRUE(isLatchedAt(105, 81));
}

TEST_F(RuleLatch, withoutDwellAClockThatJumpsBackStillHoldsBackARuleThatIsFiring) {
    plan.rules = {rule({.above = 80, .dwell = 5})};
    EXPECT_FALSE(isLatchedAt(100, 81));
    plan.rules[0].dwellSeconds = 0;
    EXPECT_FALSE(isLatchedAt(99.999, 81));
    EXPECT_TRUE(isLatchedAt(100, 81));
}

TEST_F(RuleLatch, aNegativeDwellLatchesAtOnce) {
    plan.rules = {rule({.above = 80, .dwell = -1})};
    EXPECT_TRUE(isLatchedAt(0, 81));
}

TEST_F(RuleLatch, aRuleWithASensorWatchesOnlyThatOne) {
    plan.rules = {rule({.id = 1, .sensor = "SMC-A"}), rule({.id = 2, .sensor = "SMC-B"})};
    snapshot.temps = {sensor("A", 81), sensor("B", 79)};
    tick(0);
    EXPECT_THAT(evaluator.ruleLatched, UnorderedElementsAre(ruleID(1)));
}

TEST_F(RuleLatch, aRuleWithoutASensorWatchesTheHottest) {
    plan.rules = {rule({.above = 80})};
    snapshot.temps = {sensor("A", 20), sensor("B", 81), sensor("C", 50)};
    tick(0);
    EXPECT_THAT(evaluator.ruleLatched, UnorderedElementsAre(ruleID(1)));
}

TEST_F(RuleLatch, aRuleWhoseSensorIsUnknownDoesNotFallBackToTheHottest) {
    plan.rules = {rule({.sensor = "SMC-B"})};
    EXPECT_FALSE(isLatchedAt(0, 99));
    EXPECT_FALSE(isFiring());
}

TEST_F(RuleLatch, aTemperatureThatIsNotANumberFiresNothing) {
    plan.rules = {rule({.above = 80, .dwell = 5})};
    EXPECT_FALSE(isLatchedAt(0, 81));
    EXPECT_FALSE(isLatchedAt(5, notANumber));
    EXPECT_FALSE(isFiring());
}

TEST_F(RuleLatch, aTemperatureThatIsNotANumberReleasesNothing) {
    plan.rules = {rule({.above = 80})};
    EXPECT_TRUE(isLatchedAt(0, 81));
    EXPECT_TRUE(isLatchedAt(1, notANumber));
}

TEST_F(RuleLatch, infiniteTemperaturesLatchAndRelease) {
    plan.rules = {rule({.sensor = "SMC-A"})};
    EXPECT_TRUE(isLatchedAt(0, infinity));
    readNothing();  // smoothing cannot come back from infinity
    tick(1);
    EXPECT_FALSE(isLatchedAt(2, -infinity));
}

TEST_F(RuleLatch, rulesOfTheSameIdentityShareOneLatch) {
    plan.rules = {rule({.id = 1, .above = 80, .releaseBelow = 70}),
                  rule({.id = 1, .above = 95, .releaseBelow = 75})};
    EXPECT_TRUE(isLatchedAt(0, 81));   // by the first; not low enough for the second's release
    EXPECT_FALSE(isLatchedAt(1, 72));  // the second lets go for both
}

}  // namespace
}  // namespace airflow::evaluation
