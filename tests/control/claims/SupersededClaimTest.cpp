// Claims that a release superseded: they stop before their next write, and a fan that the SMC took
// meanwhile goes back at once.
#include "HoldHarness.h"

namespace airflow::control {
namespace {

using Answer = std::shared_ptr<std::optional<ControlResult>>;

void advanceTo(ControllerHarness& harness, concurrency::Duration time) {
    harness.advance(time - harness.system.elapsed());
}

/// Fan 0 is refused for 1.2 s, which ends the claims of a plan that is applied at the start, and
/// is busy from then on, up to 3 s: the claim of the first tick takes from about 2.1 s to 3.1 s.
void letTheFirstTickClaim(ControllerHarness& harness) {
    harness.mac().smc().add(refusal("F0Md", 1, 0x86, 0s, 1200ms));
    harness.mac().smc().add(refusal("F0Md", 1, 0x82, 1200ms, 3s));
    EXPECT_EQ(harness.run(harness.controller().setManual(0_fan, 3000_rpm)),
              ControlResult::rejected(134));
    advanceTo(harness, 2500ms);
    EXPECT_EQ(harness.writes.back(), "F0Md=1 (0x82)");
    forget(harness);
}

/// The fan is automatic, and heat brings nobody back to it, since nobody needs to watch it.
void expectLeftAlone(ControllerHarness& harness) {
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
    EXPECT_FALSE(harness.state().isHolding);
    forget(harness);
    harness.mac().setHIDTemperature(steadyLabel, 99);
    harness.advance(3600s);
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
    EXPECT_THAT(harness.reads, IsEmpty());
    EXPECT_THAT(harness.writes, IsEmpty());
    EXPECT_THAT(harness.published, IsEmpty());
}

TEST(SupersededClaim, ofTheLoopStopsBeforeItsNextWriteWhenAutomaticComes) {
    ControllerHarness harness(steadyMachine(1), withoutJitter);
    letTheFirstTickClaim(harness);
    EXPECT_EQ(harness.run(harness.controller().automatic()), ControlResult::applied());
    harness.advance(1s);
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=0", "Ftst=0"));
    EXPECT_THAT(told(harness.published), ElementsAre("not holding"));
    expectLeftAlone(harness);
}

TEST(SupersededClaim, ofTheLoopStopsBeforeItsNextWriteWhenARestoreComes) {
    ControllerHarness harness(steadyMachine(1), withoutJitter);
    letTheFirstTickClaim(harness);
    EXPECT_EQ(harness.run(harness.controller().restoreAuto()), std::nullopt);
    harness.advance(1s);
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=0", "Ftst=0"));
    EXPECT_THAT(told(harness.published), ElementsAre("not holding"));
    expectLeftAlone(harness);
}

TEST(SupersededClaim, ofTheLoopStopsBeforeItsNextWriteWhenAPlanThatManagesNothingComes) {
    ControllerHarness harness(steadyMachine(1), withoutJitter);
    letTheFirstTickClaim(harness);
    EXPECT_EQ(harness.run(harness.controller().applyPlan({})), ControlResult::applied());
    harness.advance(1s);
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "Ftst=1", "F0Md=0", "Ftst=0"));
    EXPECT_THAT(told(harness.published), ElementsAre("not holding"));
    expectLeftAlone(harness);
}

/// The SMC takes the fan at 3 s. The release knows of the fan and asks for it, too.
TEST(SupersededClaim, ofTheLoopGivesItsFanBackThatTheSMCTakesAsAutomaticComes) {
    ControllerHarness harness(steadyMachine(1), withoutJitter);
    letTheFirstTickClaim(harness);
    advanceTo(harness, 3s);
    forget(harness);
    slowDown(harness, 5ms);
    Answer released;
    atWrite(harness, "F0Md", 1, 1,
            [&] { released = harness.start(harness.controller().automatic()); });
    harness.advance(1s);
    EXPECT_EQ(*released, ControlResult::applied());
    EXPECT_THAT(harness.writes, ElementsAre("F0Md=1", "Ftst=1", "F0Md=0", "F0Md=0", "Ftst=0"));
    EXPECT_THAT(told(harness.published), ElementsAre("not holding"));
    expectLeftAlone(harness);
}

/// The claim of the step of a plan, from 11 s on; the SMC would take the fan at 15 s.
TEST(SupersededClaim, ofAPlansOwnStepLeavesItsFanAutomaticWhateverTheHeat) {
    ControllerHarness harness(steadyMachine(1), withoutJitter);
    harness.mac().smc().add(refusal("F0Md", 1, 0x82, 0s, 15s));
    harness.advance(1s);
    const Answer plan = harness.start(harness.controller().setManual(0_fan, 3000_rpm));
    for (int second = 2; second <= 13; ++second) {
        advanceTo(harness, concurrency::Duration(1s) * second);
        harness.run(harness.controller().heartbeat());
    }
    EXPECT_EQ(harness.run(harness.controller().automatic()), ControlResult::applied());
    advanceTo(harness, 20s);
    EXPECT_EQ(*plan, ControlResult::timedOut());
    EXPECT_EQ(told(harness.published).back(), "not holding");
    expectLeftAlone(harness);
}

