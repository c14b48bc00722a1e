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

    ControllerBench bench{steadyMachine(), withoutJitter};
};

TEST_F(FansOfTheGuard, areToldAsNotHeldAtOnce) {
    bench.run(bench.controller().noteGivenBack(0));
    bench.settle();
    ASSERT_THAT(told(bench.published), ElementsAre("holding"));
    EXPECT_THAT(bench.published.back().perFanMode, ElementsAre(Key(1)));
    EXPECT_THAT(bench.published.back().targets, ElementsAre(Key(1)));
}

TEST_F(FansOfTheGuard, endTheHoldWithTheLastOfThem) {
    bench.run(bench.controller().noteGivenBack(0));
    bench.run(bench.controller().noteGivenBack(1));
    bench.settle();
    EXPECT_THAT(told(bench.published), ElementsAre("holding", "not holding"));
    EXPECT_EQ(bench.published.back(), ControlState::idle());
}

TEST_F(FansOfTheGuard, areNoNewsWhereTheyWereNotHeld) {
    bench.run(bench.controller().noteGivenBack(1));
    bench.settle();
    forget(bench);
    bench.run(bench.controller().noteGivenBack(1));
    bench.settle();
    EXPECT_THAT(bench.published, IsEmpty());
}

TEST_F(FansOfTheGuard, areClaimedAgainByThePlanThatWantsThem) {
    bench.mac().setMode(0, FanMode::automatic);
    bench.run(bench.controller().noteGivenBack(0));
    bench.advance(2s);
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::forced);
    EXPECT_THAT(bench.state().perFanMode, ElementsAre(Key(0), Key(1)));
}

}  // namespace
}  // namespace airflow::control
