// What a superseded claim does about its fan: it gives back what the SMC may have taken, and asks
// again for what refuses to go back, unless a newer plan wants it.
#include "HoldHarness.h"

namespace airflow::control {
namespace {

using Answer = std::shared_ptr<std::optional<ControlResult>>;

/// The same, with an answer that takes as long as the others.
Fault slow(Fault fault) {
    fault.latency = 5ms;
    return fault;
}

class SupersededClaimEnd : public testing::Test {
protected:
    /// Automatic control is asked for while the SMC has the first claiming write in hand.
    void supersede() {
        slowDown(harness, 5ms);
        atWrite(harness, "F0Md", 1, 1,
                [this] { released = harness.start(harness.controller().automatic()); });
        EXPECT_EQ(harness.run(harness.controller().setManual(0_fan, 3000_rpm)),
                  ControlResult::rejected(255));
        harness.advance(1s);
    }

    ControllerHarness harness{steadyMachine(), withoutJitter};
    Answer released;
};

TEST_F(SupersededClaimEnd, givesTheFanBackWhenTheSMCTookIt) {
    supersede();
    EXPECT_THAT(harness.writes,
                ElementsAre("Ftst=1", "F0Md=1", "Ftst=1", "F0Md=0", "F0Md=0", "Ftst=0"));
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
}

/// A call that failed may have reached the SMC all the same.
TEST_F(SupersededClaimEnd, givesTheFanBackWhenTheCallFailed) {
    harness.mac().smc().add(slow(failure("F0Md", 1)));
    supersede();
    EXPECT_THAT(harness.writes,
                ElementsAre("Ftst=1", "F0Md=1 (failed)", "Ftst=1", "F0Md=0", "F0Md=0", "Ftst=0"));
}

TEST_F(SupersededClaimEnd, leavesAFanToTheReleaseThatTheSMCRefused) {
    harness.mac().smc().add(slow(refusal("F0Md", 1)));
    supersede();
    EXPECT_THAT(harness.writes,
                ElementsAre("Ftst=1", "F0Md=1 (0x86)", "Ftst=1", "F0Md=0", "Ftst=0"));
}

TEST_F(SupersededClaimEnd, leavesAFanToTheReleaseThatTheSMCIsBusyWith) {
    harness.mac().smc().add(slow(refusal("F0Md", 1, 0x82)));
    supersede();
    EXPECT_THAT(harness.writes,
                ElementsAre("Ftst=1", "F0Md=1 (0x82)", "Ftst=1", "F0Md=0", "Ftst=0"));
}

TEST_F(SupersededClaimEnd, doesNotRaiseForceTestAnyMore) {
    harness.mac().smc().add(refusal("F0Md", 1, 0x82));
    atWrite(harness, "F0Md", 1, 20,
            [this] { released = harness.start(harness.controller().automatic()); });
    EXPECT_EQ(harness.run(harness.controller().setManual(0_fan, 3000_rpm)),
              ControlResult::rejected(255));
    harness.advance(1s);
    EXPECT_EQ(*released, ControlResult::applied());
    EXPECT_FALSE(harness.mac().forceTest());
    EXPECT_EQ(harness.writes.back(), "Ftst=0");
}

TEST_F(SupersededClaimEnd, stopsWhenItWasRaisingForceTest) {
    harness.mac().smc().add(slow(refusal("F0Md", 1, 0x86, 0s, 12ms)));
    slowDown(harness, 5ms);
    atWrite(harness, "Ftst", 1, 2,
            [this] { released = harness.start(harness.controller().automatic()); });
    EXPECT_EQ(harness.run(harness.controller().setManual(0_fan, 3000_rpm)),
              ControlResult::rejected(255));
    harness.advance(1s);
    EXPECT_THAT(harness.writes, testing::Not(testing::Contains("F0Md=1")));
    EXPECT_FALSE(harness.mac().forceTest());
}

TEST_F(SupersededClaimEnd, hasAFanThatRefusesToGoBackTriedAgain) {
    harness.mac().smc().add(refusal("F0Md", 0, 0x86, 0s, 3s));
    supersede();
    EXPECT_EQ(*released,
              ControlResult::failed("failed to restore Auto: F0Md=0 rejected (SMC 0x86)"));
    EXPECT_EQ(told(harness.published).back(),
              "holding: failed to restore Auto: F0Md=0 rejected (SMC 0x86)");
    harness.advance(4s);
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
    EXPECT_EQ(told(harness.published).back(), "not holding");
}

TEST_F(SupersededClaimEnd, ofAFanThatWasHeldBesideOthersGivesTheOthersBackToo) {
    (void)harness.run(harness.controller().setManual(1_fan, 3000_rpm));
    forget(harness);
    supersede();
    EXPECT_EQ(*released, ControlResult::applied());
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
    EXPECT_EQ(harness.mac().fan(1).mode, FanMode::automatic);
    EXPECT_THAT(harness.state().targets, IsEmpty());
}

/// The release asks for fan 0 first. The older claim's own request for fan 1 is refused, but that
/// fan is a newer plan's by then: no retry takes it away from that plan.
TEST_F(SupersededClaimEnd, hasNoFanTriedAgainThatANewerPlanManages) {
    (void)harness.run(harness.controller().setManual(0_fan, 3000_rpm));
    harness.mac().smc().add(refusal("F1Md", 0, 0x86, 0s, 1s));
    slowDown(harness, 5ms);
    Answer newer;
    atWrite(harness, "F1Md", 1, 1, [&] {
        released = harness.start(harness.controller().automatic());
        newer =
            harness.start(harness.controller().applyPlan(planOf({{0, rpm(4000)}, {1, rpm(5000)}})));
    });
    EXPECT_EQ(harness.run(harness.controller().setManual(1_fan, 3000_rpm)),
              ControlResult::rejected(255));
    harness.advance(1500ms);
    EXPECT_EQ(*newer, ControlResult::applied());
    forget(harness);
    harness.advance(10s);
    EXPECT_THAT(harness.writes, testing::Not(testing::Contains("F1Md=0")));
    EXPECT_EQ(harness.mac().fan(1).mode, FanMode::forced);
    EXPECT_EQ(harness.mac().fan(1).target, 5000);
    EXPECT_EQ(harness.system.runtime.pending().find("release retry"), std::string::npos);
}

}  // namespace
}  // namespace airflow::control
