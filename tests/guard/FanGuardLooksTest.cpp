// When the guard looks for fans that were left forced, and what it reads.
#include "FanGuardFixture.h"

namespace airflow::guard {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

using FanGuardLooks = FanGuardTest;

/// A release that knows of no fan writes nothing else.
TEST_F(FanGuardLooks, looksForHiddenFansTwoSecondsAfterForceTestWasRaisedAndLowered) {
    guard.begin();
    system.mac.setMode(1, FanMode::forced);
    system.mac.smc().add(Fault{.until = 10s,
                               .key = "F1Md",
                               .operation = Fault::Operation::information,
                               .result = std::uint8_t{0x84}});
    system.runtime.advance(12s);
    ASSERT_EQ(mode(1), FanMode::forced);
    write("Ftst", 1);
    write("Ftst", 0);
    system.runtime.advance(1900ms);
    EXPECT_EQ(mode(1), FanMode::forced);
    system.runtime.advance(1200ms);
    EXPECT_EQ(mode(1), FanMode::automatic);
}

/// As a plan does it that holds nothing any more.
TEST_F(FanGuardLooks, doesNotLookForHiddenFansWhenForceTestIsOnlyLowered) {
    guard.begin();
    system.runtime.advance(12s);
    reads.clear();
    for (int tick = 0; tick < 3; ++tick) {
        write("Ftst", 0);
        system.runtime.advance(5s);
    }
    EXPECT_THAT(reads, IsEmpty());
}

TEST_F(FanGuardLooks, doesNotLookForHiddenFansWhenForceTestIsOnlyRaised) {
    guard.begin();
    system.runtime.advance(12s);
    reads.clear();
    write("Ftst", 1);
    system.runtime.advance(5s);
    EXPECT_THAT(reads, IsEmpty());
}

/// Start-up recovery raises it and lowers it, too.
TEST_F(FanGuardLooks, looksForNoFanBeforeItHasBegun) {
    write("Ftst", 1);
    write("Ftst", 0);
    EXPECT_THAT(system.runtime.pending(), Not(testing::HasSubstr("guard")));
    system.runtime.advance(10s);
    EXPECT_THAT(reads, IsEmpty());
}

TEST_F(FanGuardLooks, findsAFanThatCouldNotBeReadAtFirst) {
    system.mac.setMode(0, FanMode::forced);
    system.mac.smc().add(
        Fault{.until = 3s, .key = "F0Md", .operation = Fault::Operation::read, .result = refused});
    guard.begin();
    system.runtime.advance(8s);
    EXPECT_EQ(mode(0), FanMode::automatic);
}

TEST_F(FanGuardLooks, writesNothingWhereItFindsNoForcedFan) {
    system.mac.setMode(1, FanMode::reclaimed);
    guard.begin();
    system.runtime.advance(10s);
    EXPECT_THAT(reads, ElementsAre("F0Md", "F1Md"));
    EXPECT_THAT(writes, IsEmpty());
}

TEST_F(FanGuardLooks, isOverOnceItHasLookedAtEveryFanThatThereMayBe) {
    int asked = 0;
    guard.begin();
    system.runtime.advance(5s);
    system.mac.smc().observer = [&asked](const simulation::SMCAccess&) { ++asked; };
    system.runtime.advance(1min);
    EXPECT_EQ(asked, 0);
    EXPECT_THAT(system.runtime.pending(), Not(testing::HasSubstr("guard")));
}

}  // namespace
}  // namespace airflow::guard