TEST(SupersededClaim, ofAPlansOwnStepLeavesItsFanAutomaticWhenTheClientIsGone) {
    ControllerHarness harness(steadyMachine(1), withoutJitter);
    harness.mac().smc().add(refusal("F0Md", 1, 0x82, 0s, 15s));
    const Answer plan = harness.start(harness.controller().setManual(0_fan, 3000_rpm));
    harness.advance(13s);
    EXPECT_EQ(harness.run(harness.controller().restoreAuto()), std::nullopt);
    harness.advance(7s);
    EXPECT_EQ(*plan, ControlResult::timedOut());
    expectLeftAlone(harness);
}

/// The step of a plan claims again what the plan itself could not claim, when the loop finds heat.
TEST(SupersededClaim, ofAPlansOwnStepStopsWhenTheLoopReleasesForHeat) {
    ControllerHarness harness(steadyMachine(2), withoutJitter);
    harness.mac().smc().add(refusal("F0Md", 1, 0x86, 0s, 450ms));
    harness.mac().smc().add(refusal("F0Md", 1, 0x82, 450ms, 5s));
    const Answer plan =
        harness.start(harness.controller().applyPlan(planOf({{0, rpm(6000)}, {1, rpm(6000)}})));
    harness.mac().setHIDTemperature(steadyLabel, 97);
    harness.advance(10s);
    EXPECT_EQ(*plan, ControlResult::rejected(134));
    EXPECT_THAT(told(harness.published),
                ElementsAre("not holding",
                            "not holding: thermal ceiling 97°C exceeded — released to Auto"));
    EXPECT_EQ(harness.mac().fan(1).mode, FanMode::automatic);
    expectLeftAlone(harness);
}

/// Two control steps at once, here a plan's and its loop's.
TEST(SupersededClaim, ofEachOfTwoStepsAtOnceStops) {
    ControllerHarness harness(steadyMachine(2), withoutJitter);
    harness.mac().smc().add(refusal("F0Md", 1, 0x86, 0s, 2600ms));
    harness.mac().smc().add(refusal("F1Md", 1, 0x86, 0s, 1s));
    harness.mac().smc().add(refusal("F1Md", 1, 0x82, 1s, 2600ms));
    const Answer plan =
        harness.start(harness.controller().applyPlan(planOf({{0, rpm(3000)}, {1, rpm(3000)}})));
    harness.advance(2500ms);
    forget(harness);
    EXPECT_EQ(harness.run(harness.controller().automatic()), ControlResult::applied());
    harness.advance(1s);
    EXPECT_EQ(*plan, ControlResult::rejected(134));
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=0", "F1Md=0", "Ftst=0"));
    EXPECT_EQ(harness.mac().fan(1).mode, FanMode::automatic);
    expectLeftAlone(harness);
}

TEST(SupersededClaim, ofAPlanStopsBeforeItsNextWriteAndIsAnswered255) {
    ControllerHarness harness(steadyMachine(1), withoutJitter);
    harness.mac().smc().add(refusal("F0Md", 1, 0x82, 0s, 3s));
    const Answer plan = harness.start(harness.controller().setManual(0_fan, 3000_rpm));
    harness.advance(1s);
    forget(harness);
    EXPECT_EQ(harness.run(harness.controller().restoreAuto()), std::nullopt);
    harness.advance(100ms);
    EXPECT_EQ(*plan, ControlResult::rejected(255));
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=0", "Ftst=0"));
    EXPECT_THAT(told(harness.published), ElementsAre("not holding"));
    expectLeftAlone(harness);
}

TEST(SupersededClaim, ofAPlanIsAnswered255AfterASafetyReleaseToo) {
    ControllerHarness harness(steadyMachine(), withoutJitter);
    (void)harness.run(harness.controller().setManual(1_fan, 3000_rpm));
    harness.mac().smc().add(refusal("F0Md", 1, 0x82, 0s, 5s));
    harness.mac().setHIDTemperature(steadyLabel, 97);
    const Answer plan = harness.start(harness.controller().setManual(0_fan, 3000_rpm));
    harness.advance(2s);
    EXPECT_EQ(*plan, ControlResult::rejected(255));
    EXPECT_EQ(told(harness.published).back(),
              "not holding: thermal ceiling 97°C exceeded — released to Auto");
    EXPECT_EQ(harness.mac().fan(1).mode, FanMode::automatic);
    expectLeftAlone(harness);
}

