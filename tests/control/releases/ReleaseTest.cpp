#include "AccessLog.h"
#include "ScriptedSMC.h"

namespace airflow::control {
namespace {

using simulation::FanMode;
using smc::SMCError;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(Release, withoutKnownFansRaisesAndLowersForceTest) {
    ControllerHarness harness;
    EXPECT_EQ(harness.run(harness.controller().restoreAuto()), std::nullopt);
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "Ftst=0"));
    EXPECT_THAT(harness.published, ElementsAre(ControlState::idle()));
}

TEST(Release, givesEveryFanBackBetweenRaisingAndLoweringForceTest) {
    ControllerHarness harness;
    holdBothFans(harness);
    EXPECT_EQ(harness.run(harness.controller().restoreAuto()), std::nullopt);
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=0", "F1Md=0", "Ftst=0"));
    EXPECT_THAT(harness.published, ElementsAre(ControlState::idle()));
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
    EXPECT_EQ(harness.mac().fan(1).mode, FanMode::automatic);
    EXPECT_FALSE(harness.mac().forceTest());
}

TEST(Release, endsTheHoldLoopAndWritesNothingAfterwards) {
    ControllerHarness harness;
    holdBothFans(harness);
    (void)harness.run(harness.controller().restoreAuto());
    harness.writes.clear();
    harness.advance(60s);
    EXPECT_THAT(harness.writes, IsEmpty());
    EXPECT_EQ(harness.system.runtime.pending().find("hold loop"), std::string::npos);
}

TEST(Release, byAPlanThatWantsNothingEndsTheHoldLoopAtOnce) {
    ControllerHarness harness;
    holdBothFans(harness);
    EXPECT_EQ(harness.run(harness.controller().applyPlan(plan::FanControlPlan::allAutomatic())),
              ControlResult::applied());
    EXPECT_EQ(harness.system.runtime.pending().find("hold loop"), std::string::npos);
    EXPECT_EQ(harness.state(), ControlState::idle());
}

TEST(Release, goesOnWhenRaisingForceTestIsRefusedOrFails) {
    ControllerHarness harness;
    holdBothFans(harness);
    refuse(harness, "Ftst", 1, 0x86, 1s);
    breakCalls(harness, "Ftst", 1, 0xE00002C2);
    EXPECT_EQ(harness.run(harness.controller().restoreAuto()), std::nullopt);
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1 (0x86)", "F0Md=0", "F1Md=0", "Ftst=0"));
    harness.advance(1s);
    EXPECT_EQ(harness.run(harness.controller().restoreAuto()), std::nullopt);
}

TEST(Release, ofAFanThatRefusesKeepsItClaimedAndForceTestRaised) {
    ControllerHarness harness;
    holdBothFans(harness);
    refuse(harness, "F0Md", 0, 0x86);
    EXPECT_EQ(harness.run(harness.controller().restoreAuto()),
              "failed to restore Auto: F0Md=0 rejected (SMC 0x86)");
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=0 (0x86)", "F1Md=0"));
    EXPECT_TRUE(harness.mac().forceTest());
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::forced);
    EXPECT_EQ(harness.mac().fan(1).mode, FanMode::automatic);
    const ControlState refused{.perFanMode = {{0, ControlMode::manual}},
                               .targets = {{0, 3000}},
                               .isHolding = true,
                               .lastError = "failed to restore Auto: F0Md=0 rejected (SMC 0x86)",
                               .stoppedFans = std::nullopt};
    EXPECT_THAT(harness.published, ElementsAre(refused));
}

TEST(Release, ofAFanThatRefusesDoesNotKeepTheOthersFromTheirs) {
    ControllerHarness harness(plainMachine(3));
    (void)harness.run(harness.controller().fullBlast());
    refuse(harness, "F0Md", 0, 0x86);
    breakCalls(harness, "F1Md", 0, 0xE00002C2);
    (void)harness.run(harness.controller().restoreAuto());
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::forced);
    EXPECT_EQ(harness.mac().fan(1).mode, FanMode::forced);
    EXPECT_EQ(harness.mac().fan(2).mode, FanMode::automatic);
}

