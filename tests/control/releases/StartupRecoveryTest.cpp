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
    ControllerBench bench(machine);
    EXPECT_EQ(bench.run(bench.controller().restoreAllFansToAutomatic()), std::nullopt);
    EXPECT_THAT(bench.writes, ElementsAre("Ftst=1", "F0Md=0", "F1Md=0", "Ftst=0"));
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);
    EXPECT_EQ(bench.mac().fan(1).mode, FanMode::automatic);
    EXPECT_THAT(bench.published, ElementsAre(ControlState::idle()));
}

TEST(StartupRecovery, writesNothingWhenFNumCannotBeRead) {
    ControllerBench bench;
    bench.mac().smc().add(Fault{.key = "FNum",
                                .operation = Fault::Operation::information,
                                .result = simulation::SimulatedSMC::keyNotFound});
    EXPECT_EQ(bench.run(bench.controller().restoreAllFansToAutomatic()),
              "could not read FNum during startup recovery");
    EXPECT_THAT(bench.writes, IsEmpty());
    EXPECT_THAT(bench.published, IsEmpty());
}

TEST(StartupRecovery, writesNothingWhenFNumIsNoNumber) {
    ControllerBench bench;
    bench.mac().smc().add(
        Fault{.key = "FNum", .operation = Fault::Operation::information, .type = "ch8*"});
    EXPECT_EQ(bench.run(bench.controller().restoreAllFansToAutomatic()),
              "could not read FNum during startup recovery");
    EXPECT_THAT(bench.writes, IsEmpty());
}

TEST(StartupRecovery, skipsFansWithoutAModeKey) {
    auto machine = plainMachine(3);
    machine.fans[1].modeKey.reset();
    machine.fans[2].mode = 1;
    ControllerBench bench(machine);
    EXPECT_EQ(bench.run(bench.controller().restoreAllFansToAutomatic()), std::nullopt);
    EXPECT_THAT(bench.writes, ElementsAre("Ftst=1", "F0Md=0", "F2Md=0", "Ftst=0"));
    EXPECT_EQ(bench.mac().fan(2).mode, FanMode::automatic);
}

TEST(StartupRecovery, ofAMachineWithoutFansLowersForceTest) {
    ControllerBench bench(plainMachine(0));
    EXPECT_EQ(bench.run(bench.controller().restoreAllFansToAutomatic()), std::nullopt);
    EXPECT_THAT(bench.writes, ElementsAre("Ftst=1", "Ftst=0"));
}

TEST(StartupRecovery, needsNotBeRoot) {
    ControllerBench bench(plainMachine(1), {.effectiveUserID = 501});
    EXPECT_EQ(bench.run(bench.controller().restoreAllFansToAutomatic()), std::nullopt);
    EXPECT_THAT(bench.writes, ElementsAre("Ftst=1", "F0Md=0", "Ftst=0"));
}

TEST(StartupRecovery, thatIsRefusedIsRetriedUntilTheFanIsBack) {
    auto machine = plainMachine(2);
    machine.fans[0].mode = 1;
    machine.fans[1].mode = 1;
    ControllerBench bench(machine);
    refuse(bench, "F1Md", 0, 0x86, 5s);
    EXPECT_EQ(bench.run(bench.controller().restoreAllFansToAutomatic()),
              "failed to restore Auto: F1Md=0 rejected (SMC 0x86)");
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);
    bench.advance(6s);
    EXPECT_EQ(bench.mac().fan(1).mode, FanMode::automatic);
}

}  // namespace
}  // namespace airflow::control
