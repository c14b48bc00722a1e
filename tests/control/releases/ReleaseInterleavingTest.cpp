#include "AccessLog.h"

namespace airflow::control {
namespace {

using simulation::FanMode;
using simulation::Fault;

constexpr std::uint8_t refused = 0x86;
constexpr auto answerTime = 10ms;

/// Every request takes 10 ms from here on, so that a test can arrive in the middle of each.
void slowDown(ControllerBench& bench, concurrency::Duration from) {
    for (const auto operation : {Fault::Operation::write, Fault::Operation::read}) {
        bench.mac().smc().add(Fault{.from = from, .operation = operation, .latency = answerTime});
    }
}

plan::FanControlPlan bothFans() {
    return {.fans = {{.fanID = 0, .mode = plan::FanControlModePlan::fixedRPM(3000)},
                     {.fanID = 1, .mode = plan::FanControlModePlan::fixedRPM(4000)}},
            .rules = {},
            .tuning = {}};
}

/// A client that lives: a heartbeat every second.
void liveOn(ControllerBench& bench, int seconds) {
    for (int i = 0; i < seconds; ++i) {
        bench.run(bench.controller().heartbeat());
        bench.advance(1s);
    }
}

void expectBothHeld(ControllerBench& bench) {
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::forced);
    EXPECT_EQ(bench.mac().fan(1).mode, FanMode::forced);
    EXPECT_EQ(bench.mac().fan(0).target, 3000);
    EXPECT_EQ(bench.mac().fan(1).target, 4000);
    EXPECT_TRUE(bench.state().isHolding);
    EXPECT_EQ(bench.state().lastError, std::nullopt);
    EXPECT_TRUE(bench.mac().forceTest());
}

void expectBothAutomatic(ControllerBench& bench) {
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);
    EXPECT_EQ(bench.mac().fan(1).mode, FanMode::automatic);
    EXPECT_FALSE(bench.state().isHolding);
    EXPECT_FALSE(bench.mac().forceTest());
}

/// Arrivals in the middle of the first, second, third and fourth write, and behind them.
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
    ControllerBench bench(plainMachine(), options());
    const AccessLog log(bench);
    (void)bench.run(bench.controller().applyPlan(bothFans()));
    refuse(bench, "F0Md", 0, refused, 1s);
    refuse(bench, "F1Md", 0, refused, 1s);
    slowDown(bench, 1s);
    (void)bench.run(bench.controller().automatic());
    bench.advance(2s + arrival());
    const std::int64_t start = log.now();
    bench.published.clear();
    const auto result = bench.start(bench.controller().applyPlan(bothFans()));
    bench.advance(1s);
    EXPECT_EQ(*result, ControlResult::applied());
    EXPECT_EQ(zerosSince(log, start), 0U);
    EXPECT_EQ(bench.published.size(), 1U);  // by the plan; the retry has nothing to say any more
    liveOn(bench, 5);
    expectBothHeld(bench);
    EXPECT_EQ(bench.system.runtime.pending().find("release retry"), std::string::npos);
}

TEST_P(DuringARelease, aPlanEndsTheRetryOfTheWholeAndIsHeldInTheEnd) {
    ControllerBench bench(plainMachine(), options());
    const AccessLog log(bench);
    (void)bench.run(bench.controller().applyPlan(bothFans()));
    refuse(bench, "Ftst", 0, refused, 1s);
    slowDown(bench, 1s);
    (void)bench.run(bench.controller().automatic());
    bench.advance(2s + arrival());
    const std::int64_t start = log.now();
    (void)bench.start(bench.controller().applyPlan(bothFans()));
    bench.advance(1s);
    EXPECT_EQ(zerosSince(log, start), 0U);
    liveOn(bench, 5);
    expectBothHeld(bench);
    EXPECT_EQ(bench.system.runtime.pending().find("release retry"), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(EverySuspension, DuringARelease,
                         testing::Combine(testing::Values(0ms, 5ms, 15ms, 25ms, 35ms, 45ms),
                                          testing::Values(0U, 1U, 2U, 3U)));

TEST_P(DuringARelease, aPlanIsHeldInTheEnd) {
    ControllerBench bench(plainMachine(), options());
    (void)bench.run(bench.controller().applyPlan(bothFans()));
    slowDown(bench, 0s);
    const auto released = bench.start(bench.controller().automatic());
    bench.advance(arrival());
    const auto applied = bench.start(bench.controller().applyPlan(bothFans()));
    bench.advance(1s);
    EXPECT_EQ(*released, ControlResult::applied());
    EXPECT_EQ(*applied, ControlResult::applied());
    liveOn(bench, 5);
    expectBothHeld(bench);
}

/// A release that comes anywhere into the work of a plan wins: nobody watches any more.
class AnywhereInAPlan : public testing::TestWithParam<std::uint64_t> {
protected:
    [[nodiscard]] static simulation::SimulatedSystem::Options options() {
        return {.seed = GetParam()};
    }
    /// Applies a plan, releases `arrival` later, and lets things settle.
    static void releaseInto(ControllerBench& bench, concurrency::Duration arrival) {
        const auto applied = bench.start(bench.controller().applyPlan(bothFans()));
        bench.advance(arrival);
        const auto released = bench.start(bench.controller().restoreAuto());
        bench.advance(20s);
        ASSERT_TRUE(applied->has_value());
        ASSERT_TRUE(released->has_value());
        EXPECT_EQ(**released, std::nullopt);
    }
};

TEST_P(AnywhereInAPlan, aReleaseLeavesNoFanForced) {
    for (auto arrival = 0ms; arrival <= 300ms; arrival += 5ms) {
        SCOPED_TRACE(arrival.count());
        ControllerBench bench(plainMachine(), options());
        slowDown(bench, 0s);
        releaseInto(bench, arrival);
        expectBothAutomatic(bench);
    }
}

/// The control step of the plan still waits for the fan when the hold loop ticks.
TEST_P(AnywhereInAPlan, theCeilingEndsTheClaimOfTheStep) {
    auto machine = plainMachine();
    machine.hid = simulation::Temperatures{{"CPU", 99.0}};
    ControllerBench bench(machine, options());
    refuse(bench, "F0Md", 1, refused, 450ms);
    refuse(bench, "F0Md", 1, simulation::SimulatedMac::busy, 3s);
    const auto applied = bench.start(bench.controller().setManual(0, 3000));
    bench.advance(60s);
    EXPECT_EQ(*applied, ControlResult::rejected(134));
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);
    EXPECT_THAT(*bench.state().lastError, testing::StartsWith("thermal ceiling 9"));
}

INSTANTIATE_TEST_SUITE_P(Seeds, AnywhereInAPlan, testing::Values(0U, 1U, 2U, 3U, 4U));

}  // namespace
}  // namespace airflow::control
