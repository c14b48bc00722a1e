#include "AccessLog.h"
#include "ScriptedSMC.h"

namespace airflow::control {
namespace {

using simulation::FanMode;
using smc::SMCError;
using testing::ElementsAre;
using testing::IsEmpty;

void holdBothFans(ControllerBench& bench) {
    (void)bench.run(bench.controller().setManual(0, 3000));
    (void)bench.run(bench.controller().setManual(1, 4000));
    bench.writes.clear();
    bench.published.clear();
}

TEST(Release, withoutKnownFansRaisesAndLowersForceTest) {
    ControllerBench bench;
    EXPECT_EQ(bench.run(bench.controller().restoreAuto()), std::nullopt);
    EXPECT_THAT(bench.writes, ElementsAre("Ftst=1", "Ftst=0"));
    EXPECT_THAT(bench.published, ElementsAre(ControlState::idle()));
}

TEST(Release, givesEveryFanBackBetweenRaisingAndLoweringForceTest) {
    ControllerBench bench;
    holdBothFans(bench);
    EXPECT_EQ(bench.run(bench.controller().restoreAuto()), std::nullopt);
    EXPECT_THAT(bench.writes, ElementsAre("Ftst=1", "F0Md=0", "F1Md=0", "Ftst=0"));
    EXPECT_THAT(bench.published, ElementsAre(ControlState::idle()));
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);
    EXPECT_EQ(bench.mac().fan(1).mode, FanMode::automatic);
    EXPECT_FALSE(bench.mac().forceTest());
}

TEST(Release, endsTheHoldLoopAndWritesNothingAfterwards) {
    ControllerBench bench;
    holdBothFans(bench);
    (void)bench.run(bench.controller().restoreAuto());
    bench.writes.clear();
    bench.advance(60s);
    EXPECT_THAT(bench.writes, IsEmpty());
    EXPECT_EQ(bench.system.runtime.pending().find("hold loop"), std::string::npos);
}

TEST(Release, byAPlanThatWantsNothingEndsTheHoldLoopAtOnce) {
    ControllerBench bench;
    holdBothFans(bench);
    EXPECT_EQ(bench.run(bench.controller().applyPlan(plan::FanControlPlan::allAutomatic())),
              ControlResult::applied());
    EXPECT_EQ(bench.system.runtime.pending().find("hold loop"), std::string::npos);
    EXPECT_EQ(bench.state(), ControlState::idle());
}

TEST(Release, goesOnWhenRaisingForceTestIsRefusedOrFails) {
    ControllerBench bench;
    holdBothFans(bench);
    refuse(bench, "Ftst", 1, 0x86, 1s);
    breakCalls(bench, "Ftst", 1, 0xE00002C2);
    EXPECT_EQ(bench.run(bench.controller().restoreAuto()), std::nullopt);
    EXPECT_THAT(bench.writes, ElementsAre("Ftst=1 (0x86)", "F0Md=0", "F1Md=0", "Ftst=0"));
    bench.advance(1s);
    EXPECT_EQ(bench.run(bench.controller().restoreAuto()), std::nullopt);
}

TEST(Release, ofAFanThatRefusesKeepsItClaimedAndForceTestRaised) {
    ControllerBench bench;
    holdBothFans(bench);
    refuse(bench, "F0Md", 0, 0x86);
    EXPECT_EQ(bench.run(bench.controller().restoreAuto()),
              "failed to restore Auto: F0Md=0 rejected (SMC 0x86)");
    EXPECT_THAT(bench.writes, ElementsAre("Ftst=1", "F0Md=0 (0x86)", "F1Md=0"));
    EXPECT_TRUE(bench.mac().forceTest());
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::forced);
    EXPECT_EQ(bench.mac().fan(1).mode, FanMode::automatic);
    const ControlState refused{.perFanMode = {{0, ControlMode::manual}},
                               .targets = {{0, 3000}},
                               .isHolding = true,
                               .lastError = "failed to restore Auto: F0Md=0 rejected (SMC 0x86)",
                               .stoppedFans = std::nullopt};
    EXPECT_THAT(bench.published, ElementsAre(refused));
}

TEST(Release, ofAFanThatRefusesDoesNotKeepTheOthersFromTheirs) {
    ControllerBench bench(plainMachine(3));
    (void)bench.run(bench.controller().fullBlast());
    refuse(bench, "F0Md", 0, 0x86);
    breakCalls(bench, "F1Md", 0, 0xE00002C2);
    (void)bench.run(bench.controller().restoreAuto());
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::forced);
    EXPECT_EQ(bench.mac().fan(1).mode, FanMode::forced);
    EXPECT_EQ(bench.mac().fan(2).mode, FanMode::automatic);
}

