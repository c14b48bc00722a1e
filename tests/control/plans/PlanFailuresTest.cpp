// Plans of which not every fan can be claimed, and how their results read in the state.
#include "HoldBench.h"

namespace airflow::control {
namespace {

const std::string noModeKey = "neither F1Md nor F1md exists on this machine";

ControlResult apply(ControllerBench& bench,
                    const std::vector<std::pair<std::int64_t, Mode>>& fans) {
    return bench.run(bench.controller().applyPlan(planOf(fans)));
}

simulation::MachineDescription machineWithoutKeyOfFan1() {
    auto machine = steadyMachine();
    machine.fans[1].modeKey.reset();
    return machine;
}

TEST(PlanFailures, aFanWithoutAModeKeyDoesNotKeepTheOtherFromBeingHeld) {
    ControllerBench bench(machineWithoutKeyOfFan1(), withoutJitter);
    EXPECT_EQ(apply(bench, {{0, rpm(3000)}, {1, rpm(4000)}}), ControlResult::failed(noModeKey));
    EXPECT_THAT(told(bench.published),
                ElementsAre("holding: applyPlan: "
                            "failed(\"neither F1Md nor F1md exists on this machine\")"));
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::forced);
    EXPECT_EQ(bench.mac().fan(0).target, 3000);
    const std::map<std::int64_t, ControlMode> modes{{0, ControlMode::manual}};
    EXPECT_EQ(bench.state().perFanMode, modes);
}

TEST(PlanFailures, aFanWithoutAModeKeyIsProbedAgainOnEveryTickAndNeverWritten) {
    ControllerBench bench(machineWithoutKeyOfFan1(), withoutJitter);
    (void)apply(bench, {{1, rpm(4000)}});
    EXPECT_THAT(told(bench.published),
                ElementsAre("not holding: applyPlan: "
                            "failed(\"neither F1Md nor F1md exists on this machine\")"));
    forget(bench);
    bench.advance(2s);
    // Once for the snapshot, once for the claim.
    EXPECT_EQ(std::ranges::count(bench.writes, "Ftst=1"), 1);
    EXPECT_EQ(bench.writes.size(), 1u);
    EXPECT_THAT(told(bench.published), ElementsAre("not holding"));
}

TEST(PlanFailures, aFanThatRefusesToBeForcedIsRejected) {
    ControllerBench bench(steadyMachine(), withoutJitter);
    bench.mac().smc().add(refusal("F1Md", 1));
    EXPECT_EQ(apply(bench, {{0, rpm(3000)}, {1, rpm(4000)}}), ControlResult::rejected(134));
    EXPECT_THAT(told(bench.published), ElementsAre("holding: applyPlan: rejected(code: 134)"));
    EXPECT_EQ(bench.mac().fan(0).target, 3000);
    EXPECT_EQ(bench.mac().fan(1).mode, FanMode::automatic);
}

TEST(PlanFailures, aFanWhoseWritesFailIsRejectedWith255) {
    ControllerBench bench(steadyMachine(1), withoutJitter);
    bench.mac().smc().add(failure("F0Md", 1));
    EXPECT_EQ(apply(bench, {{0, rpm(3000)}}), ControlResult::rejected(255));
    EXPECT_THAT(told(bench.published), ElementsAre("not holding: applyPlan: rejected(code: 255)"));
}

TEST(PlanFailures, aFanThatStaysBusyTimesOut) {
    ControllerBench bench(steadyMachine(), withoutJitter);
    bench.mac().smc().add(refusal("F1Md", 1, 0x82));
    EXPECT_EQ(apply(bench, {{0, rpm(3000)}, {1, rpm(4000)}}), ControlResult::timedOut());
    EXPECT_THAT(bench.published.back().lastError, "applyPlan: timedOut");
    EXPECT_TRUE(bench.published.back().isHolding);
}

TEST(PlanFailures, theLastOfSeveralFailuresIsTheResult) {
    auto machine = machineWithoutKeyOfFan1();
    {
        ControllerBench bench(machine, withoutJitter);
        bench.mac().smc().add(refusal("F0Md", 1));
        EXPECT_EQ(apply(bench, {{0, rpm(3000)}, {1, rpm(4000)}}), ControlResult::failed(noModeKey));
    }
    ControllerBench bench(machine, withoutJitter);
    bench.mac().smc().add(refusal("F0Md", 1));
    EXPECT_EQ(apply(bench, {{1, rpm(4000)}, {0, rpm(3000)}}), ControlResult::rejected(134));
}

TEST(PlanFailures, aLaterSuccessDoesNotHideAFailure) {
    ControllerBench bench(machineWithoutKeyOfFan1(), withoutJitter);
    EXPECT_EQ(apply(bench, {{1, rpm(4000)}, {0, rpm(3000)}}), ControlResult::failed(noModeKey));
}

TEST(PlanFailures, aFanThatIsNamedTwiceIsTriedTwiceWhileItRefuses) {
    ControllerBench bench(steadyMachine(1), withoutJitter);
    bench.mac().smc().add(refusal("F0Md", 1, 0x86, 0s, 410ms));  // the first claim ends at 400 ms
    EXPECT_EQ(apply(bench, {{0, rpm(3000)}, {0, percent(100)}}), ControlResult::rejected(134));
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::forced);
    EXPECT_EQ(bench.state().perFanMode.at(0), ControlMode::fullBlast);
}

