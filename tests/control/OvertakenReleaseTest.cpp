// Releases during which something newer comes: a request for the same fan, a plan, a fan that was
// unknown.
#include <gmock/gmock.h>

#include "HoldBench.h"

namespace airflow::control {
namespace {

using testing::Contains;
using testing::Not;

TEST(OvertakenRelease, leavesAFanToBeGivenBackThatWasForcedBehindIt) {
    ControlledFans fans;
    fans.forced(0, fans.begin(0));
    fans.handBack(0);
    const auto release = fans.begin(0);
    const auto step = fans.begin(0);
    fans.released(0, release);
    fans.forced(0, step);
    EXPECT_THAT(fans.claimed(), ElementsAre(0));
    EXPECT_THAT(fans.pending(), ElementsAre(0));
}

TEST(OvertakenRelease, leavesForceTestRaisedForThePlanThatComesMeanwhile) {
    ControllerBench bench{steadyMachine(), withoutJitter};
    ASSERT_EQ(bench.run(bench.controller().setManual(0, 3000)), ControlResult::applied());
    slowDown(bench, 50ms);
    forget(bench);
    (void)bench.start(bench.controller().automatic());
    bench.advance(60ms);
    (void)bench.start(bench.controller().setManual(1, 3000));
    bench.advance(3s);
    EXPECT_THAT(bench.writes, Contains("F0Md=0"));
    EXPECT_THAT(bench.writes, Contains("F1Md=1"));
    EXPECT_THAT(bench.writes, Not(Contains("Ftst=0")));
}

/// An earlier process left it forced, and its mode key is found when the release has begun.
TEST(OvertakenRelease, givesAFanBackThatIsFoundMeanwhile) {
    ControllerBench bench{*simulation::machinePreset("lower-case"), withoutJitter};
    ASSERT_EQ(bench.run(bench.controller().setManual(0, 3000)), ControlResult::applied());
    bench.mac().setMode(1, FanMode::forced);
    slowDown(bench, 50ms);
    bench.mac().smc().add(Fault{.operation = Fault::Operation::information, .latency = 50ms});
    forget(bench);
    (void)bench.start(bench.controller().setManual(1, 3000));
    bench.advance(110ms);
    (void)bench.start(bench.controller().automatic());
    bench.advance(1s);
    EXPECT_THAT(bench.writes, Contains("F1md=0"));
    EXPECT_EQ(bench.mac().fan(1).mode, FanMode::automatic);
}

}  // namespace
}  // namespace airflow::control
