// Releases during which something newer comes: a request for the same fan, a plan, a fan that was
// unknown.
#include <gmock/gmock.h>

#include "HoldHarness.h"

namespace airflow::control {
namespace {

using testing::Contains;
using testing::Not;

TEST(SupersededRelease, leavesAFanToBeGivenBackThatWasForcedAfterIt) {
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
class ReleaseSupersededByAPlan : public testing::Test {
protected:
    void supersedeAt(const std::string& key) {
        ASSERT_EQ(harness.run(harness.controller().setManual(0_fan, 3000_rpm)),
                  ControlResult::applied());
        slowDown(harness, 50ms);
        forget(harness);
        atWrite(harness, key, 0, 1,
                [this] { (void)harness.start(harness.controller().setManual(1_fan, 3000_rpm)); });
        (void)harness.run(harness.controller().automatic());
        harness.advance(2s);
        EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
        EXPECT_EQ(harness.mac().fan(1).mode, FanMode::forced);
    }
    [[nodiscard]] bool isRetrying() const {
        return harness.system.runtime.pending().find("release retry") != std::string::npos;
    }

    ControllerHarness harness{steadyMachine(), withoutJitter};
};

TEST_F(ReleaseSupersededByAPlan, leavesForceTestRaised) {
    supersedeAt("F0Md");
    EXPECT_THAT(harness.writes, Contains("F1Md=1"));
    EXPECT_THAT(harness.writes, Not(Contains("Ftst=0")));
    EXPECT_TRUE(harness.mac().forceTest());
}

TEST_F(ReleaseSupersededByAPlan, leavesItToThePlanToPublishWhatIsHeld) {
    supersedeAt("F0Md");
    EXPECT_THAT(told(harness.published), testing::AllOf(Not(IsEmpty()), testing::Each("holding")));
    EXPECT_FALSE(isRetrying());
}

/// The plan lowers it itself, when it holds nothing any more.
TEST_F(ReleaseSupersededByAPlan, publishesThatForceTestStaysAndDoesNotTryAgain) {
    auto refused = refusal("Ftst", 0);
    refused.latency = 50ms;
    harness.mac().smc().add(refused);
    supersedeAt("Ftst");
    const auto texts = told(harness.published);
    ASSERT_FALSE(texts.empty());
    EXPECT_EQ(texts.front(), "not holding: failed to restore Auto: Ftst=0 rejected (SMC 0x86)");
    EXPECT_EQ(texts.back(), "holding");
    EXPECT_FALSE(isRetrying());
}

/// An earlier process left it forced, and its mode key is found when the release has begun.
TEST(SupersededRelease, givesAFanBackThatIsFoundMeanwhile) {
    ControllerHarness harness{*simulation::machinePreset("lower-case"), withoutJitter};
    ASSERT_EQ(harness.run(harness.controller().setManual(0_fan, 3000_rpm)),
              ControlResult::applied());
    harness.mac().setMode(1, FanMode::forced);
    slowDown(harness, 50ms);
    harness.mac().smc().add(Fault{.operation = Fault::Operation::information, .latency = 50ms});
    forget(harness);
    (void)harness.start(harness.controller().setManual(1_fan, 3000_rpm));
    harness.advance(110ms);
    (void)harness.start(harness.controller().automatic());
    harness.advance(1s);
    EXPECT_THAT(harness.writes, Contains("F1md=0"));
    EXPECT_EQ(harness.mac().fan(1).mode, FanMode::automatic);
}

}  // namespace
}  // namespace airflow::control
