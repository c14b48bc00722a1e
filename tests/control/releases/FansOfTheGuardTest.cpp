// Fans that the guard has given back: they are not held any more, and that is told.
#include "HoldBench.h"

namespace airflow::control {
namespace {

using testing::Key;

class FansOfTheGuard : public testing::Test {
protected:
    FansOfTheGuard() {
        (void)bench.run(bench.controller().applyPlan(planOf({{0, rpm(3000)}, {1, rpm(4000)}})));
        bench.settle();
        forget(bench);
    }
    void giveBack(std::int64_t fan) {
        const std::uint64_t before = bench.controller().lastRequest();
        bench.run(bench.controller().noteGivenBack({.fan = fan, .number = before}));
    }

    ControllerBench bench{steadyMachine(), withoutJitter};
};

TEST_F(FansOfTheGuard, areToldAsNotHeldAtOnce) {
    giveBack(0);
    bench.settle();
    ASSERT_THAT(told(bench.published), ElementsAre("holding"));
    EXPECT_THAT(bench.published.back().perFanMode, ElementsAre(Key(1)));
    EXPECT_THAT(bench.published.back().targets, ElementsAre(Key(1)));
}

TEST_F(FansOfTheGuard, endTheHoldWithTheLastOfThem) {
    giveBack(0);
    giveBack(1);
    bench.settle();
    EXPECT_THAT(told(bench.published), ElementsAre("holding", "not holding"));
    EXPECT_EQ(bench.published.back(), ControlState::idle());
}

TEST_F(FansOfTheGuard, areNoNewsWhereTheyWereNotHeld) {
    giveBack(1);
    bench.settle();
    forget(bench);
    giveBack(1);
    bench.settle();
    EXPECT_THAT(bench.published, IsEmpty());
}

TEST_F(FansOfTheGuard, stayHeldWhenALaterRequestForcedThemAgain) {
    const std::uint64_t before = bench.controller().lastRequest();
    bench.mac().setMode(0, FanMode::automatic);
    bench.advance(2s);  // the hold loop claims the fan again
    forget(bench);
    bench.run(bench.controller().noteGivenBack({.fan = 0, .number = before}));
    bench.settle();
    EXPECT_THAT(bench.published, IsEmpty());
    EXPECT_THAT(bench.state().perFanMode, ElementsAre(Key(0), Key(1)));
}

/// The SMC takes the guard's 0 and refuses the controller's own, a moment later.
TEST_F(FansOfTheGuard, areNotToldAsHeldWhereTheSMCRefusesTheControllerAfterwards) {
    const std::uint64_t before = bench.controller().lastRequest();
    bench.mac().setMode(0, FanMode::automatic);
    bench.mac().smc().add(Fault{.key = "F0Md", .value = 0, .result = 0x86});
    bench.run(bench.controller().releaseForSafety(ChecksOverdue{}, {{.fan = 0, .number = before}}));
    EXPECT_THAT(bench.state().perFanMode, IsEmpty());
    EXPECT_FALSE(bench.state().isHolding);
    EXPECT_EQ(bench.state().lastError, "failed to restore Auto: F0Md=0 rejected (SMC 0x86)");
}

TEST_F(FansOfTheGuard, areClaimedAgainByThePlanThatWantsThem) {
    bench.mac().setMode(0, FanMode::automatic);
    giveBack(0);
    bench.advance(2s);
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::forced);
    EXPECT_THAT(bench.state().perFanMode, ElementsAre(Key(0), Key(1)));
}

}  // namespace
}  // namespace airflow::control