TEST(Release, joinsTheMessagesOfSeveralFans) {
    ControllerHarness harness;
    holdBothFans(harness);
    refuse(harness, "F0Md", 0, 0x86);
    refuse(harness, "F1Md", 0, 0x87);
    EXPECT_EQ(harness.run(harness.controller().restoreAuto()),
              "failed to restore Auto: F0Md=0 rejected (SMC 0x86); F1Md=0 rejected (SMC 0x87)");
    EXPECT_TRUE(harness.state().isHolding);
}

TEST(Release, namesTheLowerCaseKeyOfTheFan) {
    auto machine = plainMachine(1);
    machine.fans[0].modeKey = "F0md";
    ControllerHarness harness(machine);
    (void)harness.run(harness.controller().setManual(0_fan, 3000_rpm));
    refuse(harness, "F0md", 0, 0x86);
    EXPECT_EQ(harness.run(harness.controller().restoreAuto()),
              "failed to restore Auto: F0md=0 rejected (SMC 0x86)");
}

TEST(Release, writesTheCodeInLowerCaseHexadecimalWithoutLeadingZeros) {
    const std::vector<std::pair<std::uint8_t, std::string>> codes{
        {0x01, "0x1"},  {0x0F, "0xf"},  {0x10, "0x10"}, {0x82, "0x82"},
        {0x86, "0x86"}, {0xAB, "0xab"}, {0xFF, "0xff"}};
    for (const auto& [code, text] : codes) {
        ControllerHarness harness(plainMachine(1));
        (void)harness.run(harness.controller().restoreAllFansToAutomatic());
        refuse(harness, "F0Md", 0, code);
        EXPECT_EQ(harness.run(harness.controller().restoreAuto()),
                  "failed to restore Auto: F0Md=0 rejected (SMC " + text + ")");
    }
}

TEST(Release, writesTheCodeOfForceTestTheSameWay) {
    const std::vector<std::pair<std::uint8_t, std::string>> codes{
        {0x01, "0x1"}, {0x86, "0x86"}, {0xFF, "0xff"}};
    for (const auto& [code, text] : codes) {
        ControllerHarness harness(plainMachine(1));
        refuse(harness, "Ftst", 0, code);
        EXPECT_EQ(harness.run(harness.controller().restoreAuto()),
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
        ScriptedHarness harness(plainMachine(1));
        harness.smc.answers.insert_or_assign({"F0Md", 0}, std::unexpected(error));
        EXPECT_EQ(harness.run(harness.controller->restoreAllFansToAutomatic()),
                  "failed to restore Auto: F0Md=0 failed (" + text + ")");
    }
}

TEST(Release, tellsEveryErrorOfForceTestByItsText) {
    for (const auto& [error, text] : errors) {
        ScriptedHarness harness(plainMachine(1));
        harness.smc.answers.insert_or_assign({"Ftst", 0}, std::unexpected(error));
        EXPECT_EQ(harness.run(harness.controller->restoreAuto()),
                  "failed to restore Auto: Ftst=0 failed (" + text + ")");
    }
}

TEST(Release, tellsWhatTheKernelSaid) {
    ControllerHarness harness;
    holdBothFans(harness);
    breakCalls(harness, "F0Md", 0, 0xE00002C2);
    breakCalls(harness, "F1Md", 0, 0xE00002C1);
    EXPECT_EQ(harness.run(harness.controller().restoreAuto()),
              "failed to restore Auto: F0Md=0 failed (IOConnectCallStructMethod failed: "
              "kern_return_t=0xe00002c2); F1Md=0 failed (not privileged (root required) for this "
              "SMC call)");
}

TEST(Release, refusedByForceTestAloneHoldsNothing) {
    ControllerHarness harness;
    holdBothFans(harness);
    refuse(harness, "Ftst", 0, 0x86);
    EXPECT_EQ(harness.run(harness.controller().restoreAuto()),
              "failed to restore Auto: Ftst=0 rejected (SMC 0x86)");
    ControlState state = ControlState::idle();
    state.lastError = "failed to restore Auto: Ftst=0 rejected (SMC 0x86)";
    EXPECT_THAT(harness.published, ElementsAre(state));
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
}

TEST(Release, refusedByAFanThatWasNeverClaimedHoldsNothing) {
    ControllerHarness harness(plainMachine(1));
    refuse(harness, "F0Md", 0, 0x86);
    (void)harness.run(harness.controller().restoreAllFansToAutomatic());
    EXPECT_FALSE(harness.state().isHolding);
    EXPECT_EQ(harness.state().lastError, "failed to restore Auto: F0Md=0 rejected (SMC 0x86)");
}

TEST(Release, thatSucceededLetsTheFanBeClaimedAnew) {
    ControllerHarness harness;
    holdBothFans(harness);
    (void)harness.run(harness.controller().restoreAuto());
    harness.writes.clear();
    (void)harness.run(harness.controller().setManual(0_fan, 3000_rpm));
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=1", "Ftst=1", "F0Md=1", "F0Tg=3000"));
}

TEST(Release, thatWasRefusedLeavesTheFanClaimed) {
    ControllerHarness harness;
    holdBothFans(harness);
    refuse(harness, "F0Md", 0, 0x86, 1s);
    (void)harness.run(harness.controller().restoreAuto());
    harness.writes.clear();
    (void)harness.run(harness.controller().setManual(0_fan, 3000_rpm));
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "Ftst=1", "F0Md=1", "F0Tg=3000"));
}

