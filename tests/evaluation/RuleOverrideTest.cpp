#include "evaluation/Builders.h"

namespace airflow::evaluation {
namespace {

using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;

/// Sensor A reads 90 °C, above the threshold of every rule that names none.
class RuleOverride : public EvaluatorTest {
protected:
    RuleOverride() { read(90); }
};

TEST_F(RuleOverride, aRuleOverridesOnTheVeryTickOnWhichItLatches) {
    ask(Mode::fixedRPM(1500));
    plan.rules = {rule({.percent = 60, .dwell = 5})};
    EXPECT_EQ(decisionAt(0), rpm(1500));
    EXPECT_EQ(decisionAt(4.999), rpm(1500));
    EXPECT_EQ(decisionAt(5), rpm(3400));
}

TEST_F(RuleOverride, theFansOwnModeRulesAgainOnTheTickOnWhichTheRuleLetsGo) {
    ask(Mode::fixedRPM(1500));
    plan.rules = {rule({.releaseBelow = 70, .percent = 60})};
    EXPECT_EQ(decisionAt(0), rpm(3400));
    read(69);
    EXPECT_EQ(decisionAt(1), rpm(1500));
}

TEST_F(RuleOverride, aRuleOverridesEveryModeOfAFan) {
    plan.rules = {rule({.percent = 60})};
    for (const Mode& mode : {Mode::fixedRPM(1500), Mode::fixedPercent(10), degreesAsPercent(),
                             degreesAsPercent("SMC-unknown"), Mode::automatic()}) {
        evaluator.reset();
        ask(mode);
        EXPECT_EQ(decisionAt(0), rpm(3400));
    }
}

TEST_F(RuleOverride, anAutomaticFanIsDrivenByALatchedRuleForAllFans) {
    ask(Mode::automatic());
    plan.rules = {rule({.releaseBelow = 70, .percent = 25})};
    EXPECT_EQ(decisionAt(0), rpm(2000));
    EXPECT_THAT(evaluator.lastTargetByFan, UnorderedElementsAre(Pair(0, 2000)));
    read(60);
    EXPECT_EQ(decisionAt(1), released);
    EXPECT_THAT(evaluator.lastTargetByFan, IsEmpty());
}

TEST_F(RuleOverride, aRuleForOneFanLeavesTheOthersAlone) {
    snapshot.fans = {fan(0), fan(1)};
    ask(0, Mode::fixedRPM(1500));
    ask(1, Mode::fixedRPM(1600));
    plan.rules = {rule({.percent = 100, .fan = 1})};
    EXPECT_THAT(tick(0), UnorderedElementsAre(Pair(0, rpm(1500)), Pair(1, rpm(5000))));
}

TEST_F(RuleOverride, aRuleForAllFansDrivesEveryFanOfThePlanWithItsOwnLimits) {
    snapshot.fans = {fan(0), fan(1, 2000, 3000), fan(2)};
    ask(0, Mode::fixedRPM(1500));
    ask(1, Mode::fixedRPM(2100));
    plan.rules = {rule({.percent = 50})};
    EXPECT_THAT(tick(0), UnorderedElementsAre(Pair(0, rpm(3000)), Pair(1, rpm(2500))));
}

TEST_F(RuleOverride, aRuleForAFanThatIsNotPlannedDecidesNothing) {
    snapshot.fans = {fan(0), fan(1)};
    ask(Mode::fixedRPM(1500));
    plan.rules = {rule({.fan = 1})};
    EXPECT_THAT(tick(0), UnorderedElementsAre(Pair(0, rpm(1500))));
}

TEST_F(RuleOverride, aRuleForAFanThatTheMachineLacksDecidesNothing) {
    ask(7, Mode::fixedRPM(1500));
    plan.rules = {rule({.fan = 7})};
    EXPECT_THAT(tick(0), IsEmpty());
    EXPECT_THAT(evaluator.lastTargetByFan, IsEmpty());
}

TEST_F(RuleOverride, theEarlierOfTwoLatchedRulesSetsThePercentage) {
    ask(Mode::automatic());
    plan.rules = {rule({.id = 1, .percent = 20}), rule({.id = 2, .percent = 80})};
    EXPECT_EQ(decisionAt(0), rpm(1800));
    std::swap(plan.rules[0], plan.rules[1]);
    EXPECT_EQ(decisionAt(1), rpm(4200));
}

TEST_F(RuleOverride, theEarlierRuleWinsThoughTheLaterWasLatchedLongBefore) {
    ask(Mode::automatic());
    plan.rules = {rule({.id = 1, .percent = 20, .dwell = 5}), rule({.id = 2, .percent = 80})};
    EXPECT_EQ(decisionAt(0), rpm(4200));
    EXPECT_EQ(decisionAt(5), rpm(1800));
}

TEST_F(RuleOverride, anEarlierRuleForOneFanLeavesTheOtherFansToALaterOne) {
    snapshot.fans = {fan(0), fan(1)};
    ask(0, Mode::automatic());
    ask(1, Mode::automatic());
    plan.rules = {rule({.id = 1, .percent = 20, .fan = 1}), rule({.id = 2, .percent = 80})};
    EXPECT_THAT(tick(0), UnorderedElementsAre(Pair(0, rpm(4200)), Pair(1, rpm(1800))));
}

TEST_F(RuleOverride, anEarlierRuleForAllFansWinsOverALaterOneForOneFan) {
    ask(Mode::automatic());
    plan.rules = {rule({.id = 1, .percent = 20}), rule({.id = 2, .percent = 80, .fan = 0})};
    EXPECT_EQ(decisionAt(0), rpm(1800));
}

TEST_F(RuleOverride, theEarlierOfTwoRulesForTheSameFanWins) {
    ask(Mode::automatic());
    plan.rules = {rule({.id = 1, .percent = 20, .fan = 0}),
                  rule({.id = 2, .percent = 80, .fan = 0})};
    EXPECT_EQ(decisionAt(0), rpm(1800));
}

TEST_F(RuleOverride, anEarlierRuleThatIsNotLatchedGivesWay) {
    ask(Mode::automatic());
    plan.rules = {rule({.id = 1, .above = 95, .percent = 20}), rule({.id = 2, .percent = 80})};
    EXPECT_EQ(decisionAt(0), rpm(4200));
}

TEST_F(RuleOverride, aDisabledRuleOverridesNothingThoughItIsLatched) {
    ask(Mode::fixedRPM(1500));
    plan.rules = {rule({.percent = 60})};
    EXPECT_EQ(decisionAt(0), rpm(3400));
    plan.rules[0].enabled = false;
    EXPECT_EQ(decisionAt(1), rpm(1500));
    EXPECT_THAT(evaluator.ruleLatched, UnorderedElementsAre(ruleID(1)));
    plan.rules[0].enabled = true;
    read(75);  // above the release, below the threshold: only the kept latch can override
    EXPECT_EQ(decisionAt(2), rpm(3400));
}

TEST_F(RuleOverride, aLatchedRuleOverridesWhileItsSensorIsMissing) {
    ask(degreesAsPercent());
    plan.rules = {rule({.percent = 60})};
    tick(0);
    readNothing();
    EXPECT_EQ(decisionAt(1), rpm(3400));
}

TEST_F(RuleOverride, aLatchedRuleUsesThePercentageOfThePlanOfTheTick) {
    ask(Mode::automatic());
    plan.rules = {rule({.percent = 60})};
    EXPECT_EQ(decisionAt(0), rpm(3400));
    plan.rules[0].targetPercent = 10;
    EXPECT_EQ(decisionAt(1), rpm(1400));
}

TEST_F(RuleOverride, aPercentageAboveAHundredIsFullSpeed) {
    ask(Mode::automatic());
    plan.rules = {rule({.percent = 250})};
    EXPECT_EQ(decisionAt(0), rpm(5000));
}

TEST_F(RuleOverride, aNegativePercentageIsARequestToStandStill) {
    ask(Mode::fixedPercent(50));
    plan.rules = {rule({.percent = -20})};
    EXPECT_EQ(decisionAt(0), rpm(1000));
    EXPECT_EQ(decisionAt(9.999), rpm(1000));
    EXPECT_EQ(decisionAt(10), stopped);
}

TEST_F(RuleOverride, aRuleTargetJumpsAtOnceWithoutARateLimit) {
    ask(degreesAsPercent());
    plan.rules = {rule({.above = 80, .percent = 100})};
    read(5);
    EXPECT_EQ(decisionAt(0), rpm(1200));
    read(90);
    EXPECT_EQ(decisionAt(1), rpm(5000));
}

TEST_F(RuleOverride, aRuleOfZeroPercentOverARunningFanStartsTheZeroTimer) {
    ask(Mode::fixedPercent(50));
    plan.rules = {rule({.percent = 0})};
    EXPECT_EQ(decisionAt(0), rpm(1000));
    EXPECT_THAT(evaluator.zeroSince, UnorderedElementsAre(Pair(0, at(0))));
    EXPECT_EQ(decisionAt(9.999), rpm(1000));
    EXPECT_EQ(decisionAt(10), stopped);
    EXPECT_THAT(evaluator.lastTargetByFan, IsEmpty());
}

TEST_F(RuleOverride, aRuleOfZeroPercentCountsOnFromTheFansOwnZeroRequest) {
    ask(Mode::fixedPercent(0));
    read(20);
    plan.rules = {rule({.percent = 0})};
    tick(0);
    read(90);
    EXPECT_EQ(decisionAt(9.999), rpm(1000));
    EXPECT_EQ(decisionAt(10), stopped);
}

TEST_F(RuleOverride, aRuleRestartsAStoppedFanOnTheSameTick) {
    ask(Mode::fixedPercent(0));
    read(20);
    plan.rules = {rule({.percent = 30})};
    tick(0);
    EXPECT_EQ(decisionAt(10), stopped);
    read(90);
    EXPECT_EQ(decisionAt(11), rpm(2200));
    EXPECT_THAT(evaluator.stoppedFans, IsEmpty());
}

TEST_F(RuleOverride, aRuleBelowTheResumeLevelRestartsAStoppedFanToo) {
    ask(Mode::fixedPercent(0));
    read(20);
    plan.rules = {rule({.percent = 0.5})};
    tick(0);
    EXPECT_EQ(decisionAt(10), stopped);
    read(90);
    EXPECT_EQ(decisionAt(11), rpm(1020));
}

}  // namespace
}  // namespace airflow::evaluation
