#include "evaluation/Builders.h"
#include "evaluation/PlanEvaluator.h"
#include "support/Doubles.h"

namespace airflow::evaluation {
namespace {

using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;
using tests::notANumber;

/// An evaluator that remembers something in every field: fan 0 follows a curve, fan 1 waits to
/// stop, fan 2 is stopped and waits to resume, rule 1 is latched.
class AnEvaluator : public EvaluatorTest {
protected:
    AnEvaluator() {
        snapshot.fans = {fan(0), fan(1), fan(2)};
        snapshot.temps = {sensor("A", 20), sensor("B", 90)};
        plan.tuning.emaAlpha = 0.5;
        plan.fans = {{0, degreesAsPercent("SMC-A")},
                     {1, Mode::fixedPercent(50)},
                     {2, Mode::fixedPercent(0)}};
        plan.rules = {rule({.id = 1, .fan = 7})};
        tick(0);
        plan.fans[1].mode = Mode::fixedPercent(0);
        tick(10);
        plan.fans[2].mode = Mode::fixedPercent(5);
        tick(11);
    }
};

TEST(PlanEvaluator, remembersNothingAtFirst) {
    const PlanEvaluator evaluator;
    EXPECT_THAT(evaluator.emaBySensor, IsEmpty());
    EXPECT_THAT(evaluator.lastTargetByFan, IsEmpty());
    EXPECT_THAT(evaluator.ruleFiringSince, IsEmpty());
    EXPECT_THAT(evaluator.ruleLatched, IsEmpty());
    EXPECT_THAT(evaluator.zeroSince, IsEmpty());
    EXPECT_THAT(evaluator.resumeSince, IsEmpty());
    EXPECT_THAT(evaluator.stoppedFans, IsEmpty());
}

TEST_F(AnEvaluator, remembersSensorsTargetsRulesAndStops) {
    EXPECT_THAT(evaluator.emaBySensor, UnorderedElementsAre(Pair("SMC-A", 20), Pair("SMC-B", 90)));
    EXPECT_THAT(evaluator.lastTargetByFan, UnorderedElementsAre(Pair(0, 1800), Pair(1, 1000)));
    EXPECT_THAT(evaluator.ruleFiringSince, UnorderedElementsAre(Pair(ruleID(1), at(0))));
    EXPECT_THAT(evaluator.ruleLatched, UnorderedElementsAre(ruleID(1)));
    EXPECT_THAT(evaluator.zeroSince, UnorderedElementsAre(Pair(1, at(10))));
    EXPECT_THAT(evaluator.resumeSince, UnorderedElementsAre(Pair(2, at(11))));
    EXPECT_THAT(evaluator.stoppedFans, UnorderedElementsAre(2));
}

TEST_F(AnEvaluator, forgetsEverythingWhenReset) {
    evaluator.reset();
    EXPECT_EQ(evaluator, PlanEvaluator{});
}

TEST_F(AnEvaluator, startsAfreshAfterAReset) {
    evaluator.reset();
    snapshot.temps = {sensor("A", 100)};
    plan.rules[0].fanTarget = plan::RuleFanTarget::all();
    plan.rules[0].thresholdCelsius = 101;  // latched before, its release would be 70
    EXPECT_THAT(tick(12), UnorderedElementsAre(Pair(0, rpm(5000)),    // not smoothed, no step
                                               Pair(1, rpm(1000)),    // its ten seconds start now
                                               Pair(2, rpm(1200))));  // no longer stopped
    EXPECT_THAT(evaluator.zeroSince, UnorderedElementsAre(Pair(1, at(12))));
}

TEST_F(AnEvaluator, evaluatesIndependentlyOfItsCopy) {
    PlanEvaluator copy = evaluator;
    const PlanEvaluator before = evaluator;
    sensors::SensorSnapshot hot = snapshot;
    hot.temps[0].celsius = 100;
    EXPECT_EQ(copy.evaluate(plan, hot, at(14)).at(0), rpm(2200));
    EXPECT_EQ(evaluator, before);
    EXPECT_NE(copy, before);
    EXPECT_EQ(decisionAt(14), rpm(1800));
    EXPECT_NE(copy, evaluator);
}

TEST_F(AnEvaluator, evaluatesToTheSameAsItsCopy) {
    PlanEvaluator copy = evaluator;
    EXPECT_EQ(copy.evaluate(plan, snapshot, at(14)), tick(14));
    EXPECT_EQ(copy, evaluator);
}

TEST_F(AnEvaluator, differsByEachOfItsFields) {
    const PlanEvaluator original = evaluator;
    const auto differsAfter = [&](auto change) {
        PlanEvaluator changed = original;
        change(changed);
        return changed != original;
    };
    EXPECT_FALSE(differsAfter([](PlanEvaluator&) {}));
    EXPECT_TRUE(differsAfter([](PlanEvaluator& other) { other.emaBySensor["SMC-A"] += 1; }));
    EXPECT_TRUE(differsAfter([](PlanEvaluator& other) { other.lastTargetByFan[0] += 1; }));
    EXPECT_TRUE(differsAfter([](PlanEvaluator& other) { other.ruleFiringSince.clear(); }));
    EXPECT_TRUE(differsAfter([](PlanEvaluator& other) { other.ruleLatched.clear(); }));
    EXPECT_TRUE(differsAfter([](PlanEvaluator& other) { other.zeroSince.clear(); }));
    EXPECT_TRUE(differsAfter([](PlanEvaluator& other) { other.resumeSince.clear(); }));
    EXPECT_TRUE(differsAfter([](PlanEvaluator& other) { other.stoppedFans.clear(); }));
}

TEST_F(AnEvaluator, keepsTheStateOfFansThatLeftThePlan) {
    plan.fans = {};
    const PlanEvaluator before = evaluator;
    EXPECT_THAT(tick(12), IsEmpty());
    EXPECT_EQ(evaluator, before);
}

TEST(FanDecision, isEqualWhenItIsTheSameCaseAndSpeed) {
    EXPECT_EQ(FanDecision(Target{1500}), FanDecision(Target{1500}));
    EXPECT_EQ(FanDecision(Target{0.0}), FanDecision(Target{-0.0}));
    EXPECT_NE(FanDecision(Target{1500}), FanDecision(Target{1500.5}));
    EXPECT_EQ(released, FanDecision(ReleaseToAuto{}));
    EXPECT_EQ(stopped, FanDecision(IdleStopped{}));
    EXPECT_NE(released, stopped);
    EXPECT_NE(stopped, FanDecision(Target{0}));
    EXPECT_NE(released, FanDecision(Target{0}));
}

TEST(FanDecision, ofASpeedThatIsNotANumberEqualsNothing) {
    const FanDecision decision = Target{notANumber};
    EXPECT_NE(decision, decision);
}

}  // namespace
}  // namespace airflow::evaluation
