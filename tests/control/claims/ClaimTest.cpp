#include "AccessLog.h"

namespace airflow::control {
namespace {

using simulation::FanMode;
using simulation::Fault;
using testing::ElementsAre;

TEST(Claim, acceptedAtOnceIsOneWriteWithoutForceTest) {
    ControllerHarness harness;
    EXPECT_EQ(harness.run(harness.controller().setManual(0_fan, 3000_rpm)),
              ControlResult::applied());
    // Force-test is raised by the release before the claim and by the control step after it.
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=1", "Ftst=1", "F0Md=1", "F0Tg=3000"));
}

TEST(Claim, refusedOnceRaisesForceTestAndTriesAgainWithoutWaiting) {
    ControllerHarness harness;
    const AccessLog log(harness);
    harness.mac().smc().add(Fault{.until = 1ms, .key = "Ftst", .latency = 2ms});
    refuse(harness, "F0Md", 1, 0x86, 3ms);
    harness.mac().smc().add(Fault{.until = 3ms, .key = "Ftst", .latency = 5ms});
    EXPECT_EQ(harness.run(harness.controller().setManual(0_fan, 3000_rpm)),
              ControlResult::applied());
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=1 (0x86)", "Ftst=1", "F0Md=1", "Ftst=1",
                                            "F0Md=1", "F0Tg=3000"));
    EXPECT_EQ(log.timesOf("F0Md=1").front(), 7);
}

TEST(Claim, isRejectedByTheFifthEqualRefusalAfterFourPauses) {
    ControllerHarness harness;
    const AccessLog log(harness);
    refuse(harness, "F0Md", 1, 0x86, 401ms);
    const auto result = harness.start(harness.controller().setManual(0_fan, 3000_rpm));
    harness.advance(399ms);
    EXPECT_THAT(log.timesOf("F0Md=1 (0x86)"), ElementsAre(0, 0, 100, 200, 300));
    harness.advance(1ms);
    EXPECT_THAT(log.timesOf("F0Md=1 (0x86)"), ElementsAre(0, 0, 100, 200, 300, 400));
    harness.advance(1s);
    EXPECT_EQ(*result, ControlResult::rejected(134));
}

TEST(Claim, survivesFourEqualRefusals) {
    ControllerHarness harness;
    const AccessLog log(harness);
    refuse(harness, "F0Md", 1, 0x86, 400ms);
    EXPECT_EQ(harness.run(harness.controller().setManual(0_fan, 3000_rpm)),
              ControlResult::applied());
    EXPECT_EQ(log.timesOf("F0Md=1 (0x86)").size(), 5U);  // the first write is not counted
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::forced);
    EXPECT_EQ(harness.state().lastError, std::nullopt);
}

TEST(Claim, startsCountingAfreshAfterBusy) {
    ControllerHarness harness;
    const AccessLog log(harness);
    refuse(harness, "F0Md", 1, 0x86, 400ms);
    refuse(harness, "F0Md", 1, 0x82, 401ms);
    refuse(harness, "F0Md", 1, 0x86, 801ms);
    EXPECT_EQ(harness.run(harness.controller().setManual(0_fan, 3000_rpm)),
              ControlResult::applied());
    EXPECT_THAT(log.timesOf("F0Md=1 (0x86)"), ElementsAre(0, 0, 100, 200, 300, 500, 600, 700, 800));
    EXPECT_THAT(log.timesOf("F0Md=1 (0x82)"), ElementsAre(400));
}

TEST(Claim, isRejectedByFiveEqualRefusalsAfterBusy) {
    ControllerHarness harness;
    refuse(harness, "F0Md", 1, 0x86, 400ms);
    refuse(harness, "F0Md", 1, 0x82, 401ms);
    refuse(harness, "F0Md", 1, 0x86, 901ms);
    EXPECT_EQ(harness.run(harness.controller().setManual(0_fan, 3000_rpm)),
              ControlResult::rejected(134));
}

TEST(Claim, startsCountingAfreshAfterAnotherCode) {
    ControllerHarness harness;
    refuse(harness, "F0Md", 1, 0x86, 400ms);
    refuse(harness, "F0Md", 1, 0x87, 401ms);
    refuse(harness, "F0Md", 1, 0x86, 801ms);
    EXPECT_EQ(harness.run(harness.controller().setManual(0_fan, 3000_rpm)),
              ControlResult::applied());
}

TEST(Claim, countsTheOtherCodeAsItsFirstRefusal) {
    ControllerHarness harness;
    refuse(harness, "F0Md", 1, 0x86, 300ms);
    refuse(harness, "F0Md", 1, 0x87, 701ms);
    EXPECT_EQ(harness.run(harness.controller().setManual(0_fan, 3000_rpm)),
              ControlResult::rejected(0x87));
}

