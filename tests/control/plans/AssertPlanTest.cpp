// One control step by itself: what it writes, in which order, and that it never fails.
#include <limits>

#include "HoldHarness.h"

namespace airflow::control {
namespace {

using Fans = std::vector<std::int64_t>;

class AssertPlan : public testing::Test {
protected:
    explicit AssertPlan(simulation::MachineDescription machine = steadyMachine())
        : harness(std::move(machine), withoutJitter) {}

    /// A step with a snapshot of the machine's fans, this long after the first.
    Fans step(const std::vector<std::pair<std::int64_t, Mode>>& fans,
              concurrency::Seconds later = {}) {
        auto snapshot = harness.run(harness.system.sensors.snapshot());
        forget(harness);
        return harness.run(
            harness.controller().assertPlanOnce(planOf(fans), std::move(snapshot), start + later));
    }

    ControllerHarness harness;
    concurrency::Date start = std::chrono::sys_days(std::chrono::January / 2 / 2026);
};

TEST_F(AssertPlan, writesModeThenTargetAndReadsTheModeBackFanByFan) {
    (void)step({{0, rpm(3000)}, {1, rpm(4000)}});
    const auto requests = watchRequests(harness);
    EXPECT_THAT(step({{0, rpm(3000)}, {1, rpm(4000)}}), IsEmpty());
    const auto stepBegins = std::ranges::find(*requests, "Ftst=1");
    EXPECT_THAT(
        Texts(stepBegins, requests->end()),
        ElementsAre("Ftst=1", "F0Md=1", "F0Tg=3000", "F0Md", "F1Md=1", "F1Tg=4000", "F1Md"));
}

TEST_F(AssertPlan, releasesThenClaimsThenHolds) {
    (void)step({{0, rpm(3000)}});
    EXPECT_THAT(step({{1, rpm(4000)}}), IsEmpty());
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=0", "F1Md=1", "F1Md=1", "F1Tg=4000"));
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
    EXPECT_EQ(harness.mac().fan(1).mode, FanMode::forced);
    EXPECT_TRUE(harness.mac().forceTest());
}

TEST_F(AssertPlan, claimsAndReleasesAscending) {
    (void)step({{1, rpm(4000)}, {0, rpm(3000)}});
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=1", "F1Md=1", "F0Md=1", "F0Tg=3000",
                                            "F1Md=1", "F1Tg=4000"));
    (void)step({});
    EXPECT_THAT(harness.writes, ElementsAre("F0Md=0", "F1Md=0", "Ftst=0"));
}

TEST_F(AssertPlan, lowersForceTestWhileNothingIsHeldOrWanted) {
    EXPECT_THAT(step({{0, Mode::automatic()}}), IsEmpty());
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=0"));
}

TEST_F(AssertPlan, leavesForceTestRaisedWhileAFanRefusesToBeReleased) {
    (void)step({{0, rpm(3000)}});
    harness.mac().smc().add(refusal("F0Md", 0));
    (void)step({});
    EXPECT_THAT(harness.writes, ElementsAre("F0Md=0 (0x86)"));
    (void)step({});  // and tries again
    EXPECT_THAT(harness.writes, ElementsAre("F0Md=0 (0x86)"));
}

TEST_F(AssertPlan, leavesForceTestRaisedWhileAFanIsWantedThatCannotBeClaimed) {
    harness.mac().smc().add(refusal("F0Md", 1));
    (void)step({{0, rpm(3000)}});
    EXPECT_THAT(harness.writes, testing::Not(testing::Contains("Ftst=0")));
    EXPECT_TRUE(harness.mac().forceTest());
}

TEST_F(AssertPlan, keepsAFanClaimedWhoseReleaseDoesNotReachTheSMC) {
    (void)step({{0, rpm(3000)}});
    harness.mac().smc().add(failure("F0Md", 0));
    (void)step({});
    (void)step({});
    EXPECT_THAT(harness.writes, ElementsAre("F0Md=0 (failed)"));
}

