#include <limits>

#include "evaluation/Builders.h"
#include "evaluation/FanStopPolicy.h"
#include "support/Doubles.h"

namespace airflow::evaluation {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;
using tests::notANumber;

/// Asks the policy about fan 3, which no plan and no snapshot knows.
class StopDecision : public testing::Test {
protected:
    std::optional<FanDecision> ask(double percent, double seconds) {
        return evaluator.stopDecision(3, numbers::Percent(percent), false, at(seconds));
    }
    std::optional<FanDecision> force(double percent, double seconds) {
        return evaluator.stopDecision(3, numbers::Percent(percent), true, at(seconds));
    }

    PlanEvaluator evaluator;
};

constexpr double smallest = std::numeric_limits<double>::denorm_min();
constexpr double justBelowThree = 2.9999999999999996;

TEST(FanStopPolicy, hasTheDocumentedTimesAndPercentages) {
    EXPECT_EQ(FanStopPolicy::stopDwellSeconds.count(), 10.0);
    EXPECT_EQ(FanStopPolicy::resumePercent.value(), 3.0);
    EXPECT_EQ(FanStopPolicy::resumeDwellSeconds.count(), 3.0);
    EXPECT_EQ(FanStopPolicy::stoppedTargetRPM, 0.0);
}

TEST_F(StopDecision, aFanThatRunsIsNotStoppedByARequestAndNothingIsRemembered) {
    EXPECT_EQ(ask(smallest, 0), std::nullopt);
    EXPECT_EQ(force(100, 0), std::nullopt);
    EXPECT_EQ(evaluator, PlanEvaluator{});
}

TEST_F(StopDecision, zeroOfEitherSignIsNoRequest) {
    EXPECT_EQ(ask(0.0, 0), std::nullopt);
    EXPECT_EQ(ask(-0.0, 10), stopped);
}

TEST_F(StopDecision, whatIsNotANumberIsNoRequest) {
    EXPECT_EQ(ask(notANumber, 0), std::nullopt);
    EXPECT_THAT(evaluator.zeroSince, UnorderedElementsAre(Pair(3, at(0))));
    EXPECT_EQ(ask(notANumber, 10), stopped);
    EXPECT_EQ(ask(5, 11), stopped);
    EXPECT_EQ(ask(notANumber, 12), stopped);
    EXPECT_THAT(evaluator.resumeSince, IsEmpty());
}

TEST_F(StopDecision, whatIsNotANumberIsNoRequestOfARuleEither) {
    EXPECT_EQ(force(notANumber, 0), std::nullopt);
    EXPECT_EQ(force(notANumber, 10), stopped);
}

TEST_F(StopDecision, aFanStopsAtTenSecondsOfAskingForNothing) {
    EXPECT_EQ(ask(0, 0), std::nullopt);
    EXPECT_EQ(ask(0, 9.999), std::nullopt);
    EXPECT_EQ(ask(0, 10), stopped);
    EXPECT_THAT(evaluator.stoppedFans, ElementsAre(3));
}

TEST_F(StopDecision, theSmallestRequestForgetsSinceWhenNothingWasAsked) {
    EXPECT_EQ(ask(0, 0), std::nullopt);
    EXPECT_EQ(ask(smallest, 5), std::nullopt);
    EXPECT_THAT(evaluator.zeroSince, IsEmpty());
    EXPECT_EQ(ask(0, 10), std::nullopt);
}

TEST_F(StopDecision, aStoppedFanResumesAtThreePercentAndNotBelow) {
    evaluator.stoppedFans = {3};
    EXPECT_EQ(ask(2.99, 0), stopped);
    EXPECT_EQ(ask(justBelowThree, 0), stopped);
    EXPECT_THAT(evaluator.resumeSince, IsEmpty());
    EXPECT_EQ(ask(3.0, 0), stopped);
    EXPECT_EQ(ask(3.0, 2.999), stopped);
    EXPECT_EQ(ask(3.0, 3), std::nullopt);
    EXPECT_EQ(evaluator, PlanEvaluator{});
}

TEST_F(StopDecision, fallingJustBelowThreePercentForgetsTheResumeTimer) {
    evaluator.stoppedFans = {3};
    EXPECT_EQ(ask(3, 0), stopped);
    EXPECT_EQ(ask(justBelowThree, 1), stopped);
    EXPECT_THAT(evaluator.resumeSince, IsEmpty());
    EXPECT_EQ(ask(3, 3), stopped);
}

TEST_F(StopDecision, theResumeTimerCountsFromTheFirstRequestThatWasHighEnough) {
    evaluator.stoppedFans = {3};
    EXPECT_EQ(ask(3, 0), stopped);
    EXPECT_EQ(ask(90, 2), stopped);
    EXPECT_THAT(evaluator.resumeSince, UnorderedElementsAre(Pair(3, at(0))));
    EXPECT_EQ(ask(4, 3), std::nullopt);
}

TEST_F(StopDecision, aRuleRestartsAFanHoweverLittleItAsksFor) {
    evaluator.stoppedFans = {3};
    evaluator.resumeSince = {{3, at(0)}};
    evaluator.zeroSince = {{3, at(0)}};
    EXPECT_EQ(force(smallest, 0), std::nullopt);
    EXPECT_EQ(evaluator, PlanEvaluator{});
}

TEST_F(StopDecision, aRuleThatAsksForNothingStopsAfterTenSecondsToo) {
    EXPECT_EQ(force(0, 0), std::nullopt);
    EXPECT_EQ(force(-1, 9.999), std::nullopt);
    EXPECT_EQ(force(0, 10), stopped);
    EXPECT_EQ(force(0, 11), stopped);
}

TEST_F(StopDecision, otherFansAreLeftAlone) {
    evaluator.stoppedFans = {1, 2};
    evaluator.resumeSince = {{1, at(0)}};
    evaluator.zeroSince = {{2, at(0)}};
    const PlanEvaluator before = evaluator;
    EXPECT_EQ(force(50, 1), std::nullopt);
    EXPECT_EQ(ask(50, 2), std::nullopt);
    EXPECT_EQ(evaluator, before);
}

}  // namespace
}  // namespace airflow::evaluation
