#include "AccessLog.h"

namespace airflow::control {
namespace {

using simulation::FanMode;
using simulation::Fault;
using testing::ElementsAre;

TEST(Claim, acceptedAtOnceIsOneWriteWithoutForceTest) {
    ControllerBench bench;
    EXPECT_EQ(bench.run(bench.controller().setManual(0, 3000)), ControlResult::applied());
    // Force-test is raised by the release before the claim and by the control step after it.
    EXPECT_THAT(bench.writes, ElementsAre("Ftst=1", "F0Md=1", "Ftst=1", "F0Md=1", "F0Tg=3000"));
}

TEST(Claim, refusedOnceRaisesForceTestAndTriesAgainWithoutWaiting) {
    ControllerBench bench;
    const AccessLog log(bench);
    bench.mac().smc().add(Fault{.until = 1ms, .key = "Ftst", .latency = 2ms});
    refuse(bench, "F0Md", 1, 0x86, 3ms);
    bench.mac().smc().add(Fault{.until = 3ms, .key = "Ftst", .latency = 5ms});
    EXPECT_EQ(bench.run(bench.controller().setManual(0, 3000)), ControlResult::applied());
    EXPECT_THAT(bench.writes, ElementsAre("Ftst=1", "F0Md=1 (0x86)", "Ftst=1", "F0Md=1", "Ftst=1",
                                          "F0Md=1", "F0Tg=3000"));
    EXPECT_EQ(log.timesOf("F0Md=1").front(), 7);
}

TEST(Claim, isRejectedByTheFifthEqualRefusalAfterFourPauses) {
    ControllerBench bench;
    const AccessLog log(bench);
    refuse(bench, "F0Md", 1, 0x86, 401ms);
    const auto result = bench.start(bench.controller().setManual(0, 3000));
    bench.advance(399ms);
    EXPECT_THAT(log.timesOf("F0Md=1 (0x86)"), ElementsAre(0, 0, 100, 200, 300));
    bench.advance(1ms);
    EXPECT_THAT(log.timesOf("F0Md=1 (0x86)"), ElementsAre(0, 0, 100, 200, 300, 400));
    bench.advance(1s);
    EXPECT_EQ(*result, ControlResult::rejected(134));
}

TEST(Claim, survivesFourEqualRefusals) {
    ControllerBench bench;
    const AccessLog log(bench);
    refuse(bench, "F0Md", 1, 0x86, 400ms);
    EXPECT_EQ(bench.run(bench.controller().setManual(0, 3000)), ControlResult::applied());
    EXPECT_EQ(log.timesOf("F0Md=1 (0x86)").size(), 5U);  // the first write is not counted
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::forced);
    EXPECT_EQ(bench.state().lastError, std::nullopt);
}

TEST(Claim, startsCountingAfreshAfterBusy) {
    ControllerBench bench;
    const AccessLog log(bench);
    refuse(bench, "F0Md", 1, 0x86, 400ms);
    refuse(bench, "F0Md", 1, 0x82, 401ms);
    refuse(bench, "F0Md", 1, 0x86, 801ms);
    EXPECT_EQ(bench.run(bench.controller().setManual(0, 3000)), ControlResult::applied());
    EXPECT_THAT(log.timesOf("F0Md=1 (0x86)"), ElementsAre(0, 0, 100, 200, 300, 500, 600, 700, 800));
    EXPECT_THAT(log.timesOf("F0Md=1 (0x82)"), ElementsAre(400));
}

TEST(Claim, isRejectedByFiveEqualRefusalsAfterBusy) {
    ControllerBench bench;
    refuse(bench, "F0Md", 1, 0x86, 400ms);
    refuse(bench, "F0Md", 1, 0x82, 401ms);
    refuse(bench, "F0Md", 1, 0x86, 901ms);
    EXPECT_EQ(bench.run(bench.controller().setManual(0, 3000)), ControlResult::rejected(134));
}

TEST(Claim, startsCountingAfreshAfterAnotherCode) {
    ControllerBench bench;
    refuse(bench, "F0Md", 1, 0x86, 400ms);
    refuse(bench, "F0Md", 1, 0x87, 401ms);
    refuse(bench, "F0Md", 1, 0x86, 801ms);
    EXPECT_EQ(bench.run(bench.controller().setManual(0, 3000)), ControlResult::applied());
}

TEST(Claim, countsTheOtherCodeAsItsFirstRefusal) {
    ControllerBench bench;
    refuse(bench, "F0Md", 1, 0x86, 300ms);
    refuse(bench, "F0Md", 1, 0x87, 701ms);
    EXPECT_EQ(bench.run(bench.controller().setManual(0, 3000)), ControlResult::rejected(0x87));
}

TEST(Claim, isRejectedWithCode255WhenTheCallFails) {
    ControllerBench bench;
    const AccessLog log(bench);
    breakCalls(bench, "F0Md", 1, 0xE00002C2, 401ms);
    EXPECT_EQ(bench.run(bench.controller().setManual(0, 3000)), ControlResult::rejected(255));
    EXPECT_THAT(log.timesOf("F0Md=1 (failed)"), ElementsAre(0, 0, 100, 200, 300, 400));
}

TEST(Claim, countsAFailedCallAndCode255AsTheSame) {
    ControllerBench bench;
    breakCalls(bench, "F0Md", 1, 0xE00002C2, 200ms);
    refuse(bench, "F0Md", 1, 255, 401ms);
    EXPECT_EQ(bench.run(bench.controller().setManual(0, 3000)), ControlResult::rejected(255));
}

TEST(Claim, goesOnWhenForceTestIsRefused) {
    ControllerBench bench;
    refuse(bench, "Ftst", 1, 0x86);
    refuse(bench, "F0Md", 1, 0x86, 200ms);
    EXPECT_EQ(bench.run(bench.controller().setManual(0, 3000)), ControlResult::applied());
}

TEST(Claim, goesOnWhenForceTestCannotBeWritten) {
    ControllerBench bench;
    breakCalls(bench, "Ftst", 1, 0xE00002C1);
    refuse(bench, "F0Md", 1, 0x86, 200ms);
    EXPECT_EQ(bench.run(bench.controller().setManual(0, 3000)), ControlResult::applied());
}

TEST(Claim, isNeverRejectedWhileTheCodesChangeAndTimesOutAfterTenSeconds) {
    ControllerBench bench;
    const AccessLog log(bench);
    for (int poll = 0; poll < 200; ++poll) {
        const auto code = static_cast<std::uint8_t>(poll % 2 == 0 ? 0x86 : 0x87);
        refuse(bench, "F0Md", 1, code, (poll + 1) * 100ms, poll * 100ms);
    }
    const auto result = bench.start(bench.controller().setManual(0, 3000));
    bench.advance(9999ms);
    EXPECT_EQ(log.timesOf("F0Md=1 (0x86)").size() + log.timesOf("F0Md=1 (0x87)").size(), 101U);
    EXPECT_EQ(log.timesOf("F0Md=1 (0x87)").back(), 9900);
    bench.advance(11s);
    EXPECT_EQ(*result, ControlResult::timedOut());
    EXPECT_EQ(bench.published.front().lastError, "applyPlan: timedOut");
}

TEST(Claim, whileBusyRaisesForceTestAgainAtEveryTwentiethAttempt) {
    ControllerBench bench;
    const AccessLog log(bench);
    refuse(bench, "F0Md", 1, 0x82, 10s);
    EXPECT_EQ(bench.run(bench.controller().setManual(0, 3000)), ControlResult::timedOut());
    EXPECT_EQ(log.timesOf("F0Md=1 (0x82)").size(), 101U);
    // By the release, at the start, before attempts 20 to 100, and by the control step.
    EXPECT_THAT(log.timesOf("Ftst=1"), ElementsAre(0, 0, 1900, 3900, 5900, 7900, 9900, 10080));
}

TEST(Claim, raisesForceTestBeforeTheTwentiethAttemptNotBehindIt) {
    ControllerBench bench;
    refuse(bench, "F0Md", 1, 0x82, 1901ms);
    EXPECT_EQ(bench.run(bench.controller().setManual(0, 3000)), ControlResult::applied());
    ASSERT_GE(bench.writes.size(), 24U);
    EXPECT_EQ(bench.writes[21], "F0Md=1 (0x82)");  // attempt 19
    EXPECT_EQ(bench.writes[22], "Ftst=1");
    EXPECT_EQ(bench.writes[23], "F0Md=1 (0x82)");  // attempt 20
}

TEST(Claim, isStillAcceptedByTheLastAttemptBeforeTenSeconds) {
    ControllerBench bench;
    const AccessLog log(bench);
    refuse(bench, "F0Md", 1, 0x82, 9900ms);
    EXPECT_EQ(bench.run(bench.controller().setManual(0, 3000)), ControlResult::applied());
    EXPECT_EQ(log.timesOf("F0Md=1").front(), 9900);
}

TEST(Claim, timesOutAtTenSecondsSharp) {
    ControllerBench bench;
    const AccessLog log(bench);
    refuse(bench, "F0Md", 1, 0x82, 9901ms);
    EXPECT_EQ(bench.run(bench.controller().setManual(0, 3000)), ControlResult::timedOut());
    EXPECT_EQ(log.timesOf("F0Md=1").front(), 10080);  // by the control step, after its snapshot
}

TEST(Claim, makesItsFirstAttemptHoweverLongThatTakes) {
    ControllerBench bench;
    bench.mac().smc().add(Fault{.until = 10ms, .key = "Ftst", .latency = 5ms});
    refuse(bench, "F0Md", 1, 0x82, 10ms);
    bench.mac().smc().add(Fault{.until = 11ms, .key = "F0Md", .latency = 11s});
    EXPECT_EQ(bench.run(bench.controller().setManual(0, 3000)), ControlResult::applied());
}

TEST(Claim, looksAtTheClockOnlyAfterAPause) {
    ControllerBench bench;
    const AccessLog log(bench);
    bench.mac().smc().add(Fault{.until = 10ms, .key = "Ftst", .latency = 5ms});
    refuse(bench, "F0Md", 1, 0x82, 10ms);
    bench.mac().smc().add(
        Fault{.until = 11ms, .key = "F0Md", .result = std::uint8_t{0x82}, .latency = 11s});
    EXPECT_EQ(bench.run(bench.controller().setManual(0, 3000)), ControlResult::timedOut());
    EXPECT_THAT(log.timesOf("F0Md=1 (0x82)"), ElementsAre(5, 10));
    EXPECT_EQ(log.timesOf("F0Md=1").front(), 11190);  // by the control step
}

TEST(Claim, countsTenSecondsFromTheEndOfTheForceTestWrite) {
    ControllerBench bench;
    bench.mac().smc().add(Fault{.until = 5s, .key = "Ftst", .latency = 4s});
    refuse(bench, "F0Md", 1, 0x82, 17900ms);
    EXPECT_EQ(bench.run(bench.controller().setManual(0, 3000)), ControlResult::applied());
}

TEST(Claim, isNotConfusedByTheWallClock) {
    ControllerBench bench;
    refuse(bench, "F0Md", 1, 0x82, 5s);
    const auto result = bench.start(bench.controller().setManual(0, 3000));
    bench.advance(2s);
    bench.system.runtime.jumpDate(concurrency::Seconds(3600));
    bench.advance(4s);
    EXPECT_EQ(*result, ControlResult::applied());
}

TEST(Claim, letsOtherCommandsRunWhileItWaits) {
    ControllerBench bench;
    refuse(bench, "F0Md", 1, 0x82);
    const auto first = bench.start(bench.controller().setManual(0, 3000));
    bench.advance(1s);
    EXPECT_EQ(bench.run(bench.controller().setManual(1, 2000)), ControlResult::timedOut());
    EXPECT_EQ(bench.mac().fan(1).mode, FanMode::forced);
    EXPECT_EQ(*first, ControlResult::timedOut());
}

/// Without the end of the claim a cancelled task could spin on the driver.
TEST(Claim, ofACancelledHoldLoopKeepsItsPeriodAndEndsAfterIt) {
    ControllerBench bench;
    bench.system.runtime.limitJobs(1000);
    const AccessLog log(bench);
    refuse(bench, "F0Md", 1, 0x86, 900ms);
    refuse(bench, "F0Md", 1, 0x82, 2700ms);
    ASSERT_EQ(bench.run(bench.controller().setManual(0, 3000)), ControlResult::rejected(134));
    bench.advance(1600ms);  // into the claim of the loop's first tick, which began at 1.98 s
    EXPECT_EQ(bench.run(bench.controller().automatic()), ControlResult::applied());
    bench.advance(10s);
    EXPECT_THAT(log.timesOf("F0Md=1 (0x82)"),
                ElementsAre(1980, 1980, 2080, 2180, 2280, 2380, 2480));
}

TEST(Claim, ofACancelledHoldLoopDoesNotWaitForARefusal) {
    ControllerBench bench;
    bench.system.runtime.limitJobs(1000);
    const AccessLog log(bench);
    refuse(bench, "F0Md", 1, 0x86, 900ms);
    refuse(bench, "F0Md", 1, 0x82, 2100ms);
    refuse(bench, "F0Md", 1, 0x87);
    ASSERT_EQ(bench.run(bench.controller().setManual(0, 3000)), ControlResult::rejected(134));
    bench.advance(2100ms - bench.system.elapsed());
    EXPECT_EQ(bench.run(bench.controller().automatic()), ControlResult::applied());
    bench.advance(10s);
    EXPECT_THAT(log.timesOf("F0Md=1 (0x82)"), ElementsAre(1980, 1980, 2080));
    EXPECT_THAT(log.timesOf("F0Md=1 (0x87)"), testing::IsEmpty());
}

}  // namespace
}  // namespace airflow::control
