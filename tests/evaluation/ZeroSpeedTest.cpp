#include "evaluation/Builders.h"

namespace airflow::evaluation {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;

/// Drives fan 0 through the states of the zero-speed policy by percentages that are asked of it.
class ZeroSpeed : public EvaluatorTest {
protected:
    std::optional<FanDecision> request(double percent, double seconds) {
        ask(Mode::fixedPercent(percent));
        return decisionAt(seconds);
    }
    /// A rule forces a percentage on the fan, from this tick on.
    std::optional<FanDecision> force(double percent, double seconds) {
        read(90);
        plan.rules = {rule({.percent = percent})};
        return decisionAt(seconds);
    }
    std::optional<FanDecision> askAt(Mode mode, double seconds) {
        ask(std::move(mode));
        return decisionAt(seconds);
    }

    /// At 0 s the request falls to zero; nothing else happened before.
    void becomeZeroPending() { ASSERT_EQ(request(0, 0), rpm(1000)); }
    /// Stopped at 10 s.
    void becomeStopped() {
        becomeZeroPending();
        ASSERT_EQ(request(0, 10), stopped);
    }
    /// Stopped at 10 s, resume-pending since 20 s.
    void becomeResumePending() {
        becomeStopped();
        ASSERT_EQ(request(5, 20), stopped);
    }
    void expectRunning() {
        EXPECT_THAT(evaluator.zeroSince, IsEmpty());
        EXPECT_THAT(evaluator.resumeSince, IsEmpty());
        EXPECT_THAT(evaluator.stoppedFans, IsEmpty());
    }
};

TEST_F(ZeroSpeed, aRunningFanAskedForNothingIsPendingAtItsMinimum) {
    EXPECT_EQ(request(50, -1), rpm(3000));
    expectRunning();
    EXPECT_EQ(request(0, 0), rpm(1000));
    EXPECT_THAT(evaluator.zeroSince, UnorderedElementsAre(Pair(0, at(0))));
    EXPECT_THAT(evaluator.resumeSince, IsEmpty());
    EXPECT_THAT(evaluator.stoppedFans, IsEmpty());
}

TEST_F(ZeroSpeed, anyRequestAboveZeroKeepsARunningFanRunning) {
    EXPECT_EQ(request(0.001, 0), rpm(1000.04));
    EXPECT_EQ(request(0.001, 100), rpm(1000.04));
    expectRunning();
}

TEST_F(ZeroSpeed, aNegativeRequestCountsAsNone) {
    EXPECT_EQ(request(-0.001, 0), rpm(1000));
    EXPECT_EQ(request(-50, 10), stopped);
}

TEST_F(ZeroSpeed, anyRequestAboveZeroSetsAPendingFanRunning) {
    becomeZeroPending();
    EXPECT_EQ(request(0.5, 9), rpm(1020));
    expectRunning();
    EXPECT_EQ(request(0, 10), rpm(1000));  // ten seconds count anew
    EXPECT_EQ(request(0, 19.999), rpm(1000));
    EXPECT_EQ(request(0, 20), stopped);
}

TEST_F(ZeroSpeed, aPendingFanStopsAfterTenSecondsAndNotBefore) {
    becomeZeroPending();
    EXPECT_EQ(request(0, 9.999), rpm(1000));
    EXPECT_THAT(evaluator.stoppedFans, IsEmpty());
    EXPECT_EQ(request(0, 10), stopped);
    EXPECT_THAT(evaluator.stoppedFans, ElementsAre(0));
    EXPECT_THAT(evaluator.lastTargetByFan, IsEmpty());
}

TEST_F(ZeroSpeed, aPendingFanStopsThoughTheTickComesLate) {
    becomeZeroPending();
    EXPECT_EQ(request(0, 10.001), stopped);
}

TEST_F(ZeroSpeed, aStoppedFanAskedForNothingStaysStopped) {
    becomeStopped();
    EXPECT_EQ(request(0, 11), stopped);
    EXPECT_EQ(request(-1, 1000), stopped);
    EXPECT_THAT(evaluator.zeroSince, UnorderedElementsAre(Pair(0, at(0))));
}

TEST_F(ZeroSpeed, aStoppedFanAskedForTooLittleStaysStopped) {
    becomeStopped();
    EXPECT_EQ(request(2, 11), stopped);
    EXPECT_EQ(request(2.99, 20), stopped);
    EXPECT_EQ(request(0.001, 1000), stopped);
    EXPECT_THAT(evaluator.resumeSince, IsEmpty());
    EXPECT_THAT(evaluator.zeroSince, IsEmpty());
}

TEST_F(ZeroSpeed, aStoppedFanAskedForThreePercentIsPendingToResume) {
    becomeStopped();
    EXPECT_EQ(request(3, 20), stopped);
    EXPECT_THAT(evaluator.resumeSince, UnorderedElementsAre(Pair(0, at(20))));
    EXPECT_THAT(evaluator.stoppedFans, ElementsAre(0));
}

TEST_F(ZeroSpeed, aFanPendingToResumeRunsAfterThreeSecondsAndNotBefore) {
    becomeResumePending();
    EXPECT_EQ(request(3, 22.999), stopped);
    EXPECT_EQ(request(3, 23), rpm(1120));
    expectRunning();
}

TEST_F(ZeroSpeed, aFanPendingToResumeRunsThoughTheTickComesLate) {
    becomeResumePending();
    EXPECT_EQ(request(5, 23.001), rpm(1200));
}

TEST_F(ZeroSpeed, fivePercentForTwoSecondsAndThenTwoKeepsTheFanStoppedAndForgetsTheTimer) {
    becomeResumePending();
    EXPECT_EQ(request(5, 22), stopped);
    EXPECT_EQ(request(2, 22.5), stopped);
    EXPECT_THAT(evaluator.resumeSince, IsEmpty());
    EXPECT_EQ(request(5, 23), stopped);
    EXPECT_EQ(request(5, 25.999), stopped);
    EXPECT_EQ(request(5, 26), rpm(1200));
}

TEST_F(ZeroSpeed, askingForNothingForgetsTheResumeTimer) {
    becomeResumePending();
    EXPECT_EQ(request(0, 22), stopped);
    EXPECT_THAT(evaluator.resumeSince, IsEmpty());
    EXPECT_EQ(request(5, 23), stopped);
    EXPECT_EQ(request(5, 26), rpm(1200));
}

TEST_F(ZeroSpeed, aFanThatResumedCountsTenSecondsAgainBeforeItStops) {
    becomeResumePending();
    EXPECT_EQ(request(5, 23), rpm(1200));
    EXPECT_EQ(request(0, 24), rpm(1000));
    EXPECT_EQ(request(0, 33.999), rpm(1000));
    EXPECT_EQ(request(0, 34), stopped);
}

TEST_F(ZeroSpeed, aRuleSetsAStoppedFanRunningAtOnce) {
    becomeStopped();
    EXPECT_EQ(force(0.5, 11), rpm(1020));
    expectRunning();
}

TEST_F(ZeroSpeed, aRuleSetsAFanPendingToResumeRunningAtOnce) {
    becomeResumePending();
    EXPECT_EQ(force(50, 20.001), rpm(3000));
    expectRunning();
}

TEST_F(ZeroSpeed, aRuleOfZeroPercentKeepsAStoppedFanStopped) {
    becomeResumePending();
    EXPECT_EQ(force(0, 23), stopped);
    EXPECT_THAT(evaluator.resumeSince, IsEmpty());
}

TEST_F(ZeroSpeed, automaticSetsAFanRunningFromAnyState) {
    becomeZeroPending();
    EXPECT_EQ(askAt(Mode::automatic(), 1), released);
    expectRunning();
    becomeStopped();
    EXPECT_EQ(askAt(Mode::automatic(), 11), released);
    expectRunning();
    becomeResumePending();
    EXPECT_EQ(askAt(Mode::automatic(), 21), released);
    expectRunning();
}

TEST_F(ZeroSpeed, aFixedSpeedSetsAFanRunningFromAnyState) {
    becomeZeroPending();
    EXPECT_EQ(askAt(Mode::fixedRPM(0), 1), rpm(1000));
    expectRunning();
    becomeStopped();
    EXPECT_EQ(askAt(Mode::fixedRPM(0), 11), rpm(1000));
    expectRunning();
    becomeResumePending();
    EXPECT_EQ(askAt(Mode::fixedRPM(2000), 21), rpm(2000));
    expectRunning();
}

TEST_F(ZeroSpeed, aMissingCurveSensorSetsAFanRunningFromAnyState) {
    becomeZeroPending();
    EXPECT_EQ(askAt(degreesAsPercent("SMC-A"), 1), released);
    expectRunning();
    becomeStopped();
    EXPECT_EQ(askAt(degreesAsPercent("SMC-A"), 11), released);
    expectRunning();
    becomeResumePending();
    EXPECT_EQ(askAt(degreesAsPercent(), 21), released);
    expectRunning();
}

TEST_F(ZeroSpeed, aFixedSpeedOfZeroNeverStopsAFan) {
    EXPECT_EQ(askAt(Mode::fixedRPM(0), 0), rpm(1000));
    EXPECT_EQ(askAt(Mode::fixedRPM(0), 1000), rpm(1000));
}

TEST_F(ZeroSpeed, aCurveStopsAndRestartsItsFanLikeAnyRequest) {
    ask(degreesAsPercent());
    read(0);
    EXPECT_EQ(decisionAt(0), rpm(1000));
    EXPECT_EQ(decisionAt(9.999), rpm(1000));
    EXPECT_EQ(decisionAt(10), stopped);
    read(2);
    EXPECT_EQ(decisionAt(11), stopped);
    read(5);
    EXPECT_EQ(decisionAt(12), stopped);
    EXPECT_EQ(decisionAt(14.999), stopped);
    EXPECT_EQ(decisionAt(15), rpm(1200));
}

TEST_F(ZeroSpeed, theStateOutlivesAChangeOfMode) {
    becomeZeroPending();
    read(0);
    EXPECT_EQ(askAt(degreesAsPercent(), 10), stopped);
    EXPECT_EQ(request(50, 11), stopped);
    read(50);
    EXPECT_EQ(askAt(degreesAsPercent(), 14), rpm(3000));
}

TEST_F(ZeroSpeed, aClockThatJumpsBackKeepsAPendingFanRunningLonger) {
    becomeZeroPending();
    EXPECT_EQ(request(0, -100), rpm(1000));
    EXPECT_EQ(request(0, 9.999), rpm(1000));
    EXPECT_EQ(request(0, 10), stopped);
}

TEST_F(ZeroSpeed, aClockThatJumpsBackKeepsAStoppedFanStopped) {
    becomeStopped();
    EXPECT_EQ(request(0, -100), stopped);
}

TEST_F(ZeroSpeed, aClockThatJumpsBackKeepsAFanPendingToResumeStoppedLonger) {
    becomeResumePending();
    EXPECT_EQ(request(5, 0), stopped);
    EXPECT_EQ(request(5, 22.999), stopped);
    EXPECT_EQ(request(5, 23), rpm(1200));
}

TEST_F(ZeroSpeed, fansStopAndResumeIndependently) {
    snapshot.fans = {fan(0), fan(1)};
    plan.fans = {{0, Mode::fixedPercent(0)}, {1, Mode::fixedPercent(50)}};
    tick(0);
    plan.fans[1].mode = Mode::fixedPercent(0);
    tick(5);
    EXPECT_THAT(tick(10), UnorderedElementsAre(Pair(0, stopped), Pair(1, rpm(1000))));
    plan.fans[0].mode = Mode::fixedPercent(5);
    EXPECT_THAT(tick(15), UnorderedElementsAre(Pair(0, stopped), Pair(1, stopped)));
    EXPECT_THAT(tick(18), UnorderedElementsAre(Pair(0, rpm(1200)), Pair(1, stopped)));
}

}  // namespace
}  // namespace airflow::evaluation
