// Plans of which not every fan can be claimed, and how their results read in the state.
#include "HoldHarness.h"

namespace airflow::control {
namespace {

const std::string noModeKey = "neither F1Md nor F1md exists on this machine";

ControlResult apply(ControllerHarness& harness,
                    const std::vector<std::pair<std::int64_t, Mode>>& fans) {
    return harness.run(harness.controller().applyPlan(planOf(fans)));
}

simulation::MachineDescription machineWithoutKeyOfFan1() {
    auto machine = steadyMachine();
    machine.fans[1].modeKey.reset();
    return machine;
}

TEST(PlanFailures, aFanWithoutAModeKeyDoesNotKeepTheOtherFromBeingHeld) {
    ControllerHarness harness(machineWithoutKeyOfFan1(), withoutJitter);
    EXPECT_EQ(apply(harness, {{0, rpm(3000)}, {1, rpm(4000)}}), ControlResult::failed(noModeKey));
    EXPECT_THAT(told(harness.published),
                ElementsAre("holding: applyPlan: "
                            "failed(\"neither F1Md nor F1md exists on this machine\")"));
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::forced);
    EXPECT_EQ(harness.mac().fan(0).target, 3000);
    const std::map<std::int64_t, ControlMode> modes{{0, ControlMode::manual}};
    EXPECT_EQ(harness.state().perFanMode, modes);
}

TEST(PlanFailures, aFanWithoutAModeKeyIsProbedAgainOnEveryTickAndNeverWritten) {
    ControllerHarness harness(machineWithoutKeyOfFan1(), withoutJitter);
    (void)apply(harness, {{1, rpm(4000)}});
    EXPECT_THAT(told(harness.published),
                ElementsAre("not holding: applyPlan: "
                            "failed(\"neither F1Md nor F1md exists on this machine\")"));
    forget(harness);
    harness.advance(2s);
    // Once for the snapshot, once for the claim.
    EXPECT_EQ(std::ranges::count(harness.writes, "Ftst=1"), 1);
    EXPECT_EQ(harness.writes.size(), 1u);
    EXPECT_THAT(told(harness.published), ElementsAre("not holding"));
}

TEST(PlanFailures, aFanThatRefusesToBeForcedIsRejected) {
    ControllerHarness harness(steadyMachine(), withoutJitter);
    harness.mac().smc().add(refusal("F1Md", 1));
    EXPECT_EQ(apply(harness, {{0, rpm(3000)}, {1, rpm(4000)}}), ControlResult::rejected(134));
    EXPECT_THAT(told(harness.published), ElementsAre("holding: applyPlan: rejected(code: 134)"));
    EXPECT_EQ(harness.mac().fan(0).target, 3000);
    EXPECT_EQ(harness.mac().fan(1).mode, FanMode::automatic);
}

TEST(PlanFailures, aFanWhoseWritesFailIsRejectedWith255) {
    ControllerHarness harness(steadyMachine(1), withoutJitter);
    harness.mac().smc().add(failure("F0Md", 1));
    EXPECT_EQ(apply(harness, {{0, rpm(3000)}}), ControlResult::rejected(255));
    EXPECT_THAT(told(harness.published),
                ElementsAre("not holding: applyPlan: rejected(code: 255)"));
}

TEST(PlanFailures, aFanThatStaysBusyTimesOut) {
    ControllerHarness harness(steadyMachine(), withoutJitter);
    harness.mac().smc().add(refusal("F1Md", 1, 0x82));
    EXPECT_EQ(apply(harness, {{0, rpm(3000)}, {1, rpm(4000)}}), ControlResult::timedOut());
    EXPECT_THAT(harness.published.back().lastError, "applyPlan: timedOut");
    EXPECT_TRUE(harness.published.back().isHolding);
}

TEST(PlanFailures, theLastOfSeveralFailuresIsTheResult) {
    auto machine = machineWithoutKeyOfFan1();
    {
        ControllerHarness harness(machine, withoutJitter);
        harness.mac().smc().add(refusal("F0Md", 1));
        EXPECT_EQ(apply(harness, {{0, rpm(3000)}, {1, rpm(4000)}}),
                  ControlResult::failed(noModeKey));
    }
    ControllerHarness harness(machine, withoutJitter);
    harness.mac().smc().add(refusal("F0Md", 1));
    EXPECT_EQ(apply(harness, {{1, rpm(4000)}, {0, rpm(3000)}}), ControlResult::rejected(134));
}

TEST(PlanFailures, aLaterSuccessDoesNotHideAFailure) {
    ControllerHarness harness(machineWithoutKeyOfFan1(), withoutJitter);
    EXPECT_EQ(apply(harness, {{1, rpm(4000)}, {0, rpm(3000)}}), ControlResult::failed(noModeKey));
}

TEST(PlanFailures, aFanThatIsNamedTwiceIsTriedTwiceWhileItRefuses) {
    ControllerHarness harness(steadyMachine(1), withoutJitter);
    harness.mac().smc().add(refusal("F0Md", 1, 0x86, 0s, 410ms));  // the first claim ends at 400 ms
    EXPECT_EQ(apply(harness, {{0, rpm(3000)}, {0, percent(100)}}), ControlResult::rejected(134));
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::forced);
    EXPECT_EQ(harness.state().perFanMode.at(0), ControlMode::fullBlast);
}