TEST(PlanFailures, aClaimThatFailsIsTriedAgainByTheControlStepThatFollows) {
    ControllerBench bench(steadyMachine(1), withoutJitter);
    bench.mac().smc().add(refusal("F0Md", 1, 0x86, 0s, 410ms));
    EXPECT_EQ(apply(bench, {{0, rpm(3000)}}), ControlResult::rejected(134));
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::forced);
    EXPECT_EQ(bench.mac().fan(0).target, 3000);
    EXPECT_THAT(told(bench.published), ElementsAre("holding: applyPlan: rejected(code: 134)"));
    bench.advance(2s);
    EXPECT_THAT(told(bench.published),
                ElementsAre("holding: applyPlan: rejected(code: 134)", "holding"));
}

TEST(PlanFailures, aFanThatTheMachineDoesNotHaveHasNoModeKey) {
    ControllerBench bench(steadyMachine(), withoutJitter);
    EXPECT_EQ(apply(bench, {{7, rpm(3000)}}),
              ControlResult::failed("neither F7Md nor F7md exists on this machine"));
    forget(bench);
    bench.advance(2s);  // and the snapshot has no such fan, so nothing is decided for it
    EXPECT_THAT(bench.writes, ElementsAre("Ftst=0"));
}

TEST(PlanFailures, lowerCaseModeKeysAreUsedThroughout) {
    auto machine = steadyMachine(1);
    machine.fans[0].modeKey = "F0md";
    ControllerBench bench(machine, withoutJitter);
    EXPECT_EQ(apply(bench, {{0, rpm(3000)}}), ControlResult::applied());
    EXPECT_EQ(apply(bench, {}), ControlResult::applied());
    EXPECT_THAT(bench.writes, ElementsAre("Ftst=1", "F0md=1", "Ftst=1", "F0md=1", "F0Tg=3000",
                                          "Ftst=1", "F0md=0", "Ftst=1", "F0md=0", "Ftst=0"));
}

TEST(PlanFailures, twoFansThatCannotBeGivenBackAreToldInOneText) {
    ControllerBench bench(steadyMachine(3), withoutJitter);
    (void)apply(bench, {{0, rpm(3000)}, {1, rpm(4000)}, {2, rpm(5000)}});
    bench.mac().smc().add(refusal("F0Md", 0));
    bench.mac().smc().add(failure("F1Md", 0));
    forget(bench);
    EXPECT_EQ(apply(bench, {{2, rpm(5000)}}), ControlResult::applied());
    EXPECT_THAT(told(bench.published),
                ElementsAre("holding: failed to restore Auto: F0Md=0 rejected (SMC 0x86); "
                            "F1Md=0 failed (IOConnectCallStructMethod failed: "
                            "kern_return_t=0xe00002bc)",
                            "holding"));
}

}  // namespace
}  // namespace airflow::control
