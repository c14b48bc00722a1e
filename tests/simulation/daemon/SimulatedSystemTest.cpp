// The simulated Mac below the code that runs on a real one.
#include <gmock/gmock.h>

#include <cmath>

#include "simulation/daemon/SimulatedSystem.h"
#include "support/Doubles.h"

namespace airflow::simulation {
namespace {

using tests::infinity;
using namespace std::chrono_literals;
using concurrency::Task;
using sensors::SensorSnapshot;
using testing::ElementsAre;
using testing::IsEmpty;
using Operation = Fault::Operation;

class SimulatedSystemTest : public testing::TestWithParam<std::uint64_t> {
protected:
    void usePreset(const std::string& name) {
        system.emplace(*machinePreset(name), SimulatedSystem::Options{.seed = GetParam()});
        system->mac.smc().observer = [this](const SMCAccess& access) {
            const bool isShown = access.operation == Operation::write || access.key == "TCHP";
            if (!isShown || access.operation == Operation::information) return;
            events.push_back(std::to_string(access.time / 1ms) + " ms: " + access.key);
        };
    }
    void add(Fault fault) { system->mac.smc().add(fault); }
    SensorSnapshot snapshot() { return system->runtime.run(system->sensors.snapshot()); }

    static Task<void> take(SimulatedSystemTest& test) {
        test.taken = co_await test.system->sensors.snapshot();
    }
    static Task<void> writeMode(SimulatedSystemTest& test) {
        (void)co_await test.system->smc.writeUInt8("F0Md", 1);
    }
    static Task<void> writeTargets(SimulatedSystemTest& test) {
        for (int i = 0; i < 4; ++i) {
            (void)co_await test.system->smc.writeFloat("F0Tg", 2000 + i);
            co_await test.system->runtime.sleepFor(25ms);
        }
    }

