// Fans that the guard has given back: they are not held any more, and that is told.
#include "HoldHarness.h"

namespace airflow::control {
namespace {

using testing::Key;

class FansOfTheGuard : public testing::Test {
protected:
    FansOfTheGuard() {
        (void)harness.run(harness.controller().applyPlan(planOf({{0, rpm(3000)}, {1, rpm(4000)}})));
        harness.settle();
        forget(harness);
    }
    void giveBack(std::int64_t fan) {
        const std::uint64_t before = harness.controller().lastRequest();
        harness.run(harness.controller().noteGivenBack({.fan = fan, .number = before}));
    }

    ControllerHarness harness{steadyMachine(), withoutJitter};
};

TEST_F(FansOfTheGuard, arePublishedAsNotHeldAtOnce) {
    giveBack(0);
    harness.settle();
    ASSERT_THAT(told(harness.published), ElementsAre("holding"));
    EXPECT_THAT(harness.published.back().perFanMode, ElementsAre(Key(1)));
    EXPECT_THAT(harness.published.back().targets, ElementsAre(Key(1)));
}

TEST_F(FansOfTheGuard, endTheHoldWithTheLastOfThem) {
    giveBack(0);
    giveBack(1);
    harness.settle();
    EXPECT_THAT(told(harness.published), ElementsAre("holding", "not holding"));
    EXPECT_EQ(harness.published.back(), ControlState::idle());
}

TEST_F(FansOfTheGuard, areNoNewsWhereTheyWereNotHeld) {
    giveBack(1);
    harness.settle();
    forget(harness);
    giveBack(1);
    harness.settle();
    EXPECT_THAT(harness.published, IsEmpty());
}

TEST_F(FansOfTheGuard, stayHeldWhenALaterRequestForcedThemAgain) {
    const std::uint64_t before = harness.controller().lastRequest();
    harness.mac().setMode(0, FanMode::automatic);
    harness.advance(2s);  // the hold loop claims the fan again
    forget(harness);
    harness.run(harness.controller().noteGivenBack({.fan = 0, .number = before}));
    harness.settle();
    EXPECT_THAT(harness.published, IsEmpty());
    EXPECT_THAT(harness.state().perFanMode, ElementsAre(Key(0), Key(1)));
}

/// The SMC takes the guard's 0 and refuses the controller's own, a moment later.
TEST_F(FansOfTheGuard, areNotPublishedAsHeldWhereTheSMCRefusesTheControllerAfterwards) {
    const std::uint64_t before = harness.controller().lastRequest();
    harness.mac().setMode(0, FanMode::automatic);
    harness.mac().smc().add(Fault{.key = "F0Md", .value = 0, .result = 0x86});
    harness.run(
        harness.controller().releaseForSafety(ChecksOverdue{}, {{.fan = 0, .number = before}}));
    EXPECT_THAT(harness.state().perFanMode, IsEmpty());
    EXPECT_FALSE(harness.state().isHolding);
    EXPECT_EQ(harness.state().lastError, "failed to restore Auto: F0Md=0 rejected (SMC 0x86)");
}

TEST_F(FansOfTheGuard, areClaimedAgainByThePlanThatWantsThem) {
    harness.mac().setMode(0, FanMode::automatic);
    giveBack(0);
    harness.advance(2s);
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::forced);
    EXPECT_THAT(harness.state().perFanMode, ElementsAre(Key(0), Key(1)));
}

}  // namespace
}  // namespace airflow::control
