#include "AccessLog.h"

namespace airflow::control {
namespace {

using simulation::FanMode;
using simulation::Fault;

constexpr auto answerTime = 10ms;

/// Every request takes 10 ms from here on, so that a test can arrive in the middle of each.
void slowDown(ControllerHarness& harness, concurrency::Duration from) {
    for (const auto operation : {Fault::Operation::write, Fault::Operation::read}) {
        harness.mac().smc().add(Fault{.from = from, .operation = operation, .latency = answerTime});
    }
}

plan::FanControlPlan bothFans() {
    return {.fans = {{.fanID = 0, .mode = plan::FanControlModePlan::fixedRPM(3000)},
                     {.fanID = 1, .mode = plan::FanControlModePlan::fixedRPM(4000)}},
            .rules = {},
            .tuning = {}};
}

/// A client that lives: a heartbeat every second.
void liveOn(ControllerHarness& harness, int seconds) {
    for (int i = 0; i < seconds; ++i) {
        harness.run(harness.controller().heartbeat());
        harness.advance(1s);
    }
}

void expectBothHeld(ControllerHarness& harness) {
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::forced);
    EXPECT_EQ(harness.mac().fan(1).mode, FanMode::forced);
    EXPECT_EQ(harness.mac().fan(0).target, 3000);
    EXPECT_EQ(harness.mac().fan(1).target, 4000);
    EXPECT_TRUE(harness.state().isHolding);
    EXPECT_EQ(harness.state().lastError, std::nullopt);
    EXPECT_TRUE(harness.mac().forceTest());
}

void expectBothAutomatic(ControllerHarness& harness) {
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
    EXPECT_EQ(harness.mac().fan(1).mode, FanMode::automatic);
    EXPECT_FALSE(harness.state().isHolding);
    EXPECT_FALSE(harness.mac().forceTest());
}

/// Arrivals in the middle of the first, second, third and fourth write, and after them.
class DuringARelease
    : public testing::TestWithParam<std::tuple<concurrency::Duration, std::uint64_t>> {
protected:
    [[nodiscard]] static concurrency::Duration arrival() { return std::get<0>(GetParam()); }
    [[nodiscard]] static simulation::SimulatedSystem::Options options() {
        return {.seed = std::get<1>(GetParam())};
    }
    /// The mode keys' zeros that were sent after the plan came.
    static std::size_t zerosSince(const AccessLog& log, std::int64_t start) {
        std::size_t count = 0;
        for (const char* write : {"F0Md=0", "F1Md=0"}) {
            for (const std::int64_t time : log.timesOf(write)) count += time > start ? 1U : 0U;
        }
        return count;
    }
};

TEST_P(DuringARelease, aPlanEndsTheRetryAtItsNextFan) {
    ControllerHarness harness(plainMachine(), options());
    const AccessLog log(harness);
    (void)harness.run(harness.controller().applyPlan(bothFans()));
    refuse(harness, "F0Md", 0, refused, 1s);
    refuse(harness, "F1Md", 0, refused, 1s);
    slowDown(harness, 1s);
    (void)harness.run(harness.controller().automatic());
    harness.advance(2s + arrival());
    const std::int64_t start = log.now();
    harness.published.clear();
    const auto result = harness.start(harness.controller().applyPlan(bothFans()));
    harness.advance(1s);
    EXPECT_EQ(*result, ControlResult::applied());
    EXPECT_EQ(zerosSince(log, start), 0U);
    EXPECT_EQ(harness.published.size(), 1U);  // by the plan; the retry has nothing to say any more
    liveOn(harness, 5);
    expectBothHeld(harness);
    EXPECT_EQ(harness.system.runtime.pending().find("release retry"), std::string::npos);
}

TEST_P(DuringARelease, aPlanEndsTheRetryOfTheWholeAndIsHeldInTheEnd) {
    ControllerHarness harness(plainMachine(), options());
    const AccessLog log(harness);
    (void)harness.run(harness.controller().applyPlan(bothFans()));
    refuse(harness, "Ftst", 0, refused, 1s);
    slowDown(harness, 1s);
    (void)harness.run(harness.controller().automatic());
    harness.advance(2s + arrival());
    const std::int64_t start = log.now();
    (void)harness.start(harness.controller().applyPlan(bothFans()));
    harness.advance(1s);
    EXPECT_EQ(zerosSince(log, start), 0U);
    liveOn(harness, 5);
    expectBothHeld(harness);
    EXPECT_EQ(harness.system.runtime.pending().find("release retry"), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(EverySuspension, DuringARelease,
                         testing::Combine(testing::Values(0ms, 5ms, 15ms, 25ms, 35ms, 45ms),
                                          testing::Values(0U, 1U, 2U, 3U)));

TEST_P(DuringARelease, aPlanIsHeldInTheEnd) {
    ControllerHarness harness(plainMachine(), options());
    (void)harness.run(harness.controller().applyPlan(bothFans()));
    slowDown(harness, 0s);
    const auto released = harness.start(harness.controller().automatic());
    harness.advance(arrival());
    const auto applied = harness.start(harness.controller().applyPlan(bothFans()));
    harness.advance(1s);
    EXPECT_EQ(*released, ControlResult::applied());
    EXPECT_EQ(*applied, ControlResult::applied());
    liveOn(harness, 5);
    expectBothHeld(harness);
}

/// A release that comes anywhere into the work of a plan wins: nobody watches any more.
class AnywhereInAPlan : public testing::TestWithParam<std::uint64_t> {
protected:
    [[nodiscard]] static simulation::SimulatedSystem::Options options() {
        return {.seed = GetParam()};
    }
    /// Applies a plan, releases `arrival` later, and lets things settle.
    static void releaseInto(ControllerHarness& harness, concurrency::Duration arrival) {
        const auto applied = harness.start(harness.controller().applyPlan(bothFans()));
        harness.advance(arrival);
        const auto released = harness.start(harness.controller().restoreAuto());
        harness.advance(20s);
        ASSERT_TRUE(applied->has_value());
        ASSERT_TRUE(released->has_value());
        EXPECT_EQ(**released, std::nullopt);
    }
};

TEST_P(AnywhereInAPlan, aReleaseLeavesNoFanForced) {
    for (auto arrival = 0ms; arrival <= 300ms; arrival += 5ms) {
        SCOPED_TRACE(arrival.count());
        ControllerHarness harness(plainMachine(), options());
        slowDown(harness, 0s);
        releaseInto(harness, arrival);
        expectBothAutomatic(harness);
    }
}

/// The control step of the plan still waits for the fan when the hold loop ticks.
TEST_P(AnywhereInAPlan, theCeilingEndsTheClaimOfTheStep) {
    auto machine = plainMachine();
    machine.hid = simulation::Temperatures{{"CPU", 99.0}};
    ControllerHarness harness(machine, options());
    refuse(harness, "F0Md", 1, refused, 450ms);
    refuse(harness, "F0Md", 1, simulation::SimulatedMac::busy, 3s);
    const auto applied = harness.start(harness.controller().setManual(0_fan, 3000_rpm));
    harness.advance(60s);
    EXPECT_EQ(*applied, ControlResult::rejected(134));
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
    EXPECT_THAT(*harness.state().lastError, testing::StartsWith("thermal ceiling 9"));
}

INSTANTIATE_TEST_SUITE_P(Seeds, AnywhereInAPlan, testing::Values(0U, 1U, 2U, 3U, 4U));

}  // namespace
}  // namespace airflow::control
