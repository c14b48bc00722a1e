#include <cstdint>
#include <cstdio>
#include <limits>

#include "AccessLog.h"
#include "ScriptedSMC.h"

namespace airflow::control {
namespace {

using testing::ElementsAre;

simulation::MachineDescription oneFan(std::optional<std::string> modeKey) {
    auto machine = plainMachine(1);
    machine.fans[0].modeKey = std::move(modeKey);
    return machine;
}

std::vector<std::string> keysProbedInTwoRecoveries(simulation::MachineDescription machine) {
    ScriptedBench bench(std::move(machine));
    (void)bench.run(bench.controller->restoreAllFansToAutomatic());
    (void)bench.run(bench.controller->restoreAllFansToAutomatic());
    return bench.smc.reads;
}

TEST(ModeKey, isTriedInUpperCaseFirstAndOnceOnly) {
    EXPECT_THAT(keysProbedInTwoRecoveries(oneFan("F0Md")), ElementsAre("FNum", "F0Md", "FNum"));
}

TEST(ModeKey, isTriedInLowerCaseNextAndOnceOnly) {
    EXPECT_THAT(keysProbedInTwoRecoveries(oneFan("F0md")),
                ElementsAre("FNum", "F0Md", "F0md", "FNum"));
}

TEST(ModeKey, isProbedAgainWhileTheMachineHasNeither) {
    EXPECT_THAT(keysProbedInTwoRecoveries(oneFan(std::nullopt)),
                ElementsAre("FNum", "F0Md", "F0md", "FNum", "F0Md", "F0md"));
}

TEST(ModeKey, isFoundWhateverItHolds) {
    ScriptedBench bench(oneFan("F0Md"));
    bench.smc.readings["F0Md"] = smc::SMCValue::raw();
    (void)bench.run(bench.controller->restoreAllFansToAutomatic());
    EXPECT_THAT(bench.smc.reads, ElementsAre("FNum", "F0Md"));
}

TEST(ModeKey, isRememberedForEachFanOnItsOwn) {
    auto machine = plainMachine(2);
    machine.fans[1].modeKey = "F1md";
    EXPECT_THAT(keysProbedInTwoRecoveries(machine),
                ElementsAre("FNum", "F0Md", "F1Md", "F1md", "FNum"));
}

TEST(ModeKey, isTheOneThatIsWritten) {
    ControllerBench bench(oneFan("F0md"));
    EXPECT_EQ(bench.run(bench.controller().setManual(0, 3000)), ControlResult::applied());
    EXPECT_THAT(bench.writes, ElementsAre("Ftst=1", "F0md=1", "Ftst=1", "F0md=1", "F0Tg=3000"));
    EXPECT_EQ(bench.run(bench.controller().restoreAuto()), std::nullopt);
    EXPECT_EQ(bench.mac().fan(0).mode, simulation::FanMode::automatic);
}

TEST(ModeKey, whoseAbsenceFailsACommandWithBothNames) {
    auto machine = plainMachine(2);
    machine.fans[1].modeKey.reset();
    ControllerBench bench(machine);
    EXPECT_EQ(bench.run(bench.controller().setManual(1, 3000)),
              ControlResult::failed("neither F1Md nor F1md exists on this machine"));
}

TEST(ModeKey, thatAppearsLaterIsFoundThen) {
    ControllerBench bench(oneFan("F0Md"));
    bench.mac().smc().add(simulation::Fault{.until = 1s,
                                            .key = "F0Md",
                                            .operation = simulation::Fault::Operation::information,
                                            .result = simulation::SimulatedSMC::keyNotFound});
    EXPECT_EQ(bench.run(bench.controller().setManual(0, 3000)),
              ControlResult::failed("neither F0Md nor F0md exists on this machine"));
    bench.advance(1s);
    EXPECT_EQ(bench.run(bench.controller().setManual(0, 3000)), ControlResult::applied());
}

/// How many of three fans are looked for when "FNum" reads `count`.
std::size_t fansLookedFor(std::optional<smc::SMCValue> count) {
    ScriptedBench bench(plainMachine(3));
    bench.smc.readings["FNum"] = count;
    (void)bench.run(bench.controller->restoreAllFansToAutomatic());
    return bench.smc.reads.size() - 1;
}

TEST(FanCount, isTheWholePartOfTheNumberWhateverItsEncoding) {
    using smc::SMCValue;
    EXPECT_EQ(fansLookedFor(SMCValue::uint(2)), 2U);
    EXPECT_EQ(fansLookedFor(SMCValue::uint(0)), 0U);
    EXPECT_EQ(fansLookedFor(SMCValue::floating(1.0)), 1U);
    EXPECT_EQ(fansLookedFor(SMCValue::floating(2.99)), 2U);
    EXPECT_EQ(fansLookedFor(SMCValue::fixedPoint(2.75)), 2U);
    EXPECT_EQ(fansLookedFor(SMCValue::floating(-0.99)), 0U);
}

TEST(FanCount, belowZeroMeansNoFans) {
    EXPECT_EQ(fansLookedFor(smc::SMCValue::floating(-1)), 0U);
    EXPECT_EQ(fansLookedFor(smc::SMCValue::floating(-0x1p63)), 0U);
}

TEST(FanCount, isUnknownWhenItCannotBeReadOrIsNoNumber) {
    ScriptedBench bench(plainMachine(1));
    bench.smc.readings["FNum"] = std::nullopt;
    EXPECT_EQ(bench.run(bench.controller->fullBlast()),
              ControlResult::failed("could not read FNum"));
    bench.smc.readings["FNum"] = smc::SMCValue::raw();
    EXPECT_EQ(bench.run(bench.controller->fullBlast()),
              ControlResult::failed("could not read FNum"));
    EXPECT_EQ(bench.run(bench.controller->currentState()), ControlState::idle());
    EXPECT_FALSE(bench.system.mac.forceTest());
}

using FanCountDeathTest = testing::TestWithParam<double>;

TEST_P(FanCountDeathTest, thatIsNoCountStopsTheProcess) {
    ScriptedBench bench(plainMachine(1));
    bench.smc.readings["FNum"] = smc::SMCValue::floating(GetParam());
    EXPECT_DEATH((void)bench.run(bench.controller->fullBlast()),
                 "expected that FNum is a number of fans that fits 64 bits");
}

INSTANTIATE_TEST_SUITE_P(Table, FanCountDeathTest,
                         testing::Values(std::numeric_limits<double>::quiet_NaN(),
                                         std::numeric_limits<double>::infinity(),
                                         -std::numeric_limits<double>::infinity(), 0x1p63,
                                         -0x1.0000000000001p63));

/// Keys have four characters: "F10Md" and "F-1Md" are none.
class FanNumberDeathTest : public testing::TestWithParam<std::int64_t> {};

TEST_P(FanNumberDeathTest, thatDoesNotFitAKeyStopsTheProcess) {
    ControllerBench bench;
    EXPECT_DEATH((void)bench.run(bench.controller().setManual(GetParam(), 3000)),
                 testing::ContainsRegex("a four-character code must be four bytes long, "
                                        "\"F(10|-1)Md\" is 5"));
}

INSTANTIATE_TEST_SUITE_P(BesidesTheTenThatDo, FanNumberDeathTest, testing::Values(10, -1));

/// Ten fans are found and none has been given back when the process stops.
TEST(FanCountOverTenDeathTest, stopsStartUpRecoveryBeforeItWrites) {
    ControllerBench bench(plainMachine(10));
    bench.mac().smc().add(simulation::Fault{
        .key = "FNum", .operation = simulation::Fault::Operation::read, .reading = 11});
    auto& observer = bench.mac().smc().observer;
    observer = [](const simulation::SMCAccess& access) {
        // The process that stops is a child: only what it writes to standard error tells of it.
        if (access.operation == simulation::Fault::Operation::write) {
            std::fputs("a write\n", stderr);
        }
    };
    EXPECT_DEATH((void)bench.run(bench.controller().restoreAllFansToAutomatic()),
                 testing::AllOf(testing::HasSubstr("a four-character code must be four bytes long, "
                                                   "\"F10Md\" is 5"),
                                testing::Not(testing::HasSubstr("a write"))));
}

}  // namespace
}  // namespace airflow::control
