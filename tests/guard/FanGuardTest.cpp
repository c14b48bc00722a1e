// What the guard does to the machine: when it writes, what it reads, and whom it tells.
#include <fmt/format.h>
#include <gmock/gmock.h>

#include <chrono>

#include "guard/FanGuard.h"
#include "simulation/daemon/SimulatedSystem.h"

namespace airflow::guard {
namespace {

using namespace std::chrono_literals;
using simulation::FanMode;
using simulation::Fault;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

constexpr std::uint8_t refused = simulation::SimulatedMac::refused;

class FanGuardTest : public testing::Test {
protected:
    FanGuardTest() {
        system.mac.smc().observer = [this](const simulation::SMCAccess& access) {
            if (access.operation == Fault::Operation::read) reads.push_back(access.key);
            if (access.operation != Fault::Operation::write) return;
            writes.push_back(fmt::format("{}={}", access.key, access.value));
        };
    }
    ~FanGuardTest() override { system.runtime.abandon(); }

    /// As the controller writes, whose checks and clients the test plays.
    void write(const std::string& key, std::uint8_t value) {
        (void)system.runtime.run(gate.writeUInt8(key, value));
    }
    void force(std::int64_t fan) {
        write(fmt::format("F{}Md", fan), 1);
        writes.clear();
    }
    /// A driver that works on one slow request after the other, up to `until`.
    static concurrency::Task<void> keepDriverBusy(FanGuardTest& test, concurrency::Duration until) {
        while (test.system.elapsed() < until) (void)co_await test.gate.tryReadValue("FNum");
    }
    [[nodiscard]] FanMode mode(std::size_t fan) { return system.mac.fan(fan).mode; }

    std::vector<std::string> writes;
    std::vector<std::string> reads;
    std::vector<control::ControlError> causes;
    std::vector<std::int64_t> givenBack;
    std::vector<std::int64_t> givenBackAtOnce;  ///< before a release
    simulation::SimulatedSystem system{*simulation::machinePreset("laptop")};
    SMCGate gate{system.smc.executor(), system.smc, system.smc};
    FanGuard guard{
        system.runtime, gate,
        [this](control::ControlError cause, const auto& taken) {
            causes.push_back(std::move(cause));
            for (const auto& after : taken) givenBackAtOnce.push_back(after.fan);
        },
        [this](control::ControlledFans::Request after) { givenBack.push_back(after.fan); },
        [] { return std::uint64_t{0}; }};
};

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

TEST_F(FanGuardTest, isOneHoweverManyFansAreForced) {
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

/// A release that knows of no fan writes nothing else.
TEST_F(FanGuardTest, looksForHiddenFansTwoSecondsAfterForceTestWasRaisedAndLowered) {
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
TEST_F(FanGuardTest, doesNotLookForHiddenFansWhenForceTestIsOnlyLowered) {
    guard.begin();
    system.runtime.advance(12s);
    reads.clear();
    for (int tick = 0; tick < 3; ++tick) {
        write("Ftst", 0);
        system.runtime.advance(5s);
    }
    EXPECT_THAT(reads, IsEmpty());
}

TEST_F(FanGuardTest, doesNotLookForHiddenFansWhenForceTestIsOnlyRaised) {
    guard.begin();
    system.runtime.advance(12s);
    reads.clear();
    write("Ftst", 1);
    system.runtime.advance(5s);
    EXPECT_THAT(reads, IsEmpty());
}

/// Start-up recovery raises it and lowers it, too.
TEST_F(FanGuardTest, looksForNoFanBeforeItHasBegun) {
    write("Ftst", 1);
    write("Ftst", 0);
    EXPECT_THAT(system.runtime.pending(), Not(testing::HasSubstr("guard")));
    system.runtime.advance(10s);
    EXPECT_THAT(reads, IsEmpty());
}

TEST_F(FanGuardTest, leavesOutTheSnapshotOfAMachineWithVeryManyTemperatures) {
    force(0);
    for (int read = 0; read < 500; ++read) {
        (void)system.runtime.run(gate.tryReadValue("TC0P"));
        system.runtime.advance(20ms);
    }
    EXPECT_THAT(causes, IsEmpty());
}

TEST_F(FanGuardTest, findsAFanThatCouldNotBeReadAtFirst) {
    system.mac.setMode(0, FanMode::forced);
    system.mac.smc().add(
        Fault{.until = 3s, .key = "F0Md", .operation = Fault::Operation::read, .result = refused});
    guard.begin();
    system.runtime.advance(8s);
    EXPECT_EQ(mode(0), FanMode::automatic);
}

TEST_F(FanGuardTest, writesNothingWhereItFindsNoForcedFan) {
    system.mac.setMode(1, FanMode::reclaimed);
    guard.begin();
    system.runtime.advance(10s);
    EXPECT_THAT(reads, ElementsAre("F0Md", "F1Md"));
    EXPECT_THAT(writes, IsEmpty());
}

TEST_F(FanGuardTest, isOverOnceItHasLookedAtEveryFanThatThereMayBe) {
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