TEST(Release, joinsTheMessagesOfSeveralFans) {
    ControllerBench bench;
    holdBothFans(bench);
    refuse(bench, "F0Md", 0, 0x86);
    refuse(bench, "F1Md", 0, 0x87);
    EXPECT_EQ(bench.run(bench.controller().restoreAuto()),
              "failed to restore Auto: F0Md=0 rejected (SMC 0x86); F1Md=0 rejected (SMC 0x87)");
    EXPECT_TRUE(bench.state().isHolding);
}

TEST(Release, namesTheLowerCaseKeyOfTheFan) {
    auto machine = plainMachine(1);
    machine.fans[0].modeKey = "F0md";
    ControllerBench bench(machine);
    (void)bench.run(bench.controller().setManual(0, 3000));
    refuse(bench, "F0md", 0, 0x86);
    EXPECT_EQ(bench.run(bench.controller().restoreAuto()),
              "failed to restore Auto: F0md=0 rejected (SMC 0x86)");
}

TEST(Release, writesTheCodeInLowerCaseHexadecimalWithoutLeadingZeros) {
    const std::vector<std::pair<std::uint8_t, std::string>> codes{
        {0x01, "0x1"},  {0x0F, "0xf"},  {0x10, "0x10"}, {0x82, "0x82"},
        {0x86, "0x86"}, {0xAB, "0xab"}, {0xFF, "0xff"}};
    for (const auto& [code, text] : codes) {
        ControllerBench bench(plainMachine(1));
        (void)bench.run(bench.controller().restoreAllFansToAutomatic());
        refuse(bench, "F0Md", 0, code);
        EXPECT_EQ(bench.run(bench.controller().restoreAuto()),
                  "failed to restore Auto: F0Md=0 rejected (SMC " + text + ")");
    }
}

TEST(Release, writesTheCodeOfForceTestTheSameWay) {
    const std::vector<std::pair<std::uint8_t, std::string>> codes{
        {0x01, "0x1"}, {0x86, "0x86"}, {0xFF, "0xff"}};
    for (const auto& [code, text] : codes) {
        ControllerBench bench(plainMachine(1));
        refuse(bench, "Ftst", 0, code);
        EXPECT_EQ(bench.run(bench.controller().restoreAuto()),
                  "failed to restore Auto: Ftst=0 rejected (SMC " + text + ")");
    }
}

const std::vector<std::pair<SMCError, std::string>> errors{
    {SMCError::openFailed(-536870174), "IOServiceOpen failed: -536870174"},
    {SMCError::keyNotFound("F0Md"), "SMC key not found: F0Md"},
    {SMCError::smcError("F0Md", 0x85), "SMC error on key F0Md: result=0x85"},
    {SMCError::ioReturn("IOConnectCallStructMethod", 0xE00002C2),
     "IOConnectCallStructMethod failed: kern_return_t=0xe00002c2"},
    {SMCError::driverNotFound(), "AppleSMC IOKit service not found"},
    {SMCError::notPrivileged(), "not privileged (root required) for this SMC call"}};

TEST(Release, tellsEveryErrorOfAFanByItsText) {
    for (const auto& [error, text] : errors) {
        ScriptedBench bench(plainMachine(1));
        bench.smc.answers.insert_or_assign({"F0Md", 0}, std::unexpected(error));
        EXPECT_EQ(bench.run(bench.controller->restoreAllFansToAutomatic()),
                  "failed to restore Auto: F0Md=0 failed (" + text + ")");
    }
}

TEST(Release, tellsEveryErrorOfForceTestByItsText) {
    for (const auto& [error, text] : errors) {
        ScriptedBench bench(plainMachine(1));
        bench.smc.answers.insert_or_assign({"Ftst", 0}, std::unexpected(error));
        EXPECT_EQ(bench.run(bench.controller->restoreAuto()),
                  "failed to restore Auto: Ftst=0 failed (" + text + ")");
    }
}

TEST(Release, tellsWhatTheKernelSaid) {
    ControllerBench bench;
    holdBothFans(bench);
    breakCalls(bench, "F0Md", 0, 0xE00002C2);
    breakCalls(bench, "F1Md", 0, 0xE00002C1);
    EXPECT_EQ(bench.run(bench.controller().restoreAuto()),
              "failed to restore Auto: F0Md=0 failed (IOConnectCallStructMethod failed: "
              "kern_return_t=0xe00002c2); F1Md=0 failed (not privileged (root required) for this "
              "SMC call)");
}

TEST(Release, refusedByForceTestAloneHoldsNothing) {
    ControllerBench bench;
    holdBothFans(bench);
    refuse(bench, "Ftst", 0, 0x86);
    EXPECT_EQ(bench.run(bench.controller().restoreAuto()),
              "failed to restore Auto: Ftst=0 rejected (SMC 0x86)");
    ControlState state = ControlState::idle();
    state.lastError = "failed to restore Auto: Ftst=0 rejected (SMC 0x86)";
    EXPECT_THAT(bench.published, ElementsAre(state));
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);
}

