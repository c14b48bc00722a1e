#include "AccessLog.h"

namespace airflow::control {
namespace {

using simulation::FanMode;
using simulation::Fault;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(StartupRecovery, givesBackWhatAnEarlierProcessLeftForced) {
    auto machine = plainMachine(2);
    machine.fans[0].mode = 1;
    machine.fans[1].mode = 1;
    ControllerHarness harness(machine);
    EXPECT_EQ(harness.run(harness.controller().restoreAllFansToAutomatic()), std::nullopt);
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=0", "F1Md=0", "Ftst=0"));
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
    EXPECT_EQ(harness.mac().fan(1).mode, FanMode::automatic);
    EXPECT_THAT(harness.published, ElementsAre(ControlState::idle()));
}

TEST(StartupRecovery, writesNothingWhenFNumCannotBeRead) {
    ControllerHarness harness;
    harness.mac().smc().add(Fault{.key = "FNum",
                                  .operation = Fault::Operation::information,
                                  .result = simulation::SimulatedSMC::keyNotFound});
    EXPECT_EQ(harness.run(harness.controller().restoreAllFansToAutomatic()),
              "could not read FNum during startup recovery");
    EXPECT_THAT(harness.writes, IsEmpty());
    EXPECT_THAT(harness.published, IsEmpty());
}

TEST(StartupRecovery, writesNothingWhenFNumIsNoNumber) {
    ControllerHarness harness;
    harness.mac().smc().add(
        Fault{.key = "FNum", .operation = Fault::Operation::information, .type = "ch8*"});
    EXPECT_EQ(harness.run(harness.controller().restoreAllFansToAutomatic()),
              "could not read FNum during startup recovery");
    EXPECT_THAT(harness.writes, IsEmpty());
}

TEST(StartupRecovery, skipsFansWithoutAModeKey) {
    auto machine = plainMachine(3);
    machine.fans[1].modeKey.reset();
    machine.fans[2].mode = 1;
    ControllerHarness harness(machine);
    EXPECT_EQ(harness.run(harness.controller().restoreAllFansToAutomatic()), std::nullopt);
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=0", "F2Md=0", "Ftst=0"));
    EXPECT_EQ(harness.mac().fan(2).mode, FanMode::automatic);
}

TEST(StartupRecovery, ofAMachineWithoutFansLowersForceTest) {
    ControllerHarness harness(plainMachine(0));
    EXPECT_EQ(harness.run(harness.controller().restoreAllFansToAutomatic()), std::nullopt);
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "Ftst=0"));
}

TEST(StartupRecovery, needsNotBeRoot) {
    ControllerHarness harness(plainMachine(1), {.effectiveUserID = 501});
    EXPECT_EQ(harness.run(harness.controller().restoreAllFansToAutomatic()), std::nullopt);
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=0", "Ftst=0"));
}

TEST(StartupRecovery, thatIsRefusedIsRetriedUntilTheFanIsBack) {
    auto machine = plainMachine(2);
    machine.fans[0].mode = 1;
    machine.fans[1].mode = 1;
    ControllerHarness harness(machine);
    refuse(harness, "F1Md", 0, 0x86, 5s);
    EXPECT_EQ(harness.run(harness.controller().restoreAllFansToAutomatic()),
              "failed to restore Auto: F1Md=0 rejected (SMC 0x86)");
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
    harness.advance(6s);
    EXPECT_EQ(harness.mac().fan(1).mode, FanMode::automatic);
}

}  // namespace
}  // namespace airflow::control