TEST(PlanFailures, aClaimThatFailsIsTriedAgainByTheControlStepThatFollows) {
    ControllerHarness harness(steadyMachine(1), withoutJitter);
    harness.mac().smc().add(refusal("F0Md", 1, 0x86, 0s, 410ms));
    EXPECT_EQ(apply(harness, {{0, rpm(3000)}}), ControlResult::rejected(134));
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::forced);
    EXPECT_EQ(harness.mac().fan(0).target, 3000);
    EXPECT_THAT(told(harness.published), ElementsAre("holding: applyPlan: rejected(code: 134)"));
    harness.advance(2s);
    EXPECT_THAT(told(harness.published),
                ElementsAre("holding: applyPlan: rejected(code: 134)", "holding"));
}

TEST(PlanFailures, aFanThatTheMachineDoesNotHaveHasNoModeKey) {
    ControllerHarness harness(steadyMachine(), withoutJitter);
    EXPECT_EQ(apply(harness, {{7, rpm(3000)}}),
              ControlResult::failed("neither F7Md nor F7md exists on this machine"));
    forget(harness);
    harness.advance(2s);  // and the snapshot has no such fan, so nothing is decided for it
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=0"));
}

TEST(PlanFailures, lowerCaseModeKeysAreUsedThroughout) {
    auto machine = steadyMachine(1);
    machine.fans[0].modeKey = "F0md";
    ControllerHarness harness(machine, withoutJitter);
    EXPECT_EQ(apply(harness, {{0, rpm(3000)}}), ControlResult::applied());
    EXPECT_EQ(apply(harness, {}), ControlResult::applied());
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0md=1", "Ftst=1", "F0md=1", "F0Tg=3000",
                                            "Ftst=1", "F0md=0", "Ftst=1", "F0md=0", "Ftst=0"));
}

TEST(PlanFailures, twoFansThatCannotBeGivenBackAreNamedInOneError) {
    ControllerHarness harness(steadyMachine(3), withoutJitter);
    (void)apply(harness, {{0, rpm(3000)}, {1, rpm(4000)}, {2, rpm(5000)}});
    harness.mac().smc().add(refusal("F0Md", 0));
    harness.mac().smc().add(failure("F1Md", 0));
    forget(harness);
    EXPECT_EQ(apply(harness, {{2, rpm(5000)}}), ControlResult::applied());
    EXPECT_THAT(told(harness.published),
                ElementsAre("holding: failed to restore Auto: F0Md=0 rejected (SMC 0x86); "
                            "F1Md=0 failed (IOConnectCallStructMethod failed: "
                            "kern_return_t=0xe00002bc)",
                            "holding"));
}

}  // namespace
}  // namespace airflow::control