TEST(Release, refusedByAFanThatWasNeverClaimedHoldsNothing) {
    ControllerBench bench(plainMachine(1));
    refuse(bench, "F0Md", 0, 0x86);
    (void)bench.run(bench.controller().restoreAllFansToAutomatic());
    EXPECT_FALSE(bench.state().isHolding);
    EXPECT_EQ(bench.state().lastError, "failed to restore Auto: F0Md=0 rejected (SMC 0x86)");
}

TEST(Release, thatSucceededLetsTheFanBeClaimedAnew) {
    ControllerBench bench;
    holdBothFans(bench);
    (void)bench.run(bench.controller().restoreAuto());
    bench.writes.clear();
    (void)bench.run(bench.controller().setManual(0, 3000));
    EXPECT_THAT(bench.writes, ElementsAre("Ftst=1", "F0Md=1", "Ftst=1", "F0Md=1", "F0Tg=3000"));
}

TEST(Release, thatWasRefusedLeavesTheFanClaimed) {
    ControllerBench bench;
    holdBothFans(bench);
    refuse(bench, "F0Md", 0, 0x86, 1s);
    (void)bench.run(bench.controller().restoreAuto());
    bench.writes.clear();
    (void)bench.run(bench.controller().setManual(0, 3000));
    EXPECT_THAT(bench.writes, ElementsAre("Ftst=1", "Ftst=1", "F0Md=1", "F0Tg=3000"));
}

TEST(RestoreAuto, needsNotBeRoot) {
    ControllerBench bench;
    holdBothFans(bench);
    bench.system.effectiveUserID = 501;
    EXPECT_EQ(bench.run(bench.controller().restoreAuto()), std::nullopt);
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);
}

TEST(RestoreAuto, forgetsThePlan) {
    ControllerBench bench;
    holdBothFans(bench);
    (void)bench.run(bench.controller().restoreAuto());
    (void)bench.run(bench.controller().setManual(1, 2000));
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);
    EXPECT_EQ(bench.state().targets, (std::map<std::int64_t, std::int64_t>{{1, 2000}}));
}

/// Stops a fan, gives it back by `release`, and asks for 0 % again: it must not be stopped at once.
void expectToForgetStoppedFans(ControllerBench& bench, const std::function<void()>& release) {
    (void)bench.run(bench.controller().setPercent(0, 0));
    bench.advance(11s);
    ASSERT_EQ(bench.state().stoppedFans, std::vector<std::int64_t>{0});
    release();
    (void)bench.run(bench.controller().setPercent(0, 0));
    EXPECT_EQ(bench.state().stoppedFans, std::nullopt);
    EXPECT_EQ(bench.state().targets.at(0), 1200);
}

TEST(RestoreAuto, forgetsWhatTheEvaluatorRemembers) {
    ControllerBench bench;
    expectToForgetStoppedFans(bench, [&] { (void)bench.run(bench.controller().restoreAuto()); });
}

TEST(Automatic, givesEveryFanBackAndForgetsThePlan) {
    ControllerBench bench;
    holdBothFans(bench);
    EXPECT_EQ(bench.run(bench.controller().automatic()), ControlResult::applied());
    EXPECT_THAT(bench.writes, ElementsAre("Ftst=1", "F0Md=0", "F1Md=0", "Ftst=0"));
    EXPECT_THAT(bench.published, ElementsAre(ControlState::idle()));
    (void)bench.run(bench.controller().setManual(1, 2000));
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);
}

TEST(Automatic, forgetsWhatTheEvaluatorRemembers) {
    ControllerBench bench;
    expectToForgetStoppedFans(bench, [&] { (void)bench.run(bench.controller().automatic()); });
}

TEST(Automatic, failsWithTheTextOfTheRelease) {
    ControllerBench bench;
    holdBothFans(bench);
    refuse(bench, "F1Md", 0, 0x86);
    EXPECT_EQ(bench.run(bench.controller().automatic()),
              ControlResult::failed("failed to restore Auto: F1Md=0 rejected (SMC 0x86)"));
}

TEST(Automatic, withoutRootTouchesNothing) {
    ControllerBench bench;
    holdBothFans(bench);
    bench.reads.clear();
    bench.system.effectiveUserID = 501;
    EXPECT_EQ(bench.run(bench.controller().automatic()), ControlResult::notPrivileged());
    EXPECT_THAT(bench.writes, IsEmpty());
    EXPECT_THAT(bench.reads, IsEmpty());
    EXPECT_THAT(bench.published, IsEmpty());
    bench.advance(1500ms);  // the plan is held on
    EXPECT_THAT(bench.writes, ElementsAre("Ftst=1", "F0Md=1", "F0Tg=3000", "F1Md=1", "F1Tg=4000"));
}

}  // namespace
}  // namespace airflow::control