TEST(Claim, isRejectedWithCode255WhenTheCallFails) {
    ControllerHarness harness;
    const AccessLog log(harness);
    breakCalls(harness, "F0Md", 1, 0xE00002C2, 401ms);
    EXPECT_EQ(harness.run(harness.controller().setManual(0_fan, 3000_rpm)),
              ControlResult::rejected(255));
    EXPECT_THAT(log.timesOf("F0Md=1 (failed)"), ElementsAre(0, 0, 100, 200, 300, 400));
}

TEST(Claim, countsAFailedCallAndCode255AsTheSame) {
    ControllerHarness harness;
    breakCalls(harness, "F0Md", 1, 0xE00002C2, 200ms);
    refuse(harness, "F0Md", 1, 255, 401ms);
    EXPECT_EQ(harness.run(harness.controller().setManual(0_fan, 3000_rpm)),
              ControlResult::rejected(255));
}

TEST(Claim, goesOnWhenForceTestIsRefused) {
    ControllerHarness harness;
    refuse(harness, "Ftst", 1, 0x86);
    refuse(harness, "F0Md", 1, 0x86, 200ms);
    EXPECT_EQ(harness.run(harness.controller().setManual(0_fan, 3000_rpm)),
              ControlResult::applied());
}

TEST(Claim, goesOnWhenForceTestCannotBeWritten) {
    ControllerHarness harness;
    breakCalls(harness, "Ftst", 1, 0xE00002C1);
    refuse(harness, "F0Md", 1, 0x86, 200ms);
    EXPECT_EQ(harness.run(harness.controller().setManual(0_fan, 3000_rpm)),
              ControlResult::applied());
}

TEST(Claim, isNeverRejectedWhileTheCodesChangeAndTimesOutAfterTenSeconds) {
    ControllerHarness harness;
    const AccessLog log(harness);
    for (int poll = 0; poll < 200; ++poll) {
        const auto code = static_cast<std::uint8_t>(poll % 2 == 0 ? 0x86 : 0x87);
        refuse(harness, "F0Md", 1, code, (poll + 1) * 100ms, poll * 100ms);
    }
    const auto result = harness.start(harness.controller().setManual(0_fan, 3000_rpm));
    harness.advance(9999ms);
    EXPECT_EQ(log.timesOf("F0Md=1 (0x86)").size() + log.timesOf("F0Md=1 (0x87)").size(), 101U);
    EXPECT_EQ(log.timesOf("F0Md=1 (0x87)").back(), 9900);
    harness.advance(11s);
    EXPECT_EQ(*result, ControlResult::timedOut());
    EXPECT_EQ(harness.published.front().lastError, "applyPlan: timedOut");
}

TEST(Claim, whileBusyRaisesForceTestAgainAtEveryTwentiethAttempt) {
    ControllerHarness harness;
    const AccessLog log(harness);
    refuse(harness, "F0Md", 1, 0x82, 10s);
    EXPECT_EQ(harness.run(harness.controller().setManual(0_fan, 3000_rpm)),
              ControlResult::timedOut());
    EXPECT_EQ(log.timesOf("F0Md=1 (0x82)").size(), 101U);
    // By the release, at the start, before attempts 20 to 100, and by the control step.
    EXPECT_THAT(log.timesOf("Ftst=1"), ElementsAre(0, 0, 1900, 3900, 5900, 7900, 9900, 10080));
}

TEST(Claim, raisesForceTestBeforeTheTwentiethAttemptNotAfterIt) {
    ControllerHarness harness;
    refuse(harness, "F0Md", 1, 0x82, 1901ms);
    EXPECT_EQ(harness.run(harness.controller().setManual(0_fan, 3000_rpm)),
              ControlResult::applied());
    ASSERT_GE(harness.writes.size(), 24U);
    EXPECT_EQ(harness.writes[21], "F0Md=1 (0x82)");  // attempt 19
    EXPECT_EQ(harness.writes[22], "Ftst=1");
    EXPECT_EQ(harness.writes[23], "F0Md=1 (0x82)");  // attempt 20
}

TEST(Claim, isStillAcceptedByTheLastAttemptBeforeTenSeconds) {
    ControllerHarness harness;
    const AccessLog log(harness);
    refuse(harness, "F0Md", 1, 0x82, 9900ms);
    EXPECT_EQ(harness.run(harness.controller().setManual(0_fan, 3000_rpm)),
              ControlResult::applied());
    EXPECT_EQ(log.timesOf("F0Md=1").front(), 9900);
}

TEST(Claim, timesOutAtTenSecondsSharp) {
    ControllerHarness harness;
    const AccessLog log(harness);
    refuse(harness, "F0Md", 1, 0x82, 9901ms);
    EXPECT_EQ(harness.run(harness.controller().setManual(0_fan, 3000_rpm)),
              ControlResult::timedOut());
    EXPECT_EQ(log.timesOf("F0Md=1").front(), 10080);  // by the control step, after its snapshot
}