    std::optional<SimulatedSystem> system;
    std::optional<SensorSnapshot> taken;
    std::vector<std::string> events;
};

TEST_P(SimulatedSystemTest, aSnapshotTakesEightyMillisecondsWhileWritesGoOn) {
    usePreset("laptop");
    system->runtime.detach("snapshot", take(*this));
    system->runtime.detach("writes", writeTargets(*this));
    system->runtime.advance(80ms - 1ns);
    EXPECT_FALSE(taken);
    system->runtime.advance(1ns);
    ASSERT_TRUE(taken);
    EXPECT_EQ(taken->timestamp, system->runtime.date());
    EXPECT_EQ(taken->temps.size(), 4u);
    EXPECT_THAT(events, ElementsAre("0 ms: F0Tg", "25 ms: F0Tg", "50 ms: F0Tg", "75 ms: F0Tg"));
}

TEST_P(SimulatedSystemTest, aWriteHappensBetweenTwoReadsOfASnapshot) {
    usePreset("no-hid");
    system->runtime.detach("snapshot", take(*this));
    system->runtime.advance(20ms);
    system->runtime.detach("write", writeMode(*this));
    system->runtime.settle();
    EXPECT_EQ(system->mac.fan(0).mode, FanMode::forced);
    system->runtime.advance(1s);
    ASSERT_TRUE(taken);
    EXPECT_EQ(taken->fans[0].mode, 0) << "the fans had been read before";
    EXPECT_THAT(events,
                ElementsAre("0 ms: TCHP", "0 ms: TCHP", "0 ms: TCHP", "20 ms: F0Md", "40 ms: TCHP"))
        << "enumerated, tried, and read twice";
}

TEST_P(SimulatedSystemTest, aSpeedThatIsNoNumberIsZero) {
    usePreset("laptop");
    add({.key = "F0Ac", .operation = Operation::read, .reading = std::nan("")});
    add({.key = "F1Ac", .operation = Operation::read, .reading = infinity});
    EXPECT_EQ(snapshot().fans[0].currentRPM, 0);
    EXPECT_EQ(snapshot().fans[1].currentRPM, 0);
    EXPECT_EQ(system->mac.fan(0).speed, 1200) << "the truth is another";
}

TEST_P(SimulatedSystemTest, aFalseSizeOrTypeMakesAValueUnreadableOrWrong) {
    usePreset("laptop");
    add({.key = "F0Ac", .operation = Operation::information, .size = 2});
    add({.key = "F0Mn", .operation = Operation::information, .size = 64});
    add({.key = "F0Mx", .operation = Operation::information, .type = "ui32"});
    add({.key = "F1Ac", .operation = Operation::information, .type = "{jst"});
    const SensorSnapshot seen = snapshot();
    EXPECT_EQ(seen.fans[0].currentRPM, 0);
    EXPECT_EQ(seen.fans[0].minRPM, 1200);
    EXPECT_EQ(seen.fans[0].maxRPM, 0x0080BB45);
    EXPECT_EQ(seen.fans[1].currentRPM, 0);
    EXPECT_EQ(seen.fans[1].minRPM, 1200);
}

TEST_P(SimulatedSystemTest, aKeyThatVanishesForAWhileIsAbsentForAsLong) {
    usePreset("laptop");
    add({.from = 1s,
         .until = 2s,
         .key = "F0Md",
         .operation = Operation::information,
         .result = 0x84});
    EXPECT_EQ(snapshot().fans[0].mode, 0);
    system->runtime.advance(1s - system->elapsed());
    EXPECT_EQ(snapshot().fans[0].mode, std::nullopt);
    system->runtime.advance(2s - system->elapsed());
    EXPECT_EQ(snapshot().fans[0].mode, 0);
}

TEST_P(SimulatedSystemTest, temperaturesThatVanishAreAbsent) {
    usePreset("laptop");
    auto& mac = system->mac;
    mac.setHID(Temperatures{{"PMU tdie1", 45}, {"GPU", 42}, {"CPU", 44}});
    EXPECT_EQ(snapshot().temps.size(), 3u);
    mac.setHIDTemperature("CPU", std::nan(""));
    EXPECT_EQ(snapshot().temps.size(), 2u);
    mac.setHIDTemperature("GPU", infinity);
    EXPECT_EQ(snapshot().temps.size(), 1u);
    mac.setHID(Temperatures{{"GPU", 43}});
    EXPECT_EQ(snapshot().temps.at(0).name, "GPU (GPU)");
    mac.setHID(std::nullopt);
    const SensorSnapshot fallback = snapshot();
    EXPECT_EQ(fallback.temps.size(), 6u);
    EXPECT_EQ(fallback.temps[0].source, sensors::SensorSource::smc);
    EXPECT_EQ(system->standardError.lines.size(), 1u);
}

TEST_P(SimulatedSystemTest, aKeyThatHoldsNoNumberIsNoTemperature) {
    usePreset("no-hid");
    system->mac.smc().add({.name = "TGxx",
                           .type = "ch8*",
                           .size = 6,
                           .read = [] { return smc::SMCBytes{}; },
                           .write = {}});
    add({.key = "TB0T", .operation = Operation::enumeration, .result = 0x81});
    const auto keys = system->runtime.run(system->smc.discoverTempKeys());
    EXPECT_THAT(keys, ElementsAre("TCHP", "TCMb", "TCMz", "TG0D", "TD01", "TW0P"));
}

TEST_P(SimulatedSystemTest, refusalsReachTheCallerAsTheyAre) {
    usePreset("laptop");
    add({.key = "F0Md", .value = 0, .result = 0x86});
    add({.key = "F1Md", .kernelReturn = smc::kernelNotPrivileged});
    add({.key = "F1Ac", .operation = Operation::read, .result = 0x84});
    auto& runtime = system->runtime;
    EXPECT_EQ(runtime.run(system->smc.writeUInt8("F0Md", 1)).value(), 0);
    EXPECT_EQ(runtime.run(system->smc.writeUInt8("F0Md", 0)).value(), 0x86);
    EXPECT_EQ(system->mac.fan(0).mode, FanMode::forced);
    EXPECT_EQ(runtime.run(system->smc.writeUInt8("F1Md", 1)).error(),
              smc::SMCError::notPrivileged());
    EXPECT_EQ(runtime.run(system->connection.readValue("F1Ac")).error().description(),
              "SMC error on key F1Ac: result=0x84");
    EXPECT_EQ(runtime.run(system->connection.readValue("F9Ac")).error().description(),
              "SMC key not found: F9Ac");
}

TEST_P(SimulatedSystemTest, aSlowKeyMakesASnapshotSlow) {
    usePreset("laptop");
    add({.key = "F0Ac", .operation = Operation::read, .latency = 300ms});
    (void)snapshot();
    EXPECT_EQ(system->elapsed(), 380ms);
}

TEST_P(SimulatedSystemTest, aSnapshotTakenWhileTheHubHangsEndsWhenTheHangEnds) {
    usePreset("laptop");
    system->mac.add(HIDHang{.from = 1s, .until = 40s});
    system->runtime.advance(2s);
    system->runtime.detach("snapshot", take(*this));
    system->runtime.detach("writes", writeTargets(*this));
    system->runtime.advance(38s + 80ms - 1ns);
    EXPECT_FALSE(taken);
    EXPECT_THAT(events,
                ElementsAre("2000 ms: F0Tg", "2025 ms: F0Tg", "2050 ms: F0Tg", "2075 ms: F0Tg"));
    system->runtime.advance(1ns);
    ASSERT_TRUE(taken);
    EXPECT_EQ(taken->temps.size(), 4u);
}

TEST_P(SimulatedSystemTest, aHangThatBeginsInTheMiddleOfASnapshotHoldsItsLastSampleBack) {
    usePreset("laptop");
    system->mac.add(HIDHang{.from = 80ms, .until = 10s});
    system->runtime.detach("snapshot", take(*this));
    system->runtime.advance(10s - 1ns);
    EXPECT_FALSE(taken);
    system->runtime.advance(1ns);
    EXPECT_TRUE(taken);
}

TEST_P(SimulatedSystemTest, aHangThatIsOverOrHasNotBegunHoldsNobody) {
    usePreset("laptop");
    system->mac.add(HIDHang{.from = 0s, .until = 1s});
    system->mac.add(HIDHang{.from = 1081ms, .until = 5s});
    system->runtime.advance(1s);
    (void)snapshot();
    EXPECT_EQ(system->elapsed(), 1080ms);
}

TEST_P(SimulatedSystemTest, aHubThatHangsForEverNeverAnswers) {
    usePreset("laptop");
    system->mac.add(HIDHang{});
    system->runtime.detach("snapshot", take(*this));
    system->runtime.detach("another", take(*this));
    system->runtime.advance(240h);
    EXPECT_FALSE(taken);
}

TEST_P(SimulatedSystemTest, snapshotsThatWaitForAHangAreAllTakenAfterIt) {
    usePreset("laptop");
    system->mac.add(HIDHang{.from = 0s, .until = 10s});
    system->runtime.detach("snapshot", take(*this));
    system->runtime.advance(5s);
    const SensorSnapshot second = snapshot();
    EXPECT_TRUE(taken);
    EXPECT_EQ(system->elapsed(), 10160ms);
    EXPECT_EQ(second.temps.size(), 4u);
}

TEST_P(SimulatedSystemTest, equalSeedsGiveEqualRuns) {
    const auto run = [this] {
        usePreset("laptop");
        system->runtime.detach("writes", writeTargets(*this));
        const SensorSnapshot seen = snapshot();
        return std::pair(seen, system->runtime.fingerprint());
    };
    EXPECT_EQ(run(), run());
}

INSTANTIATE_TEST_SUITE_P(Seeds, SimulatedSystemTest,
                         testing::Range(std::uint64_t{0}, std::uint64_t{6}));

}  // namespace
}  // namespace airflow::simulation
