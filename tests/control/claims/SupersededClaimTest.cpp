// Claims that a release superseded: they stop before their next write, and a fan that the SMC took
// meanwhile goes back at once.
#include "HoldBench.h"

namespace airflow::control {
namespace {

using Answer = std::shared_ptr<std::optional<ControlResult>>;

void advanceTo(ControllerBench& bench, concurrency::Duration time) {
    bench.advance(time - bench.system.elapsed());
}

/// Fan 0 is refused for 1.2 s, which ends the claims of a plan that is applied at the start, and
/// is busy from then on, up to 3 s: the claim of the first tick takes from about 2.1 s to 3.1 s.
void letTheFirstTickClaim(ControllerBench& bench) {
    bench.mac().smc().add(refusal("F0Md", 1, 0x86, 0s, 1200ms));
    bench.mac().smc().add(refusal("F0Md", 1, 0x82, 1200ms, 3s));
    EXPECT_EQ(bench.run(bench.controller().setManual(0, 3000)), ControlResult::rejected(134));
    advanceTo(bench, 2500ms);
    EXPECT_EQ(bench.writes.back(), "F0Md=1 (0x82)");
    forget(bench);
}

/// The fan is automatic, and heat brings nobody back to it, since nobody needs to watch it.
void expectLeftAlone(ControllerBench& bench) {
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);
    EXPECT_FALSE(bench.state().isHolding);
    forget(bench);
    bench.mac().setHIDTemperature(steadyLabel, 99);
    bench.advance(3600s);
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);
    EXPECT_THAT(bench.reads, IsEmpty());
    EXPECT_THAT(bench.writes, IsEmpty());
    EXPECT_THAT(bench.published, IsEmpty());
}

TEST(SupersededClaim, ofTheLoopStopsBeforeItsNextWriteWhenAutomaticComes) {
    ControllerBench bench(steadyMachine(1), withoutJitter);
    letTheFirstTickClaim(bench);
    EXPECT_EQ(bench.run(bench.controller().automatic()), ControlResult::applied());
    bench.advance(1s);
    EXPECT_THAT(bench.writes, ElementsAre("Ftst=1", "F0Md=0", "Ftst=0"));
    EXPECT_THAT(told(bench.published), ElementsAre("not holding"));
    expectLeftAlone(bench);
}

TEST(SupersededClaim, ofTheLoopStopsBeforeItsNextWriteWhenARestoreComes) {
    ControllerBench bench(steadyMachine(1), withoutJitter);
    letTheFirstTickClaim(bench);
    EXPECT_EQ(bench.run(bench.controller().restoreAuto()), std::nullopt);
    bench.advance(1s);
    EXPECT_THAT(bench.writes, ElementsAre("Ftst=1", "F0Md=0", "Ftst=0"));
    EXPECT_THAT(told(bench.published), ElementsAre("not holding"));
    expectLeftAlone(bench);
}

TEST(SupersededClaim, ofTheLoopStopsBeforeItsNextWriteWhenAPlanThatManagesNothingComes) {
    ControllerBench bench(steadyMachine(1), withoutJitter);
    letTheFirstTickClaim(bench);
    EXPECT_EQ(bench.run(bench.controller().applyPlan({})), ControlResult::applied());
    bench.advance(1s);
    EXPECT_THAT(bench.writes, ElementsAre("Ftst=1", "Ftst=1", "F0Md=0", "Ftst=0"));
    EXPECT_THAT(told(bench.published), ElementsAre("not holding"));
    expectLeftAlone(bench);
}

/// The SMC takes the fan at 3 s. The release knows of the fan and asks for it, too.
TEST(SupersededClaim, ofTheLoopGivesItsFanBackThatTheSMCTakesAsAutomaticComes) {
    ControllerBench bench(steadyMachine(1), withoutJitter);
    letTheFirstTickClaim(bench);
    advanceTo(bench, 3s);
    forget(bench);
    slowDown(bench, 5ms);
    Answer released;
    atWrite(bench, "F0Md", 1, 1, [&] { released = bench.start(bench.controller().automatic()); });
    bench.advance(1s);
    EXPECT_EQ(*released, ControlResult::applied());
    EXPECT_THAT(bench.writes, ElementsAre("F0Md=1", "Ftst=1", "F0Md=0", "F0Md=0", "Ftst=0"));
    EXPECT_THAT(told(bench.published), ElementsAre("not holding"));
    expectLeftAlone(bench);
}

/// The claim of the step of a plan, from 11 s on; the SMC would take the fan at 15 s.
TEST(SupersededClaim, ofAPlansOwnStepLeavesItsFanAutomaticWhateverTheHeat) {
    ControllerBench bench(steadyMachine(1), withoutJitter);
    bench.mac().smc().add(refusal("F0Md", 1, 0x82, 0s, 15s));
    bench.advance(1s);
    const Answer plan = bench.start(bench.controller().setManual(0, 3000));
    for (int second = 2; second <= 13; ++second) {
        advanceTo(bench, concurrency::Duration(1s) * second);
        bench.run(bench.controller().heartbeat());
    }
    EXPECT_EQ(bench.run(bench.controller().automatic()), ControlResult::applied());
    advanceTo(bench, 20s);
    EXPECT_EQ(*plan, ControlResult::timedOut());
    EXPECT_EQ(told(bench.published).back(), "not holding");
    expectLeftAlone(bench);
}