TEST_F(AssertPlan, aReleasedFanIsClaimedAgainWhenItIsWanted) {
    (void)step({{0, rpm(3000)}});
    (void)step({});
    (void)step({{0, rpm(3000)}});
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=1", "F0Md=1", "F0Tg=3000"));
}

TEST_F(AssertPlan, aRefusedClaimIsDroppedAndTriedAgain) {
    harness.mac().smc().add(refusal("F0Md", 1, 0x86, 0s, 500ms));
    (void)step({{0, rpm(3000)}, {1, rpm(4000)}});
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
    EXPECT_EQ(harness.mac().fan(1).target, 4000);
    harness.advance(500ms);
    (void)step({{0, rpm(3000)}, {1, rpm(4000)}});
    EXPECT_EQ(harness.mac().fan(0).target, 3000);
}

TEST_F(AssertPlan, writesTheTargetAsThePlannerGivesIt) {
    (void)step({{0, percent(33)}});
    EXPECT_EQ(harness.mac().fan(0).target, 2784);  // 1200 + 0.33 * 4800
    (void)step({{0, rpm(2000.5)}});
    EXPECT_EQ(harness.mac().fan(0).target, 2000.5);
}

TEST_F(AssertPlan, holdsAStoppedFanAtZero) {
    (void)step({{0, percent(0)}});
    EXPECT_EQ(harness.mac().fan(0).target, 1200);
    (void)step({{0, percent(0)}}, concurrency::Seconds(10));
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=1", "F0Tg=0"));
}

TEST_F(AssertPlan, writesOnInSpiteOfEveryError) {
    (void)step({{0, rpm(3000)}});
    for (const auto& [key, value] : {std::pair("Ftst", 1.0), std::pair("F0Md", 1.0)}) {
        harness.mac().smc().add(failure(key, value));
    }
    harness.mac().smc().add(Fault{.key = "F0Tg", .result = 0x87});
    harness.mac().smc().add(
        Fault{.key = "F0Md", .operation = Fault::Operation::read, .result = 0x84});
    EXPECT_THAT(step({{0, rpm(3500)}}), IsEmpty());
    EXPECT_THAT(harness.writes,
                ElementsAre("Ftst=1 (failed)", "F0Md=1 (failed)", "F0Tg=3500 (0x87)"));
    EXPECT_EQ(harness.mac().fan(0).target, 3000);
}

TEST_F(AssertPlan, recordsATargetThatCouldNotBeWritten) {
    harness.mac().smc().add(failure("F0Tg", 3000));
    (void)harness.run(harness.controller().setManual(0_fan, 3000_rpm));
    const std::map<std::int64_t, std::int64_t> targets{{0, 3000}};
    EXPECT_EQ(harness.state().targets, targets);
    EXPECT_EQ(harness.mac().fan(0).target, 1200);
}

struct Rounding {
    double rpm;
    std::int64_t published;
};

class PublishedTarget : public AssertPlan, public testing::WithParamInterface<Rounding> {};

TEST_P(PublishedTarget, isRoundedHalfAwayFromZeroToANumberThatThereIs) {
    constexpr auto least = std::numeric_limits<std::int64_t>::min();
    constexpr auto largest = std::numeric_limits<std::int64_t>::max();
    const sensors::Fan boundless{
        .id = 0, .name = "", .currentRPM = 0, .minRPM = least, .maxRPM = largest, .mode = {}};
    (void)harness.run(harness.controller().assertPlanOnce(
        planOf({{0, rpm(GetParam().rpm)}}), {.fans = {boundless}, .temps = {}}, start));
    harness.mac().smc().add(refusal("F0Md", 0));  // so that the release publishes what is held
    (void)harness.run(harness.controller().restoreAuto());
    const std::map<std::int64_t, std::int64_t> targets{{0, GetParam().published}};
    EXPECT_EQ(harness.state().targets, targets);
}

