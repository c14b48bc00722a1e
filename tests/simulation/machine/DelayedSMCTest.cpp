#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "simulation/machine/DelayedSMC.h"
#include "simulation/runtime/SimulatedRuntime.h"

namespace airflow::simulation {
namespace {

using namespace std::chrono_literals;
using concurrency::Duration;
using concurrency::Task;
using testing::ElementsAre;
using testing::StartsWith;
using testing::UnorderedElementsAre;
using Operation = Fault::Operation;

class DelayedSMCTest : public testing::TestWithParam<std::uint64_t> {
protected:
    DelayedSMCTest() {
        for (const char* name : {"F0Md", "TC0a", "TC0b"}) {
            simulated.addNumber(
                name, "ui8 ", [] { return 7.0; }, [](double) { return std::uint8_t{0}; });
        }
        simulated.addNumber(
            "F0Tg", "flt ", [] { return 1.5; }, [](double) { return std::uint8_t{0}; });
        simulated.observer = [this](const SMCAccess& access) {
            if (access.operation != Operation::write) return;
            note(access.key + " written", access.time);
        };
        EXPECT_TRUE(runtime.run(connection.open()));
    }
    ~DelayedSMCTest() override { runtime.abandon(); }

    void note(const std::string& event, Duration time) {
        events.push_back(std::to_string(time / 1ms) + " ms: " + event);
    }
    void noteNow(const std::string& event) { note(event, runtime.now().time_since_epoch()); }

    static Task<void> writeMode(DelayedSMCTest& test) {
        (void)co_await test.smc.writeUInt8("F0Md", 1);
        test.noteNow("F0Md answered");
    }
    static Task<void> writeTarget(DelayedSMCTest& test) {
        (void)co_await test.smc.writeFloat("F0Tg", 2500);
        test.noteNow("F0Tg answered");
    }
    static Task<void> writePastIt(DelayedSMCTest& test) {
        (void)co_await test.connection.writeFloat("F0Tg", 2500);
        test.noteNow("F0Tg answered");
    }

    SimulatedRuntime runtime{GetParam()};
    SimulatedSMC simulated{[this] { return runtime.now().time_since_epoch(); }};
    smc::SMCConnection connection{runtime, simulated};
    DelayedSMC smc{runtime, connection, simulated};
    std::vector<std::string> events;
};

TEST_P(DelayedSMCTest, withoutFaultsNothingTakesTime) {
    runtime.run(writeMode(*this));
    const auto value = runtime.run(smc.tryReadValue("F0Tg"));
    EXPECT_EQ(value, smc::SMCValue::floating(1.5));
    EXPECT_EQ(runtime.run(smc.tryReadValue("F9Tg")), std::nullopt);
    EXPECT_THAT(runtime.run(smc.discoverTempKeys()), ElementsAre("TC0a", "TC0b"));
    EXPECT_EQ(runtime.now().time_since_epoch(), 0ms);
}

TEST_P(DelayedSMCTest, aSlowAnswerComesLateButWhatItDoesIsDoneAtOnce) {
    simulated.add({.key = "F0Md", .operation = Operation::write, .latency = 2s});
    runtime.run(writeMode(*this));
    EXPECT_THAT(events, ElementsAre("0 ms: F0Md written", "2000 ms: F0Md answered"));
}

TEST_P(DelayedSMCTest, whoComesNextIsNotServedBeforeTheAnswer) {
    simulated.add({.key = "F0Md", .operation = Operation::write, .latency = 2s});
    runtime.detach("mode", writeMode(*this));
    runtime.advance(1ms);
    runtime.detach("target", writeTarget(*this));
    runtime.advance(10s);
    EXPECT_THAT(events, UnorderedElementsAre("0 ms: F0Md written", "2000 ms: F0Md answered",
                                             "2000 ms: F0Tg written", "2000 ms: F0Tg answered"));
}

TEST_P(DelayedSMCTest, whoAskedAtTheSameMomentWaitsToo) {
    simulated.add({.operation = Operation::write, .latency = 2s});
    runtime.detach("mode", writeMode(*this));
    runtime.detach("target", writeTarget(*this));
    runtime.advance(10s);
    EXPECT_THAT(events, ElementsAre(StartsWith("0 ms:"), StartsWith("2000 ms:"),
                                    StartsWith("2000 ms:"), StartsWith("4000 ms:")));
}

TEST_P(DelayedSMCTest, theConnectionItselfIsBlockedMeanwhile) {
    simulated.add({.key = "F0Md", .operation = Operation::write, .latency = 2s});
    runtime.detach("mode", writeMode(*this));
    runtime.advance(1ms);
    runtime.detach("past it", writePastIt(*this));
    runtime.advance(1998ms);
    EXPECT_THAT(events, ElementsAre("0 ms: F0Md written"));
    runtime.advance(1ms);
    EXPECT_EQ(events.size(), 4u);
}

TEST_P(DelayedSMCTest, allRequestsOfAnOperationTakeTheirTime) {
    simulated.add({.key = "F0Tg", .operation = Operation::read, .latency = 30ms});
    simulated.add({.key = "F0Tg", .operation = Operation::information, .latency = 4ms});
    (void)runtime.run(smc.tryReadValue("F0Tg"));
    EXPECT_EQ(runtime.now().time_since_epoch(), 34ms);
    simulated.add({.operation = Operation::enumeration, .latency = 1ms});
    (void)runtime.run(smc.discoverTempKeys());
    EXPECT_EQ(runtime.now().time_since_epoch(), 39ms);  // five keys
}

TEST_P(DelayedSMCTest, aRefusalTakesTimeAsWell) {
    simulated.add({.key = "F0Tg", .kernelReturn = -1, .latency = 1s});
    const auto result = runtime.run(smc.writeFloat("F0Tg", 1));
    EXPECT_EQ(result.error().description(),
              "IOConnectCallStructMethod failed: kern_return_t=0xffffffff");
    EXPECT_EQ(runtime.now().time_since_epoch(), 1s);
}

INSTANTIATE_TEST_SUITE_P(Seeds, DelayedSMCTest, testing::Range(std::uint64_t{0}, std::uint64_t{8}));

}  // namespace
}  // namespace airflow::simulation