TEST(SupersededClaim, ofAPlansOwnStepLeavesItsFanAutomaticWhenTheClientIsGone) {
    ControllerBench bench(steadyMachine(1), withoutJitter);
    bench.mac().smc().add(refusal("F0Md", 1, 0x82, 0s, 15s));
    const Answer plan = bench.start(bench.controller().setManual(0, 3000));
    bench.advance(13s);
    EXPECT_EQ(bench.run(bench.controller().restoreAuto()), std::nullopt);
    bench.advance(7s);
    EXPECT_EQ(*plan, ControlResult::timedOut());
    expectLeftAlone(bench);
}

/// The step of a plan claims again what the plan itself could not claim, when the loop finds heat.
TEST(SupersededClaim, ofAPlansOwnStepStopsWhenTheLoopReleasesForHeat) {
    ControllerBench bench(steadyMachine(2), withoutJitter);
    bench.mac().smc().add(refusal("F0Md", 1, 0x86, 0s, 450ms));
    bench.mac().smc().add(refusal("F0Md", 1, 0x82, 450ms, 5s));
    const Answer plan =
        bench.start(bench.controller().applyPlan(planOf({{0, rpm(6000)}, {1, rpm(6000)}})));
    bench.mac().setHIDTemperature(steadyLabel, 97);
    bench.advance(10s);
    EXPECT_EQ(*plan, ControlResult::rejected(134));
    EXPECT_THAT(told(bench.published),
                ElementsAre("not holding",
                            "not holding: thermal ceiling 97°C exceeded — released to Auto"));
    EXPECT_EQ(bench.mac().fan(1).mode, FanMode::automatic);
    expectLeftAlone(bench);
}

/// Two control steps at once, here a plan's and its loop's.
TEST(SupersededClaim, ofEachOfTwoStepsAtOnceStops) {
    ControllerBench bench(steadyMachine(2), withoutJitter);
    bench.mac().smc().add(refusal("F0Md", 1, 0x86, 0s, 2600ms));
    bench.mac().smc().add(refusal("F1Md", 1, 0x86, 0s, 1s));
    bench.mac().smc().add(refusal("F1Md", 1, 0x82, 1s, 2600ms));
    const Answer plan =
        bench.start(bench.controller().applyPlan(planOf({{0, rpm(3000)}, {1, rpm(3000)}})));
    bench.advance(2500ms);
    forget(bench);
    EXPECT_EQ(bench.run(bench.controller().automatic()), ControlResult::applied());
    bench.advance(1s);
    EXPECT_EQ(*plan, ControlResult::rejected(134));
    EXPECT_THAT(bench.writes, ElementsAre("Ftst=1", "F0Md=0", "F1Md=0", "Ftst=0"));
    EXPECT_EQ(bench.mac().fan(1).mode, FanMode::automatic);
    expectLeftAlone(bench);
}

TEST(SupersededClaim, ofAPlanStopsBeforeItsNextWriteAndIsAnswered255) {
    ControllerBench bench(steadyMachine(1), withoutJitter);
    bench.mac().smc().add(refusal("F0Md", 1, 0x82, 0s, 3s));
    const Answer plan = bench.start(bench.controller().setManual(0, 3000));
    bench.advance(1s);
    forget(bench);
    EXPECT_EQ(bench.run(bench.controller().restoreAuto()), std::nullopt);
    bench.advance(100ms);
    EXPECT_EQ(*plan, ControlResult::rejected(255));
    EXPECT_THAT(bench.writes, ElementsAre("Ftst=1", "F0Md=0", "Ftst=0"));
    EXPECT_THAT(told(bench.published), ElementsAre("not holding"));
    expectLeftAlone(bench);
}

TEST(SupersededClaim, ofAPlanIsAnswered255AfterASafetyReleaseToo) {
    ControllerBench bench(steadyMachine(), withoutJitter);
    (void)bench.run(bench.controller().setManual(1, 3000));
    bench.mac().smc().add(refusal("F0Md", 1, 0x82, 0s, 5s));
    bench.mac().setHIDTemperature(steadyLabel, 97);
    const Answer plan = bench.start(bench.controller().setManual(0, 3000));
    bench.advance(2s);
    EXPECT_EQ(*plan, ControlResult::rejected(255));
    EXPECT_EQ(told(bench.published).back(),
              "not holding: thermal ceiling 97°C exceeded — released to Auto");
    EXPECT_EQ(bench.mac().fan(1).mode, FanMode::automatic);
    expectLeftAlone(bench);
}

