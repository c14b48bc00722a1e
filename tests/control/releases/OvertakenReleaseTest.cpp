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
    fans.forced(fans.beginForcing(0));
    fans.handBack(0);
    const auto release = fans.beginRelease(0);
    const auto step = fans.beginRelease(0);
    fans.released(release);
    fans.forced(step);
    EXPECT_THAT(fans.claimed(), ElementsAre(0));
    EXPECT_THAT(fans.pending(), ElementsAre(0));
}

/// A client sends fan 0 to Auto, and wants fan 1 held while the SMC has the release's request in
/// hand.
class ReleaseOvertakenByAPlan : public testing::Test {
protected:
    void overtakeAt(const std::string& key) {
        ASSERT_EQ(bench.run(bench.controller().setManual(0, 3000)), ControlResult::applied());
        slowDown(bench, 50ms);
        forget(bench);
        atWrite(bench, key, 0, 1,
                [this] { (void)bench.start(bench.controller().setManual(1, 3000)); });
        (void)bench.run(bench.controller().automatic());
        bench.advance(2s);
        EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);
        EXPECT_EQ(bench.mac().fan(1).mode, FanMode::forced);
    }
    [[nodiscard]] bool isRetrying() const {
        return bench.system.runtime.pending().find("release retry") != std::string::npos;
    }

    ControllerBench bench{steadyMachine(), withoutJitter};
};

TEST_F(ReleaseOvertakenByAPlan, leavesForceTestRaised) {
    overtakeAt("F0Md");
    EXPECT_THAT(bench.writes, Contains("F1Md=1"));
    EXPECT_THAT(bench.writes, Not(Contains("Ftst=0")));
    EXPECT_TRUE(bench.mac().forceTest());
}

TEST_F(ReleaseOvertakenByAPlan, leavesItToThePlanToTellWhatIsHeld) {
    overtakeAt("F0Md");
    EXPECT_THAT(told(bench.published), testing::AllOf(Not(IsEmpty()), testing::Each("holding")));
    EXPECT_FALSE(isRetrying());
}

/// The plan lowers it itself, when it holds nothing any more.
TEST_F(ReleaseOvertakenByAPlan, tellsThatForceTestStaysAndDoesNotTryAgain) {
    auto refused = refusal("Ftst", 0);
    refused.latency = 50ms;
    bench.mac().smc().add(refused);
    overtakeAt("Ftst");
    const auto texts = told(bench.published);
    ASSERT_FALSE(texts.empty());
    EXPECT_EQ(texts.front(), "not holding: failed to restore Auto: Ftst=0 rejected (SMC 0x86)");
    EXPECT_EQ(texts.back(), "holding");
    EXPECT_FALSE(isRetrying());
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