TEST(RestoreAuto, needsNotBeRoot) {
    ControllerHarness harness;
    holdBothFans(harness);
    harness.system.effectiveUserID = 501;
    EXPECT_EQ(harness.run(harness.controller().restoreAuto()), std::nullopt);
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
}

TEST(RestoreAuto, forgetsThePlan) {
    ControllerHarness harness;
    holdBothFans(harness);
    (void)harness.run(harness.controller().restoreAuto());
    (void)harness.run(harness.controller().setManual(1_fan, 2000_rpm));
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
    EXPECT_EQ(harness.state().targets, (std::map<std::int64_t, std::int64_t>{{1, 2000}}));
}

/// Stops a fan, gives it back by `release`, and asks for 0 % again: it must not be stopped at once.
void expectToForgetStoppedFans(ControllerHarness& harness, const std::function<void()>& release) {
    (void)harness.run(harness.controller().setPercent(0_fan, 0_percent));
    harness.advance(11s);
    ASSERT_EQ(harness.state().stoppedFans, std::vector<std::int64_t>{0});
    release();
    (void)harness.run(harness.controller().setPercent(0_fan, 0_percent));
    EXPECT_EQ(harness.state().stoppedFans, std::nullopt);
    EXPECT_EQ(harness.state().targets.at(0), 1200);
}

TEST(RestoreAuto, forgetsWhatTheEvaluatorRemembers) {
    ControllerHarness harness;
    expectToForgetStoppedFans(harness,
                              [&] { (void)harness.run(harness.controller().restoreAuto()); });
}

TEST(Automatic, givesEveryFanBackAndForgetsThePlan) {
    ControllerHarness harness;
    holdBothFans(harness);
    EXPECT_EQ(harness.run(harness.controller().automatic()), ControlResult::applied());
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=0", "F1Md=0", "Ftst=0"));
    EXPECT_THAT(harness.published, ElementsAre(ControlState::idle()));
    (void)harness.run(harness.controller().setManual(1_fan, 2000_rpm));
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
}

TEST(Automatic, forgetsWhatTheEvaluatorRemembers) {
    ControllerHarness harness;
    expectToForgetStoppedFans(harness,
                              [&] { (void)harness.run(harness.controller().automatic()); });
}

TEST(Automatic, failsWithTheTextOfTheRelease) {
    ControllerHarness harness;
    holdBothFans(harness);
    refuse(harness, "F1Md", 0, 0x86);
    EXPECT_EQ(harness.run(harness.controller().automatic()),
              ControlResult::failed("failed to restore Auto: F1Md=0 rejected (SMC 0x86)"));
}

TEST(Automatic, withoutRootTouchesNothing) {
    ControllerHarness harness;
    holdBothFans(harness);
    harness.reads.clear();
    harness.system.effectiveUserID = 501;
    EXPECT_EQ(harness.run(harness.controller().automatic()), ControlResult::notPrivileged());
    EXPECT_THAT(harness.writes, IsEmpty());
    EXPECT_THAT(harness.reads, IsEmpty());
    EXPECT_THAT(harness.published, IsEmpty());
    harness.advance(1500ms);  // the plan is held on
    EXPECT_THAT(harness.writes,
                ElementsAre("Ftst=1", "F0Md=1", "F0Tg=3000", "F1Md=1", "F1Tg=4000"));
}

}  // namespace
}  // namespace airflow::control
