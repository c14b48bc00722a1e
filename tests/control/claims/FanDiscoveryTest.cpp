#include <cstdint>
#include <limits>

#include "AccessLog.h"
#include "ScriptedSMC.h"
#include "support/Doubles.h"

namespace airflow::control {
namespace {

using testing::ElementsAre;
using tests::infinity;
using tests::notANumber;

simulation::MachineDescription oneFan(std::optional<std::string> modeKey) {
    auto machine = plainMachine(1);
    machine.fans[0].modeKey = std::move(modeKey);
    return machine;
}

std::vector<std::string> keysProbedInTwoRecoveries(simulation::MachineDescription machine) {
    ScriptedHarness harness(std::move(machine));
    (void)harness.run(harness.controller->restoreAllFansToAutomatic());
    (void)harness.run(harness.controller->restoreAllFansToAutomatic());
    return harness.smc.reads;
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
    ScriptedHarness harness(oneFan("F0Md"));
    harness.smc.readings["F0Md"] = smc::SMCValue::raw();
    (void)harness.run(harness.controller->restoreAllFansToAutomatic());
    EXPECT_THAT(harness.smc.reads, ElementsAre("FNum", "F0Md"));
}

TEST(ModeKey, isRememberedForEachFanOnItsOwn) {
    auto machine = plainMachine(2);
    machine.fans[1].modeKey = "F1md";
    EXPECT_THAT(keysProbedInTwoRecoveries(machine),
                ElementsAre("FNum", "F0Md", "F1Md", "F1md", "FNum"));
}

TEST(ModeKey, isTheOneThatIsWritten) {
    ControllerHarness harness(oneFan("F0md"));
    EXPECT_EQ(harness.run(harness.controller().setManual(0_fan, 3000_rpm)),
              ControlResult::applied());
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0md=1", "Ftst=1", "F0md=1", "F0Tg=3000"));
    EXPECT_EQ(harness.run(harness.controller().restoreAuto()), std::nullopt);
    EXPECT_EQ(harness.mac().fan(0).mode, simulation::FanMode::automatic);
}

TEST(ModeKey, whoseAbsenceFailsACommandWithBothNames) {
    auto machine = plainMachine(2);
    machine.fans[1].modeKey.reset();
    ControllerHarness harness(machine);
    EXPECT_EQ(harness.run(harness.controller().setManual(1_fan, 3000_rpm)),
              ControlResult::failed("neither F1Md nor F1md exists on this machine"));
}

TEST(ModeKey, thatAppearsLaterIsFoundThen) {
    ControllerHarness harness(oneFan("F0Md"));
    harness.mac().smc().add(
        simulation::Fault{.until = 1s,
                          .key = "F0Md",
                          .operation = simulation::Fault::Operation::information,
                          .result = simulation::SimulatedSMC::keyNotFound});
    EXPECT_EQ(harness.run(harness.controller().setManual(0_fan, 3000_rpm)),
              ControlResult::failed("neither F0Md nor F0md exists on this machine"));
    harness.advance(1s);
    EXPECT_EQ(harness.run(harness.controller().setManual(0_fan, 3000_rpm)),
              ControlResult::applied());
}

/// How many of three fans are looked for when "FNum" reads `count`.
std::size_t fansLookedFor(std::optional<smc::SMCValue> count) {
    ScriptedHarness harness(plainMachine(3));
    harness.smc.readings["FNum"] = count;
    (void)harness.run(harness.controller->restoreAllFansToAutomatic());
    return harness.smc.reads.size() - 1;
}

/// How many fans fullBlast() plans for, each of which the machine does not have.
std::int64_t fansNamed(smc::SMCValue count) {
    ScriptedHarness harness(plainMachine(0));
    harness.smc.readings["FNum"] = count;
    const auto result = harness.run(harness.controller->fullBlast());
    for (std::int64_t fans = 1; fans <= 100; ++fans) {
        const auto last = fmt::format("neither F{0}Md nor F{0}md exists on this machine", fans - 1);
        if (result == ControlResult::failed(last)) return fans;
    }
    return result.isApplied() ? 0 : -1;
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
    ScriptedHarness harness(plainMachine(1));
    harness.smc.readings["FNum"] = std::nullopt;
    EXPECT_EQ(harness.run(harness.controller->fullBlast()),
              ControlResult::failed("could not read FNum"));
    harness.smc.readings["FNum"] = smc::SMCValue::raw();
    EXPECT_EQ(harness.run(harness.controller->fullBlast()),
              ControlResult::failed("could not read FNum"));
    EXPECT_EQ(harness.run(harness.controller->currentState()), ControlState::idle());
    EXPECT_FALSE(harness.system.mac.forceTest());
}

TEST(FanCount, beyondTheTenThatKeysCanNameIsTen) {
    using smc::SMCValue;
    for (const double count : {10.0, 10.99, 11.0, 300.0, 3e9, 0x1p63, infinity}) {
        EXPECT_EQ(fansNamed(SMCValue::floating(count)), 10) << count;
    }
    EXPECT_EQ(fansNamed(SMCValue::floating(9.99)), 9);
    EXPECT_EQ(fansNamed(SMCValue::uint(300)), 10);
}

TEST(FanCount, belowEveryNumberMeansNoFansToo) {
    EXPECT_EQ(fansNamed(smc::SMCValue::floating(-infinity)), 0);
    EXPECT_EQ(fansNamed(smc::SMCValue::floating(-0x1.0000000000001p63)), 0);
}

TEST(FanCount, thatIsNotANumberIsUnreadable) {
    ScriptedHarness harness(plainMachine(1));
    harness.smc.readings["FNum"] = smc::SMCValue::floating(notANumber);
    EXPECT_EQ(harness.run(harness.controller->fullBlast()),
              ControlResult::failed("could not read FNum"));
    EXPECT_EQ(harness.run(harness.controller->restoreAllFansToAutomatic()),
              "could not read FNum during startup recovery");
    EXPECT_THAT(harness.smc.reads, ElementsAre("FNum", "FNum"));
}

TEST(FanCount, ofElevenLetsStartUpRecoveryGiveTenFansBack) {
    ScriptedHarness harness(plainMachine(10));
    harness.smc.readings["FNum"] = smc::SMCValue::uint(11);
    for (std::size_t fan = 0; fan < 10; ++fan) {
        (void)harness.run(harness.system.smc.writeUInt8(simulation::upperModeKey(fan), 1));
    }
    EXPECT_EQ(harness.run(harness.controller->restoreAllFansToAutomatic()), std::nullopt);
    for (std::size_t fan = 0; fan < 10; ++fan) {
        EXPECT_EQ(harness.system.mac.fan(fan).mode, simulation::FanMode::automatic) << fan;
    }
}

/// Keys have four characters: "F10Md" and "F-1Md" are none.
class FanWithoutAName : public testing::TestWithParam<std::int64_t> {};

TEST_P(FanWithoutAName, isOneThatTheMachineDoesNotHave) {
    ScriptedHarness harness(plainMachine(1));
    const auto result =
        harness.run(harness.controller->setManual(numbers::FanIndex(GetParam()), 3000_rpm));
    EXPECT_EQ(result, ControlResult::failed(fmt::format(
                          "neither F{0}Md nor F{0}md exists on this machine", GetParam())));
    harness.system.runtime.advance(5s);  // the steps of its plan, too
    EXPECT_THAT(harness.smc.reads, testing::IsEmpty());
}

TEST_P(FanWithoutAName, doesNotKeepTheOthersFromBeingHeld) {
    ControllerHarness harness;
    (void)harness.run(harness.controller().setManual(numbers::FanIndex(GetParam()), 3000_rpm));
    EXPECT_FALSE(harness.run(harness.controller().setPercent(0_fan, 50_percent)).isApplied());
    EXPECT_EQ(harness.mac().fan(0).mode, simulation::FanMode::forced);
}

INSTANTIATE_TEST_SUITE_P(BesidesTheTenThatHaveOne, FanWithoutAName,
                         testing::Values(10, -1, 100, std::numeric_limits<std::int64_t>::max(),
                                         std::numeric_limits<std::int64_t>::min()));

TEST(FanWithTheHighestNumber, isHeld) {
    ControllerHarness harness(plainMachine(10));
    EXPECT_EQ(harness.run(harness.controller().setManual(9_fan, 3000_rpm)),
              ControlResult::applied());
    EXPECT_EQ(harness.mac().fan(9).mode, simulation::FanMode::forced);
}

}  // namespace
}  // namespace airflow::control