INSTANTIATE_TEST_SUITE_P(Around, PublishedTarget,
                         testing::Values(Rounding{1499.4, 1499}, Rounding{1499.5, 1500},
                                         Rounding{1500.5, 1501}, Rounding{0.4, 0},
                                         Rounding{-0.4, 0}, Rounding{-0.5, -1},
                                         Rounding{1e300, 9223372036854775807},
                                         Rounding{-1e300, -9223372036854775807 - 1}));

class ReadBack : public AssertPlan, public testing::WithParamInterface<std::pair<double, bool>> {};

TEST_P(ReadBack, reportsFansInMode3Only) {
    (void)step({{0, rpm(3000)}, {1, rpm(3000)}});
    harness.mac().smc().add(misreading("F1Md", GetParam().first));
    const Fans expected = GetParam().second ? Fans{1} : Fans{};
    EXPECT_EQ(step({{0, rpm(3000)}, {1, rpm(3000)}}), expected);
}

INSTANTIATE_TEST_SUITE_P(Modes, ReadBack,
                         testing::Values(std::pair(0, false), std::pair(1, false),
                                         std::pair(2, false), std::pair(3, true),
                                         std::pair(4, false)));

TEST_F(AssertPlan, reportsEveryRevertedFanAscendingAndAssertsItOnEveryStep) {
    harness.mac().smc().add(misreading("F0Md", 3));
    harness.mac().smc().add(misreading("F1Md", 3));
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(step({{1, rpm(4000)}, {0, rpm(3000)}}), (Fans{0, 1}));
        EXPECT_THAT(harness.writes, testing::Contains("F0Md=1"));
        EXPECT_THAT(harness.writes, testing::Contains("F1Tg=4000"));
    }
}

/// A fan whose mode key is a floating-point number, and takes whatever is written.
class FloatingMode : public AssertPlan {
protected:
    FloatingMode() : AssertPlan(machine()) {
        harness.mac().smc().addNumber(
            "F0Md", "flt ", [this] { return mode; }, [](double) { return std::uint8_t{0}; });
    }

    double mode = 1;

private:
    static simulation::MachineDescription machine() {
        auto machine = steadyMachine(1);
        machine.fans[0].modeKey.reset();
        return machine;
    }
};

TEST_F(FloatingMode, countsByItsIntegerPart) {
    (void)step({{0, rpm(3000)}});
    for (const double reverted : {3.0, 3.5, 3.999}) {
        mode = reverted;
        EXPECT_EQ(step({{0, rpm(3000)}}), Fans{0});
    }
    for (const double other : {2.999, 4.0, -3.5, 1e300}) {
        mode = other;
        EXPECT_EQ(step({{0, rpm(3000)}}), Fans{});
    }
}

TEST_F(AssertPlan, aModeThatIsNoNumberIsNotReverted) {
    (void)step({{0, rpm(3000)}});
    harness.mac().smc().add(Fault{
        .key = "F0Md", .operation = Fault::Operation::information, .size = 1, .type = "ch8*"});
    EXPECT_THAT(step({{0, rpm(3000)}}), IsEmpty());
}

TEST_F(AssertPlan, skipsAFanWithoutAModeKey) {
    harness.mac().smc().add(missing("F0Md"));
    EXPECT_THAT(step({{0, rpm(3000)}, {1, rpm(4000)}}), IsEmpty());
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F1Md=1", "F1Md=1", "F1Tg=4000"));
}

TEST_F(AssertPlan, publishesTheModeOfTheFirstEntryWhenItClaims) {
    harness.mac().smc().add(refusal("F0Md", 1, 0x86, 0s, 1s));
    (void)harness.run(harness.controller().applyPlan(planOf({{0, percent(100)}, {0, rpm(3000)}})));
    harness.advance(3s);
    EXPECT_EQ(harness.state().perFanMode.at(0), ControlMode::fullBlast);
    EXPECT_EQ(harness.mac().fan(0).target, 3000);  // while of two decisions the last counts
}

}  // namespace
}  // namespace airflow::control
