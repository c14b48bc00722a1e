// What the guard does to the machine: when it writes, and whom it tells.
#include "FanGuardFixture.h"

namespace airflow::guard {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

TEST_F(FanGuardTest, givesEveryFanBackWhenTheChecksAreOverdue) {
    write("F1Md", 1);
    force(0);
    system.runtime.advance(8s);
    EXPECT_THAT(writes, IsEmpty());
    system.runtime.advance(1s);
    EXPECT_THAT(writes, ElementsAre("Ftst=1", "F0Md=0", "F1Md=0", "Ftst=0"));
    EXPECT_THAT(causes, ElementsAre(control::ControlError(control::ChecksOverdue{})));
    EXPECT_EQ(mode(0), FanMode::automatic);
    EXPECT_EQ(mode(1), FanMode::automatic);
}

TEST_F(FanGuardTest, tellsWithTheReleaseWhichFansTheSMCTook) {
    system.mac.smc().add(Fault{.key = "F0Md", .value = 0, .result = refused});
    write("F1Md", 1);
    force(0);
    system.runtime.advance(9s);
    EXPECT_THAT(givenBackAtOnce, ElementsAre(1));
}

TEST_F(FanGuardTest, leavesForceTestRaisedForAFanThatRefuses) {
    system.mac.smc().add(Fault{.key = "F0Md", .value = 0, .result = refused});
    force(0);
    system.runtime.advance(9s);
    EXPECT_THAT(writes, ElementsAre("Ftst=1", "F0Md=0"));
    EXPECT_EQ(mode(0), FanMode::forced);
}

TEST_F(FanGuardTest, forgetsASilenceThatItHasEnded) {
    force(0);
    for (int second = 0; second < 22; ++second) {
        guard.checked();
        write("F0Md", 1);
        system.runtime.advance(1s);
    }
    ASSERT_THAT(causes, ElementsAre(control::ControlError(control::HeartbeatLost{})));
    write("F0Md", 1);
    guard.checked();
    system.runtime.advance(4s);
    EXPECT_EQ(causes.size(), 1U);
    EXPECT_EQ(mode(0), FanMode::forced);
}

TEST_F(FanGuardTest, leavesEverythingToAnExitThatBeginsBeforeItsTurn) {
    force(0);
    system.mac.smc().add(Fault{.key = "FNum", .operation = Fault::Operation::read, .latency = 1s});
    system.runtime.advance(8900ms);
    system.runtime.detach("slow", keepDriverBusy(*this, 9s));
    system.runtime.advance(500ms);
    gate.closeForExit();
    system.runtime.advance(5s);
    EXPECT_THAT(causes, ElementsAre(control::ControlError(control::ChecksOverdue{})));
    EXPECT_THAT(writes, IsEmpty());
}

/// What raises "Ftst" is withheld then, and what gives fans back is not.
TEST_F(FanGuardTest, givesEveryFanBackAlthoughTheLastClientLeavesBeforeItsTurn) {
    gate.enter();
    force(0);
    system.mac.smc().add(Fault{.key = "FNum", .operation = Fault::Operation::read, .latency = 1s});
    system.runtime.advance(8900ms);
    system.runtime.detach("slow", keepDriverBusy(*this, 9s));
    system.runtime.advance(500ms);
    (void)gate.leave();
    system.runtime.advance(5s);
    EXPECT_THAT(causes, ElementsAre(control::ControlError(control::ChecksOverdue{})));
    EXPECT_THAT(writes, ElementsAre("F0Md=0", "Ftst=0"));
    EXPECT_EQ(mode(0), FanMode::automatic);
}

TEST_F(FanGuardTest, watchesAgainAfterAWhileWithoutForcedFans) {
    force(0);
    write("F0Md", 0);
    system.runtime.advance(1min);
    force(0);
    system.runtime.advance(9s);
    EXPECT_EQ(mode(0), FanMode::automatic);
}

TEST_F(FanGuardTest, watchesOnceHoweverManyFansAreForced) {
    write("F0Md", 1);
    write("F1Md", 1);
    const std::string pending = system.runtime.pending();
    const auto first = pending.find("guard");
    ASSERT_NE(first, std::string::npos);
    EXPECT_THAT(pending.substr(first + 5), Not(testing::HasSubstr("\nguard")));
}

TEST_F(FanGuardTest, doesNotCountTheTimeOfARequestThatTheDriverIsAtWorkOn) {
    system.mac.smc().add(Fault{.key = "FNum", .operation = Fault::Operation::read, .latency = 20s});
    force(0);
    system.runtime.detach("slow", keepDriverBusy(*this, 1s));
    system.runtime.advance(19s);
    EXPECT_THAT(causes, IsEmpty());
}

TEST_F(FanGuardTest, doesNotCountTheTimeOfRequestsThatTheDriverHasAnswered) {
    system.mac.smc().add(
        Fault{.key = "FNum", .operation = Fault::Operation::read, .latency = 700ms});
    force(0);
    system.runtime.detach("slow", keepDriverBusy(*this, 19s));
    system.runtime.advance(19s);
    EXPECT_THAT(causes, IsEmpty());
}

TEST_F(FanGuardTest, asksAFanThatWasLeftForcedAgainAfterTwoSecondsWhenItRefuses) {
    system.mac.setMode(0, FanMode::forced);
    system.mac.smc().add(Fault{.until = 5s, .key = "F0Md", .value = 0, .result = refused});
    guard.begin();
    system.runtime.advance(8s);
    EXPECT_EQ(mode(0), FanMode::automatic);
    EXPECT_THAT(causes, IsEmpty());
}

/// A fan that refuses a release of the controller has ten seconds.
TEST_F(FanGuardTest, asksAFanThatRefusesAgainAfterTwoSecondsWhenChecksWereOverdue) {
    guard.begin();
    system.runtime.advance(5s);
    force(0);
    system.mac.smc().add(Fault{.until = 14500ms, .key = "F0Md", .value = 0, .result = refused});
    system.runtime.advance(9s);
    ASSERT_THAT(causes, ElementsAre(control::ControlError(control::ChecksOverdue{})));
    EXPECT_EQ(mode(0), FanMode::forced);
    system.runtime.advance(3s);
    EXPECT_EQ(mode(0), FanMode::automatic);
    EXPECT_EQ(causes.size(), 1U);
}

TEST_F(FanGuardTest, tellsOfAFanThatItHasGivenBack) {
    system.mac.setMode(0, FanMode::forced);
    guard.begin();
    system.runtime.advance(3s);
    EXPECT_EQ(mode(0), FanMode::automatic);
    EXPECT_THAT(givenBack, ElementsAre(0));
}

TEST_F(FanGuardTest, tellsOfNoFanThatRefuses) {
    system.mac.setMode(0, FanMode::forced);
    system.mac.smc().add(Fault{.key = "F0Md", .value = 0, .result = refused});
    guard.begin();
    system.runtime.advance(6s);
    EXPECT_THAT(writes, testing::Contains("F0Md=0"));
    EXPECT_THAT(givenBack, IsEmpty());
}

TEST_F(FanGuardTest, leavesAHeldFanAloneWhenItGivesBackAnotherOne) {
    guard.begin();
    force(1);
    system.mac.setMode(0, FanMode::forced);
    for (int second = 0; second < 8; ++second) {
        write("F1Md", 1);
        guard.checked();
        guard.heard();
        system.runtime.advance(1s);
    }
    EXPECT_EQ(mode(0), FanMode::automatic);
    EXPECT_EQ(mode(1), FanMode::forced);
    EXPECT_THAT(givenBack, ElementsAre(0));
}

/// "Ftst" waits for the driver, which another request keeps busy when the exit begins.
TEST_F(FanGuardTest, tellsOfNoFanThatItLeavesToAnExit) {
    system.mac.setMode(0, FanMode::forced);
    system.mac.smc().add(
        Fault{.key = "F0Md", .operation = Fault::Operation::read, .latency = 500ms});
    system.mac.smc().add(Fault{.key = "FNum", .operation = Fault::Operation::read, .latency = 1s});
    bool hasActed = false;
    guard.acting = [&hasActed] { hasActed = true; };
    guard.begin();
    system.runtime.advance(2200ms);
    system.runtime.detach("slow", keepDriverBusy(*this, 2300ms));
    system.runtime.advance(500ms);
    ASSERT_TRUE(hasActed);
    gate.closeForExit();
    system.runtime.advance(1500ms);
    EXPECT_THAT(writes, IsEmpty());
    EXPECT_THAT(givenBack, IsEmpty());
    EXPECT_EQ(mode(0), FanMode::forced);
}

TEST_F(FanGuardTest, leavesOutTheSnapshotOfAMachineWithVeryManyTemperatures) {
    force(0);
    for (int read = 0; read < 500; ++read) {
        (void)system.runtime.run(gate.tryReadValue("TC0P"));
        system.runtime.advance(20ms);
    }
    EXPECT_THAT(causes, IsEmpty());
}

}  // namespace
}  // namespace airflow::guard