TEST(SupersededClaim, ofAPlansFirstFanKeepsThePlanFromItsSecond) {
    ControllerBench bench(steadyMachine(), withoutJitter);
    slowDown(bench, 5ms);
    Answer released;
    atWrite(bench, "F0Md", 1, 1, [&] { released = bench.start(bench.controller().automatic()); });
    EXPECT_EQ(bench.run(bench.controller().applyPlan(planOf({{0, rpm(3000)}, {1, rpm(4000)}}))),
              ControlResult::rejected(255));
    bench.advance(1s);
    EXPECT_EQ(*released, ControlResult::applied());
    EXPECT_THAT(bench.writes,
                ElementsAre("Ftst=1", "F0Md=1", "Ftst=1", "F0Md=0", "F0Md=0", "Ftst=0"));
    EXPECT_THAT(told(bench.published), ElementsAre("not holding"));
    EXPECT_THAT(bench.state().perFanMode, IsEmpty());
    expectLeftAlone(bench);
}

/// The SMC would take fan 0 at 3 s, between the release's writes for the one fan and the other.
TEST(SupersededClaim, ofATickForcesNothingBehindTheReleasesWriteForItsFan) {
    ControllerBench bench(steadyMachine(2), withoutJitter);
    bench.mac().smc().add(refusal("F0Md", 1, 0x86, 0s, 1200ms));
    bench.mac().smc().add(refusal("F0Md", 1, 0x82, 1200ms, 3s));
    EXPECT_EQ(bench.run(bench.controller().applyPlan(planOf({{0, rpm(3000)}, {1, rpm(4000)}}))),
              ControlResult::rejected(134));
    advanceTo(bench, 2500ms);
    slowDown(bench, 150ms);
    advanceTo(bench, 2800ms);
    forget(bench);
    const Answer released = bench.start(bench.controller().automatic());
    bench.advance(2s);
    EXPECT_EQ(*released, ControlResult::applied());
    EXPECT_THAT(bench.writes, testing::Not(testing::Contains("F0Md=1")));
    EXPECT_THAT(told(bench.published), ElementsAre("not holding"));
    EXPECT_EQ(bench.mac().fan(1).mode, FanMode::automatic);
    expectLeftAlone(bench);
}

/// A plan without fans is a full release: the plan that waits for its fan has no claim any more.
TEST(SupersededClaim, ofAPlanEndsWhenAPlanThatManagesNothingComes) {
    ControllerBench bench(steadyMachine(1), withoutJitter);
    bench.mac().smc().add(refusal("F0Md", 1, 0x82));
    const Answer plan = bench.start(bench.controller().setManual(0, 3000));
    bench.advance(1s);
    EXPECT_EQ(bench.run(bench.controller().applyPlan({})), ControlResult::applied());
    EXPECT_THAT(told(bench.published), ElementsAre("not holding"));
    bench.advance(100ms);
    EXPECT_EQ(*plan, ControlResult::rejected(255));
    expectLeftAlone(bench);
}

/// The mode key is in lower case and not to be seen before 2.4 s. The tick that finds it asks for
/// the key in upper case first, which takes 0.4 s: a release that comes in this time does not know
/// of the fan.
TEST(SupersededClaim, isNotBegunForAFanThatIsFoundWhileAReleaseIsUnderWay) {
    auto machine = steadyMachine(1);
    machine.fans[0].modeKey = simulation::lowerModeKey(0);
    ControllerBench bench(machine, withoutJitter);
    auto hidden = missing("F0md");
    hidden.until = 2400ms;
    bench.mac().smc().add(hidden);
    bench.mac().smc().add(Fault{.from = 2400ms,
                                .key = "F0Md",
                                .operation = Fault::Operation::information,
                                .latency = 400ms});
    bench.advance(1s);
    (void)bench.run(bench.controller().setManual(0, 3000));
    advanceTo(bench, 3200ms);
    EXPECT_EQ(bench.run(bench.controller().automatic()), ControlResult::applied());
    advanceTo(bench, 60s);
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);
    EXPECT_THAT(bench.writes, testing::Not(testing::Contains("F0md=1")));
    expectLeftAlone(bench);
}

/// A tick claims one fan after the other, up to ten seconds each, and looks at nothing meanwhile.
TEST(ClaimsOfATick, putItsNextChecksOff) {
    ControllerBench bench(steadyMachine(), withoutJitter);
    bench.mac().smc().add(refusal("F1Md", 1, 0x82));
    (void)bench.run(bench.controller().applyPlan(planOf({{0, rpm(3000)}, {1, rpm(3000)}})));
    // Claims of fan 1 fail from 0 s to 10 s for the plan, from 10 s to 20 s for its own step, and
    // from 11.6 s to 21.7 s for the first tick.
    advanceTo(bench, 20500ms);
    bench.mac().setHIDTemperature(steadyLabel, 99);
    bench.advance(2500ms);
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::forced);  // 2.5 s, more than a tick, after the heat
    bench.advance(1s);
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);
}

}  // namespace
}  // namespace airflow::control
