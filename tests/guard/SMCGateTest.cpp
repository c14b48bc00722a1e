// What the gate lets through, open and closed, for requests from before and after.
#include <gmock/gmock.h>

#include <chrono>

#include "guard/SMCGate.h"
#include "simulation/daemon/SimulatedSystem.h"

namespace airflow::guard {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using WriteResult = smc::SMCWriting::WriteResult;

const WriteResult taken = std::uint8_t{0};
const WriteResult withheld = std::unexpected(smc::SMCError::withheld());

class SMCGateTest : public testing::Test, public GateObserver {
protected:
    SMCGateTest() { gate.observe(*this); }

    void wrote(const ModeWrite& write) override { writes.push_back(write); }
    void sawForced(std::int64_t fan, const std::string& key) override {
        seen.push_back(key + std::to_string(fan));
    }
    void wroteForceTest(bool isRaised) override { forceTests.push_back(isRaised); }
    void readTemperature() override { ++temperatures; }
    void driverBegins() override { ++begun; }
    void driverEnds() override { ++ended; }

    WriteResult write(const std::string& key, std::uint8_t value) {
        return system.runtime.run(gate.writeUInt8(key, value));
    }

    std::vector<ModeWrite> writes;
    std::vector<std::string> seen;
    std::vector<bool> forceTests;
    int temperatures = 0;
    int begun = 0;
    int ended = 0;
    simulation::SimulatedSystem system{*simulation::machinePreset("laptop")};
    SMCGate gate{system.smc.executor(), system.smc, system.smc};
};

TEST_F(SMCGateTest, isOpenBeforeTheFirstClientHasCome) {
    EXPECT_TRUE(gate.takesForcing());
    EXPECT_EQ(write("F0Md", 1), taken);
    EXPECT_EQ(system.mac.fan(0).mode, simulation::FanMode::forced);
}

TEST_F(SMCGateTest, isClosedFromTheEndOfTheLastClientUntilTheNextOneComes) {
    gate.enter();
    gate.enter();
    EXPECT_FALSE(gate.leave());
    EXPECT_TRUE(gate.takesForcing());
    EXPECT_TRUE(gate.leave());
    EXPECT_FALSE(gate.takesForcing());
    EXPECT_EQ(write("F0Md", 1), withheld);
    EXPECT_EQ(system.mac.fan(0).mode, simulation::FanMode::automatic);
    gate.enter();
    EXPECT_TRUE(gate.takesForcing());
    EXPECT_EQ(write("F0Md", 1), taken);
}

TEST_F(SMCGateTest, isClosedForGoodFromTheBeginningOfAnExit) {
    gate.enter();
    EXPECT_FALSE(gate.isEnding());
    gate.closeForExit();
    EXPECT_TRUE(gate.isEnding());
    EXPECT_FALSE(gate.takesForcing());
    gate.enter();
    EXPECT_EQ(write("F0Md", 1), withheld);
    EXPECT_EQ(write("F1md", 1), withheld);
}

TEST_F(SMCGateTest, letsFansBeGivenBackAndForceTestBeWrittenWhileItIsClosed) {
    gate.closeForExit();
    EXPECT_EQ(write("F0Md", 0), taken);
    EXPECT_EQ(write("Ftst", 1), taken);
    EXPECT_EQ(write("Ftst", 0), taken);
    EXPECT_NE(system.runtime.run(gate.tryReadValue("FNum")), std::nullopt);
}

/// A request is made here and has its turn there, when the gate may have closed.
TEST_F(SMCGateTest, judgesARequestWhenItsTurnComes) {
    auto asked = gate.writeUInt8("F0Md", 1);
    gate.closeForExit();
    EXPECT_EQ(system.runtime.run(std::move(asked)), withheld);
}

TEST_F(SMCGateTest, withholdsAnEarlierForcingWriteThoughANewClientHasCome) {
    gate.enter();
    auto asked = gate.writeUInt8("F0Md", 1);
    auto raising = gate.writeUInt8("Ftst", 1);
    (void)gate.leave();
    gate.enter();
    EXPECT_EQ(system.runtime.run(std::move(asked)), withheld);
    EXPECT_EQ(system.runtime.run(std::move(raising)), withheld);
    EXPECT_EQ(begun, 0);
}

TEST_F(SMCGateTest, letsEarlierReadsAndZerosPassWhenTheLastClientHasGone) {
    gate.enter();
    auto read = gate.tryReadValue("FNum");
    auto zero = gate.writeUInt8("F0Md", 0);
    (void)gate.leave();
    EXPECT_NE(system.runtime.run(std::move(read)), std::nullopt);
    EXPECT_EQ(system.runtime.run(std::move(zero)), taken);
}

TEST_F(SMCGateTest, atAnExitWithholdsAllEarlierRequestsButZeros) {
    auto tried = gate.tryReadValue("FNum");
    auto read = gate.readValue("FNum");
    auto keys = gate.discoverTempKeys();
    auto target = gate.writeFloat("F0Tg", 3000);
    auto zero = gate.writeUInt8("F0Md", 0);
    gate.closeForExit();
    EXPECT_EQ(system.runtime.run(std::move(tried)), std::nullopt);
    const auto value = system.runtime.run(std::move(read));
    ASSERT_FALSE(value);
    EXPECT_EQ(value.error(), smc::SMCError::withheld());
    EXPECT_THAT(system.runtime.run(std::move(keys)), IsEmpty());
    EXPECT_EQ(system.runtime.run(std::move(target)), withheld);
    EXPECT_EQ(begun, 0);
    EXPECT_EQ(system.runtime.run(std::move(zero)), taken);
}

TEST_F(SMCGateTest, tellsOfWritesToModeKeysAndHowTheyWereAnswered) {
    system.mac.smc().add({.key = "F1Md", .value = 0, .result = 0x86});
    (void)write("F0Md", 1);
    (void)write("F1Md", 0);
    (void)write("Ftst", 1);
    (void)write("F7Md", 1);  // does not exist
    ASSERT_EQ(writes.size(), 3U);
    EXPECT_EQ(writes[0].fan, 0);
    EXPECT_TRUE(writes[0].isForcing && writes[0].isTaken);
    EXPECT_EQ(writes[1].key, "F1Md");
    EXPECT_FALSE(writes[1].isForcing || writes[1].isTaken);
    EXPECT_TRUE(writes[2].isForcing && !writes[2].isTaken);
}

TEST_F(SMCGateTest, tellsOfForceTestAndOfTemperaturesThatAreRead) {
    (void)write("Ftst", 1);
    (void)write("Ftst", 0);
    (void)write("F0Md", 0);
    (void)system.runtime.run(gate.tryReadValue("TB0T"));
    (void)system.runtime.run(gate.tryReadValue("F0Ac"));
    EXPECT_EQ(forceTests, (std::vector{true, false}));
    EXPECT_EQ(temperatures, 1);
}

TEST_F(SMCGateTest, withholdsWhatItsOnlyClientAskedForBeforeItWasInterrupted) {
    gate.enter();
    const auto before = gate.epoch();
    gate.interrupt();
    EXPECT_NE(gate.epoch(), before);
    EXPECT_TRUE(gate.takesForcing());
    EXPECT_EQ(write("F0Md", 1), taken);
    gate.enter();
    const auto withTwo = gate.epoch();
    gate.interrupt();
    EXPECT_EQ(gate.epoch(), withTwo);
}

TEST_F(SMCGateTest, withholdsNothingOfAnExitWhenTheLastClientGoes) {
    gate.enter();
    gate.closeForExit();
    const auto exit = gate.epoch();
    gate.interrupt();
    EXPECT_TRUE(gate.leave());
    EXPECT_EQ(gate.epoch(), exit);
}

TEST_F(SMCGateTest, tellsOfAFanThatSomebodyReadsToBeForced) {
    system.mac.setMode(1, simulation::FanMode::forced);
    (void)system.runtime.run(gate.tryReadValue("F0Md"));
    (void)system.runtime.run(gate.tryReadValue("F1Md"));
    (void)system.runtime.run(gate.tryReadValue("FNum"));
    system.mac.setMode(1, simulation::FanMode::reclaimed);
    (void)system.runtime.run(gate.tryReadValue("F1Md"));
    EXPECT_THAT(seen, ElementsAre("F1Md1"));
}

TEST_F(SMCGateTest, tellsWhenTheDriverIsBusy) {
    system.mac.smc().add({.operation = simulation::Fault::Operation::read, .latency = 3s});
    system.runtime.detach("read", [](SMCGate& busy) -> concurrency::Task<void> {
        (void)co_await busy.tryReadValue("FNum");
    }(gate));
    system.runtime.advance(1s);
    EXPECT_EQ(begun, 1);
    EXPECT_EQ(ended, 0);
    system.runtime.advance(2s);
    EXPECT_EQ(ended, 1);
}

}  // namespace
}  // namespace airflow::guard
