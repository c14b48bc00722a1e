// What a retry does when, while it sleeps or waits for the SMC, something else has changed what
// there is to give back.
#include "HoldHarness.h"

namespace airflow::control {
namespace {

Texts timesWritten(const Texts& writes, const std::string& write) {
    Texts found;
    std::ranges::copy_if(writes, std::back_inserter(found),
                         [&write](const std::string& each) { return each == write; });
    return found;
}

/// The retry knows of fan 0 only when it wakes. Without its going on, fan 1, which only the release
/// failed to give back, would stay forced with nobody trying.
TEST(RetryRaces, aRetryThatWakesDuringAReleaseLeavesItAloneAndGoesOnForWhatThatLeavesForced) {
    ControllerHarness harness(steadyMachine(), withoutJitter);
    (void)harness.run(harness.controller().applyPlan(planOf({{0, rpm(3000)}, {1, rpm(4000)}})));
    const auto start = harness.system.elapsed();
    harness.mac().smc().add(refusal("F0Md", 0, refused, {}, start + 1s));
    (void)harness.run(harness.controller().applyPlan(planOf({{1, rpm(4000)}})));
    auto refusalOfFan1 = refusal("F1Md", 0, refused, {}, start + 4s);
    refusalOfFan1.latency = 10ms;
    harness.mac().smc().add(refusalOfFan1);
    harness.advance(start + 1985ms - harness.system.elapsed());
    slowDown(harness, 10ms);
    forget(harness);
    const auto restored = harness.start(harness.controller().restoreAuto());
    harness.advance(100ms);
    EXPECT_EQ(*restored, "failed to restore Auto: F1Md=0 rejected (SMC 0x86)");
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=0", "F1Md=0 (0x86)"));
    EXPECT_EQ(harness.state().lastError, "failed to restore Auto: F1Md=0 rejected (SMC 0x86)");
    EXPECT_TRUE(harness.state().isHolding);
    EXPECT_EQ(harness.mac().fan(1).mode, FanMode::forced);
    harness.advance(4s);
    EXPECT_EQ(harness.mac().fan(1).mode, FanMode::automatic);
    EXPECT_FALSE(harness.state().isHolding);
    EXPECT_EQ(harness.state().lastError, std::nullopt);
}

TEST(RetryRaces, withNothingLeftARetryThatSucceedsEndsAndSaysSo) {
    ControllerHarness harness(steadyMachine(), withoutJitter);
    (void)harness.run(harness.controller().applyPlan(planOf({{0, rpm(3000)}, {1, rpm(4000)}})));
    harness.mac().smc().add(refusal("F0Md", 0, refused, {}, harness.system.elapsed() + 1s));
    (void)harness.run(harness.controller().applyPlan(planOf({{1, rpm(4000)}})));
    EXPECT_NE(harness.system.runtime.pending().find("release retry"), std::string::npos);
    harness.advance(2100ms);
    EXPECT_EQ(harness.system.runtime.pending().find("release retry"), std::string::npos);
    EXPECT_EQ(harness.state().lastError, std::nullopt);
    EXPECT_TRUE(harness.state().isHolding);
}

/// A retry that wakes to a newer plan would otherwise end the hold that the plan has just begun.
class SupersededRetry : public testing::TestWithParam<std::uint64_t> {
protected:
    /// A retry sleeps because `refusal` was in the way of a release; then a plan holds fan 0.
    void supersede(const Fault& refusal) {
        (void)harness.run(harness.controller().applyPlan(planOf({{0, rpm(3000)}})));
        harness.mac().smc().add(refusal);
        (void)harness.run(harness.controller().automatic());
        forget(harness);
        EXPECT_EQ(harness.run(harness.controller().applyPlan(planOf({{0, rpm(3000)}}))),
                  ControlResult::applied());
        harness.settle();
    }
    void expectHeldByTheLoop() {
        forget(harness);
        harness.advance(1600ms);
        EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=1", "F0Tg=3000"));
        EXPECT_EQ(harness.mac().fan(0).mode, FanMode::forced);
        EXPECT_EQ(harness.system.runtime.pending().find("release retry"), std::string::npos);
    }

    ControllerHarness harness{steadyMachine(1), {.seed = GetParam(), .jitter = 0}};
};

TEST_P(SupersededRetry, ofTheWholeWritesNothing) {
    supersede(refusal("Ftst", 0, refused));
    EXPECT_THAT(timesWritten(harness.writes, "F0Md=0"), IsEmpty());
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=1", "Ftst=1", "F0Md=1", "F0Tg=3000"));
    expectHeldByTheLoop();
}

TEST_P(SupersededRetry, ofPendingFansWritesNothing) {
    supersede(refusal("F0Md", 0, refused));
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "Ftst=1", "F0Md=1", "F0Tg=3000"));
    expectHeldByTheLoop();
}

TEST_P(SupersededRetry, ofAFanThatStaysPendingLeavesItToTheNewOne) {
    ControllerHarness two(steadyMachine(), {.seed = GetParam(), .jitter = 0});
    (void)two.run(two.controller().applyPlan(planOf({{0, rpm(3000)}, {1, rpm(4000)}})));
    two.mac().smc().add(refusal("F0Md", 0, refused));
    (void)two.run(two.controller().applyPlan(planOf({{1, rpm(4000)}})));
    forget(two);
    (void)two.run(two.controller().applyPlan(planOf({{1, rpm(5000)}})));
    two.settle();
    EXPECT_THAT(two.writes, ElementsAre("Ftst=1", "F0Md=0 (0x86)", "Ftst=1", "F0Md=0 (0x86)",
                                        "F1Md=1", "F1Tg=5000"));
}

INSTANTIATE_TEST_SUITE_P(Seeds, SupersededRetry, testing::Values(0U, 1U, 2U, 3U, 4U));

TEST(RetryRaces, aPlanOfAProcessThatIsNotRootLeavesTheRetryAlone) {
    ControllerHarness harness(steadyMachine(1), withoutJitter);
    (void)harness.run(harness.controller().setManual(0_fan, 3000_rpm));
    const auto start = harness.system.elapsed();
    harness.mac().smc().add(refusal("F0Md", 0, refused, {}, start + 3s));
    (void)harness.run(harness.controller().automatic());
    harness.system.effectiveUserID = 501;
    forget(harness);
    EXPECT_EQ(harness.run(harness.controller().setManual(0_fan, 4000_rpm)),
              ControlResult::notPrivileged());
    EXPECT_THAT(harness.writes, IsEmpty());
    harness.advance(5s);
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=0 (0x86)", "Ftst=1", "F0Md=0"));
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
    EXPECT_EQ(harness.state().lastError, std::nullopt);
    EXPECT_EQ(harness.system.runtime.pending().find("release retry"), std::string::npos);
}

}  // namespace
}  // namespace airflow::control
