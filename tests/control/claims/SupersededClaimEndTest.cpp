// What a superseded claim does about its fan: it gives back what the SMC may have taken, and asks
// again for what refuses to go back, unless a newer plan wants it.
#include "HoldBench.h"

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
        slowDown(bench, 5ms);
        atWrite(bench, "F0Md", 1, 1,
                [this] { released = bench.start(bench.controller().automatic()); });
        EXPECT_EQ(bench.run(bench.controller().setManual(0, 3000)), ControlResult::rejected(255));
        bench.advance(1s);
    }

    ControllerBench bench{steadyMachine(), withoutJitter};
    Answer released;
};

TEST_F(SupersededClaimEnd, givesTheFanBackWhenTheSMCTookIt) {
    supersede();
    EXPECT_THAT(bench.writes,
                ElementsAre("Ftst=1", "F0Md=1", "Ftst=1", "F0Md=0", "F0Md=0", "Ftst=0"));
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);
}

/// A call that failed may have reached the SMC all the same.
TEST_F(SupersededClaimEnd, givesTheFanBackWhenTheCallFailed) {
    bench.mac().smc().add(slow(failure("F0Md", 1)));
    supersede();
    EXPECT_THAT(bench.writes,
                ElementsAre("Ftst=1", "F0Md=1 (failed)", "Ftst=1", "F0Md=0", "F0Md=0", "Ftst=0"));
}

TEST_F(SupersededClaimEnd, leavesAFanToTheReleaseThatTheSMCRefused) {
    bench.mac().smc().add(slow(refusal("F0Md", 1)));
    supersede();
    EXPECT_THAT(bench.writes, ElementsAre("Ftst=1", "F0Md=1 (0x86)", "Ftst=1", "F0Md=0", "Ftst=0"));
}

TEST_F(SupersededClaimEnd, leavesAFanToTheReleaseThatTheSMCIsBusyWith) {
    bench.mac().smc().add(slow(refusal("F0Md", 1, 0x82)));
    supersede();
    EXPECT_THAT(bench.writes, ElementsAre("Ftst=1", "F0Md=1 (0x82)", "Ftst=1", "F0Md=0", "Ftst=0"));
}

TEST_F(SupersededClaimEnd, doesNotRaiseForceTestAnyMore) {
    bench.mac().smc().add(refusal("F0Md", 1, 0x82));
    atWrite(bench, "F0Md", 1, 20,
            [this] { released = bench.start(bench.controller().automatic()); });
    EXPECT_EQ(bench.run(bench.controller().setManual(0, 3000)), ControlResult::rejected(255));
    bench.advance(1s);
    EXPECT_EQ(*released, ControlResult::applied());
    EXPECT_FALSE(bench.mac().forceTest());
    EXPECT_EQ(bench.writes.back(), "Ftst=0");
}

TEST_F(SupersededClaimEnd, stopsWhenItWasRaisingForceTest) {
    bench.mac().smc().add(slow(refusal("F0Md", 1, 0x86, 0s, 12ms)));
    slowDown(bench, 5ms);
    atWrite(bench, "Ftst", 1, 2,
            [this] { released = bench.start(bench.controller().automatic()); });
    EXPECT_EQ(bench.run(bench.controller().setManual(0, 3000)), ControlResult::rejected(255));
    bench.advance(1s);
    EXPECT_THAT(bench.writes, testing::Not(testing::Contains("F0Md=1")));
    EXPECT_FALSE(bench.mac().forceTest());
}

TEST_F(SupersededClaimEnd, hasAFanThatRefusesToGoBackTriedAgain) {
    bench.mac().smc().add(refusal("F0Md", 0, 0x86, 0s, 3s));
    supersede();
    EXPECT_EQ(*released,
              ControlResult::failed("failed to restore Auto: F0Md=0 rejected (SMC 0x86)"));
    EXPECT_EQ(told(bench.published).back(),
              "holding: failed to restore Auto: F0Md=0 rejected (SMC 0x86)");
    bench.advance(4s);
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);
    EXPECT_EQ(told(bench.published).back(), "not holding");
}

TEST_F(SupersededClaimEnd, ofAFanThatWasHeldBesideOthersGivesTheOthersBackToo) {
    (void)bench.run(bench.controller().setManual(1, 3000));
    forget(bench);
    supersede();
    EXPECT_EQ(*released, ControlResult::applied());
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);
    EXPECT_EQ(bench.mac().fan(1).mode, FanMode::automatic);
    EXPECT_THAT(bench.state().targets, IsEmpty());
}

/// The release asks for fan 0 first. The older claim's own request for fan 1 is refused, but that
/// fan is a newer plan's by then: no retry takes it away from that plan.
TEST_F(SupersededClaimEnd, hasNoFanTriedAgainThatANewerPlanManages) {
    (void)bench.run(bench.controller().setManual(0, 3000));
    bench.mac().smc().add(refusal("F1Md", 0, 0x86, 0s, 1s));
    slowDown(bench, 5ms);
    Answer newer;
    atWrite(bench, "F1Md", 1, 1, [&] {
        released = bench.start(bench.controller().automatic());
        newer = bench.start(bench.controller().applyPlan(planOf({{0, rpm(4000)}, {1, rpm(5000)}})));
    });
    EXPECT_EQ(bench.run(bench.controller().setManual(1, 3000)), ControlResult::rejected(255));
    bench.advance(1500ms);
    EXPECT_EQ(*newer, ControlResult::applied());
    forget(bench);
    bench.advance(10s);
    EXPECT_THAT(bench.writes, testing::Not(testing::Contains("F1Md=0")));
    EXPECT_EQ(bench.mac().fan(1).mode, FanMode::forced);
    EXPECT_EQ(bench.mac().fan(1).target, 5000);
    EXPECT_EQ(bench.system.runtime.pending().find("release retry"), std::string::npos);
}

}  // namespace
}  // namespace airflow::control