TEST(SupersededClaim, ofAPlansFirstFanKeepsThePlanFromItsSecond) {
    ControllerHarness harness(steadyMachine(), withoutJitter);
    slowDown(harness, 5ms);
    Answer released;
    atWrite(harness, "F0Md", 1, 1,
            [&] { released = harness.start(harness.controller().automatic()); });
    EXPECT_EQ(harness.run(harness.controller().applyPlan(planOf({{0, rpm(3000)}, {1, rpm(4000)}}))),
              ControlResult::rejected(255));
    harness.advance(1s);
    EXPECT_EQ(*released, ControlResult::applied());
    EXPECT_THAT(harness.writes,
                ElementsAre("Ftst=1", "F0Md=1", "Ftst=1", "F0Md=0", "F0Md=0", "Ftst=0"));
    EXPECT_THAT(told(harness.published), ElementsAre("not holding"));
    EXPECT_THAT(harness.state().perFanMode, IsEmpty());
    expectLeftAlone(harness);
}

/// The SMC would take fan 0 at 3 s, between the release's writes for the one fan and the other.
TEST(SupersededClaim, ofATickForcesNothingAfterTheReleasesWriteForItsFan) {
    ControllerHarness harness(steadyMachine(2), withoutJitter);
    harness.mac().smc().add(refusal("F0Md", 1, 0x86, 0s, 1200ms));
    harness.mac().smc().add(refusal("F0Md", 1, 0x82, 1200ms, 3s));
    EXPECT_EQ(harness.run(harness.controller().applyPlan(planOf({{0, rpm(3000)}, {1, rpm(4000)}}))),
              ControlResult::rejected(134));
    advanceTo(harness, 2500ms);
    slowDown(harness, 150ms);
    advanceTo(harness, 2800ms);
    forget(harness);
    const Answer released = harness.start(harness.controller().automatic());
    harness.advance(2s);
    EXPECT_EQ(*released, ControlResult::applied());
    EXPECT_THAT(harness.writes, testing::Not(testing::Contains("F0Md=1")));
    EXPECT_THAT(told(harness.published), ElementsAre("not holding"));
    EXPECT_EQ(harness.mac().fan(1).mode, FanMode::automatic);
    expectLeftAlone(harness);
}

/// A plan without fans is a full release: the plan that waits for its fan has no claim any more.
TEST(SupersededClaim, ofAPlanEndsWhenAPlanThatManagesNothingComes) {
    ControllerHarness harness(steadyMachine(1), withoutJitter);
    harness.mac().smc().add(refusal("F0Md", 1, 0x82));
    const Answer plan = harness.start(harness.controller().setManual(0_fan, 3000_rpm));
    harness.advance(1s);
    EXPECT_EQ(harness.run(harness.controller().applyPlan({})), ControlResult::applied());
    EXPECT_THAT(told(harness.published), ElementsAre("not holding"));
    harness.advance(100ms);
    EXPECT_EQ(*plan, ControlResult::rejected(255));
    expectLeftAlone(harness);
}

/// The mode key is in lower case and not to be seen before 2.4 s. The tick that finds it asks for
/// the key in upper case first, which takes 0.4 s: a release that comes in this time does not know
/// of the fan.
TEST(SupersededClaim, isNotBegunForAFanThatIsFoundWhileAReleaseIsUnderWay) {
    auto machine = steadyMachine(1);
    machine.fans[0].modeKey = simulation::lowerModeKey(0);
    ControllerHarness harness(machine, withoutJitter);
    auto hidden = missing("F0md");
    hidden.until = 2400ms;
    harness.mac().smc().add(hidden);
    harness.mac().smc().add(Fault{.from = 2400ms,
                                  .key = "F0Md",
                                  .operation = Fault::Operation::information,
                                  .latency = 400ms});
    harness.advance(1s);
    (void)harness.run(harness.controller().setManual(0_fan, 3000_rpm));
    advanceTo(harness, 3200ms);
    EXPECT_EQ(harness.run(harness.controller().automatic()), ControlResult::applied());
    advanceTo(harness, 60s);
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
    EXPECT_THAT(harness.writes, testing::Not(testing::Contains("F0md=1")));
    expectLeftAlone(harness);
}

/// A tick claims one fan after the other, up to ten seconds each, and looks at nothing meanwhile.
TEST(ClaimsOfATick, delayItsNextChecks) {
    ControllerHarness harness(steadyMachine(), withoutJitter);
    harness.mac().smc().add(refusal("F1Md", 1, 0x82));
    (void)harness.run(harness.controller().applyPlan(planOf({{0, rpm(3000)}, {1, rpm(3000)}})));
    // Claims of fan 1 fail from 0 s to 10 s for the plan, from 10 s to 20 s for its own step, and
    // from 11.6 s to 21.7 s for the first tick.
    advanceTo(harness, 20500ms);
    harness.mac().setHIDTemperature(steadyLabel, 99);
    harness.advance(2500ms);
    EXPECT_EQ(harness.mac().fan(0).mode,
              FanMode::forced);  // 2.5 s, more than a tick, after the heat
    harness.advance(1s);
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
}

}  // namespace
}  // namespace airflow::control