TEST(Claim, makesItsFirstAttemptHoweverLongThatTakes) {
    ControllerHarness harness;
    harness.mac().smc().add(Fault{.until = 10ms, .key = "Ftst", .latency = 5ms});
    refuse(harness, "F0Md", 1, 0x82, 10ms);
    harness.mac().smc().add(Fault{.until = 11ms, .key = "F0Md", .latency = 11s});
    EXPECT_EQ(harness.run(harness.controller().setManual(0_fan, 3000_rpm)),
              ControlResult::applied());
}

TEST(Claim, looksAtTheClockOnlyAfterAPause) {
    ControllerHarness harness;
    const AccessLog log(harness);
    harness.mac().smc().add(Fault{.until = 10ms, .key = "Ftst", .latency = 5ms});
    refuse(harness, "F0Md", 1, 0x82, 10ms);
    harness.mac().smc().add(
        Fault{.until = 11ms, .key = "F0Md", .result = std::uint8_t{0x82}, .latency = 11s});
    EXPECT_EQ(harness.run(harness.controller().setManual(0_fan, 3000_rpm)),
              ControlResult::timedOut());
    EXPECT_THAT(log.timesOf("F0Md=1 (0x82)"), ElementsAre(5, 10));
    EXPECT_EQ(log.timesOf("F0Md=1").front(), 11190);  // by the control step
}

TEST(Claim, countsTenSecondsFromTheEndOfTheForceTestWrite) {
    ControllerHarness harness;
    harness.mac().smc().add(Fault{.until = 5s, .key = "Ftst", .latency = 4s});
    refuse(harness, "F0Md", 1, 0x82, 17900ms);
    EXPECT_EQ(harness.run(harness.controller().setManual(0_fan, 3000_rpm)),
              ControlResult::applied());
}

TEST(Claim, isNotConfusedByTheWallClock) {
    ControllerHarness harness;
    refuse(harness, "F0Md", 1, 0x82, 5s);
    const auto result = harness.start(harness.controller().setManual(0_fan, 3000_rpm));
    harness.advance(2s);
    harness.system.runtime.jumpDate(concurrency::Seconds(3600));
    harness.advance(4s);
    EXPECT_EQ(*result, ControlResult::applied());
}

TEST(Claim, letsOtherCommandsRunWhileItWaits) {
    ControllerHarness harness;
    refuse(harness, "F0Md", 1, 0x82);
    const auto first = harness.start(harness.controller().setManual(0_fan, 3000_rpm));
    harness.advance(1s);
    EXPECT_EQ(harness.run(harness.controller().setManual(1_fan, 2000_rpm)),
              ControlResult::timedOut());
    EXPECT_EQ(harness.mac().fan(1).mode, FanMode::forced);
    EXPECT_EQ(*first, ControlResult::timedOut());
}

/// Without the end of the claim a cancelled task could spin on the driver.
TEST(Claim, ofACancelledHoldLoopKeepsItsPeriodAndEndsAfterIt) {
    ControllerHarness harness;
    harness.system.runtime.limitJobs(1000);
    const AccessLog log(harness);
    refuse(harness, "F0Md", 1, 0x86, 900ms);
    refuse(harness, "F0Md", 1, 0x82, 2700ms);
    ASSERT_EQ(harness.run(harness.controller().setManual(0_fan, 3000_rpm)),
              ControlResult::rejected(134));
    harness.advance(1600ms);  // into the claim of the loop's first tick, which began at 1.98 s
    EXPECT_EQ(harness.run(harness.controller().automatic()), ControlResult::applied());
    harness.advance(10s);
    EXPECT_THAT(log.timesOf("F0Md=1 (0x82)"),
                ElementsAre(1980, 1980, 2080, 2180, 2280, 2380, 2480));
}

TEST(Claim, ofACancelledHoldLoopDoesNotWaitForARefusal) {
    ControllerHarness harness;
    harness.system.runtime.limitJobs(1000);
    const AccessLog log(harness);
    refuse(harness, "F0Md", 1, 0x86, 900ms);
    refuse(harness, "F0Md", 1, 0x82, 2100ms);
    refuse(harness, "F0Md", 1, 0x87);
    ASSERT_EQ(harness.run(harness.controller().setManual(0_fan, 3000_rpm)),
              ControlResult::rejected(134));
    harness.advance(2100ms - harness.system.elapsed());
    EXPECT_EQ(harness.run(harness.controller().automatic()), ControlResult::applied());
    harness.advance(10s);
    EXPECT_THAT(log.timesOf("F0Md=1 (0x82)"), ElementsAre(1980, 1980, 2080));
    EXPECT_THAT(log.timesOf("F0Md=1 (0x87)"), testing::IsEmpty());
}

}  // namespace
}  // namespace airflow::control
