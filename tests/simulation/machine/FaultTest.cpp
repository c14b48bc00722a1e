// Every kind of fault, as it looks on the wire.
#include <gmock/gmock.h>

#include <cmath>

#include "Wire.h"
#include "smc/SMCRequests.h"
#include "support/Doubles.h"

namespace airflow::simulation {
namespace {

using tests::infinity;
using namespace std::chrono_literals;
using Operation = Fault::Operation;
using Effect = Fault::Effect;

class FaultTest : public testing::Test {
protected:
    FaultTest() {
        addNumber("F0Tg", "flt ", target);
        addNumber("F0Md", "ui8 ", mode);
    }

    void addNumber(const std::string& name, const std::string& type, double& value) {
        smc.addNumber(
            name, type, [&value] { return value; },
            [&value](double written) {
                value = written;
                return std::uint8_t{0};
            });
    }
    std::uint8_t writeMode(std::uint8_t value) { return wire.write("F0Md", {value}).result(); }

    concurrency::Duration now{};
    double target = 1200;
    double mode = 0;
    SimulatedSMC smc{[this] { return now; }};
    Wire wire{smc};
};

TEST_F(FaultTest, anOperationAnswersWithTheResultThatItIsGiven) {
    smc.add({.key = "F0Tg", .operation = Operation::read, .result = 0x81});
    smc.add({.key = "F0Md", .operation = Operation::information, .result = 0x83});
    smc.add({.key = "F0Md", .operation = Operation::write, .result = 0x86});
    EXPECT_EQ(wire.read("F0Tg", 4).result(), 0x81);
    EXPECT_EQ(wire.read("F0Tg", 4).bytes(4), (Bytes{0, 0, 0, 0}));
    EXPECT_EQ(wire.information("F0Tg").result(), 0);
    EXPECT_EQ(wire.information("F0Md").result(), 0x83);
    EXPECT_EQ(wire.read("F0Md", 1).result(), 0);
    EXPECT_EQ(writeMode(1), 0x86);
    EXPECT_EQ(mode, 0);
}

TEST_F(FaultTest, itLastsForItsSpan) {
    smc.add({.from = 1s, .until = 3s, .key = "F0Md", .result = 0x86});
    now = 1s - 1ns;
    EXPECT_EQ(writeMode(1), 0);
    now = 1s;
    EXPECT_EQ(writeMode(0), 0x86);
    now = 3s - 1ns;
    EXPECT_EQ(writeMode(0), 0x86);
    EXPECT_EQ(mode, 1);
    now = 3s;
    EXPECT_EQ(writeMode(0), 0);
    EXPECT_EQ(mode, 0);
}

TEST_F(FaultTest, itAppliesToOneRequestOfMany) {
    smc.add({.access = 4, .result = 0x86});
    EXPECT_EQ(writeMode(1), 0);                       // the first request
    EXPECT_EQ(wire.information("F0Md").result(), 0);  // the second
    EXPECT_EQ(writeMode(0), 0);                       // the third
    EXPECT_EQ(writeMode(1), 0x86);                    // the fourth
    EXPECT_EQ(writeMode(1), 0);                       // the fifth
    smc.add({.operation = Operation::read, .access = 6, .result = 0x82});
    EXPECT_EQ(wire.information("F0Md").result(), 0);  // the sixth, of another kind
    EXPECT_EQ(wire.read("F0Md", 1).result(), 0);
}

TEST_F(FaultTest, itAppliesToItsKeyOrToAll) {
    smc.add({.key = "F0Md", .result = 0x86});
    EXPECT_EQ(wire.write("F0Tg", {0, 0, 0, 0}).result(), 0);
    EXPECT_EQ(writeMode(1), 0x86);
    smc.add({.result = 0x81});
    EXPECT_EQ(wire.write("F0Tg", {0, 0, 0, 0}).result(), 0x81);
    EXPECT_EQ(wire.read("F0Tg", 4).result(), 0);
}

TEST_F(FaultTest, theFirstThatFitsCounts) {
    smc.add({.until = 1s, .key = "F0Md", .result = 0x82});
    smc.add({.key = "F0Md", .result = 0x86});
    EXPECT_EQ(writeMode(1), 0x82);
    now = 1s;
    EXPECT_EQ(writeMode(1), 0x86);
}

TEST_F(FaultTest, noneIsLeftWhenAllAreRemoved) {
    smc.add({.key = "F0Md", .result = 0x82});
    smc.add({.result = 0x86});
    EXPECT_EQ(writeMode(1), 0x82);
    smc.removeFaults();
    EXPECT_EQ(writeMode(1), 0);
}

TEST_F(FaultTest, oneValueCanBeRefused) {
    smc.add({.key = "F0Md", .value = 0, .result = 0x86});
    EXPECT_EQ(writeMode(1), 0);
    EXPECT_EQ(writeMode(0), 0x86);
    EXPECT_EQ(writeMode(3), 0);
    EXPECT_EQ(mode, 3);
}

TEST_F(FaultTest, aFaultOfOneValueLeavesReadsAlone) {
    smc.add({.key = "F0Md", .operation = Operation::read, .value = 0, .result = 0x86});
    EXPECT_EQ(wire.read("F0Md", 1).result(), 0);
}

TEST_F(FaultTest, theKernelRefusesAnyOperation) {
    constexpr auto refusal = static_cast<smc::KernelReturn>(0xE00002BC);
    smc.add({.until = 1s, .operation = Operation::write, .kernelReturn = refusal});
    smc.add({.until = 1s, .operation = Operation::read, .kernelReturn = refusal});
    smc.add({.until = 1s, .operation = Operation::information, .kernelReturn = refusal});
    smc.add({.until = 1s, .operation = Operation::enumeration, .kernelReturn = refusal});
    EXPECT_EQ(wire.write("F0Md", {1}).kernelReturn, refusal);
    EXPECT_EQ(wire.read("F0Md", 1).kernelReturn, refusal);
    EXPECT_EQ(wire.information("F0Md").kernelReturn, refusal);
    EXPECT_EQ(wire.enumerate(0).kernelReturn, refusal);
    EXPECT_EQ(mode, 0);
    now = 1s;
    EXPECT_EQ(wire.write("F0Md", {1}).kernelReturn, 0);
    EXPECT_EQ(wire.enumerate(0).kernelReturn, 0);
    EXPECT_EQ(mode, 1);
}

TEST_F(FaultTest, aRefusedWriteMayHaveItsEffectAllTheSame) {
    smc.add({.until = 1s, .key = "F0Md", .result = 0x86, .effect = Effect::applied});
    EXPECT_EQ(writeMode(1), 0x86);
    EXPECT_EQ(mode, 1);
    smc.add({.key = "F0Md", .kernelReturn = -1, .effect = Effect::applied});
    now = 1s;
    EXPECT_EQ(wire.write("F0Md", {0}).kernelReturn, -1);
    EXPECT_EQ(mode, 0);
}

TEST_F(FaultTest, aWriteMayBeAcceptedAndIgnored) {
    smc.add({.key = "F0Md", .effect = Effect::ignored});
    EXPECT_EQ(writeMode(1), 0);
    EXPECT_EQ(mode, 0);
}

TEST_F(FaultTest, aRefusalOfTheMachineMayBeHidden) {
    smc.addNumber("Ftst", "ui8 ", [] { return 0.0; }, [](double) { return std::uint8_t{0x86}; });
    EXPECT_EQ(wire.write("Ftst", {1}).result(), 0x86);
    smc.add({.key = "Ftst", .result = 0});
    EXPECT_EQ(wire.write("Ftst", {1}).result(), 0);
}

TEST_F(FaultTest, latencyAddsUpUntilItIsTaken) {
    smc.add({.key = "F0Md", .operation = Operation::write, .latency = 20ms});
    smc.add({.key = "F0Md", .operation = Operation::read, .latency = 3ms});
    EXPECT_EQ(writeMode(1), 0);
    EXPECT_EQ(wire.read("F0Md", 1).result(), 0);
    EXPECT_EQ(wire.read("F0Tg", 4).result(), 0);
    EXPECT_EQ(smc.takeLatency(), 23ms);
    EXPECT_EQ(smc.takeLatency(), 0ms);
    EXPECT_EQ(mode, 1);
}

TEST_F(FaultTest, aReadGivesTheReadingOfTheFault) {
    smc.add({.until = 1s, .key = "F0Tg", .operation = Operation::read, .reading = infinity});
    smc.add({.key = "F0Tg", .operation = Operation::read, .reading = std::nan("")});
    smc.add({.key = "F0Md", .operation = Operation::read, .reading = 3});
    EXPECT_EQ(floatIn(wire.read("F0Tg", 4)), static_cast<float>(infinity));
    now = 1s;
    EXPECT_TRUE(std::isnan(floatIn(wire.read("F0Tg", 4))));
    EXPECT_EQ(wire.read("F0Md", 1).bytes(1), Bytes{3});
    EXPECT_EQ(target, 1200);
    EXPECT_EQ(mode, 0);
}

TEST_F(FaultTest, aReadingIsEncodedInTheTypeThatIsClaimed) {
    std::vector<double> told;
    smc.observer = [&told](const SMCAccess& access) {
        if (access.operation == Operation::read) told.push_back(access.value);
    };
    smc.add({.until = 2s,
             .key = "F0Md",
             .operation = Operation::information,
             .size = 4,
             .type = "flt "});
    smc.add({.until = 1s, .key = "F0Md", .operation = Operation::read, .reading = infinity});
    smc.add({.until = 2s, .key = "F0Md", .operation = Operation::read, .reading = std::nan("")});
    smc.add({.key = "F0Md", .operation = Operation::read, .reading = 300});
    smc::SMCRequests requests(smc);
    ASSERT_TRUE(requests.open());

    EXPECT_EQ(requests.readValue("F0Md"), smc::SMCValue::floating(infinity));
    now = 1s;
    EXPECT_TRUE(std::isnan(requests.readValue("F0Md")->numeric().value()));
    now = 2s;  // nothing is claimed any more: the key's own type holds no more than 255
    EXPECT_EQ(requests.readValue("F0Md"), smc::SMCValue::uint(255));
    ASSERT_EQ(told.size(), 3u);
    EXPECT_EQ(told[0], infinity);
    EXPECT_TRUE(std::isnan(told[1]));
    EXPECT_EQ(told[2], 255);
}

TEST_F(FaultTest, keyInformationMayGiveAWrongSize) {
    smc.add({.until = 1s, .key = "F0Tg", .operation = Operation::information, .size = 2});
    EXPECT_EQ(wire.information("F0Tg").size(), 2u);
    EXPECT_EQ(wire.information("F0Tg").type(), "flt ");
    EXPECT_EQ(wire.read("F0Tg", 2).result(), 0) << "a reader that believes it is answered";
    EXPECT_EQ(wire.read("F0Tg", 4).result(), 0x87);
    EXPECT_EQ(wire.write("F0Tg", {0, 0}).result(), 0x87) << "but the key is as large as it is";
    EXPECT_EQ(target, 1200);
    now = 1s;
    EXPECT_EQ(wire.information("F0Tg").size(), 4u);
    EXPECT_EQ(wire.read("F0Tg", 2).result(), 0x87);
}

TEST_F(FaultTest, keyInformationMayGiveAWrongType) {
    smc.add({.key = "F0Tg", .operation = Operation::information, .type = "ui32"});
    EXPECT_EQ(wire.information("F0Tg").size(), 4u);
    EXPECT_EQ(wire.information("F0Tg").type(), "ui32");
    EXPECT_EQ(floatIn(wire.read("F0Tg", 4)), 1200);
}

TEST_F(FaultTest, aKeyMayVanish) {
    smc.add({.until = 1s, .key = "F0Tg", .operation = Operation::information, .result = 0x84});
    EXPECT_EQ(wire.information("F0Tg").result(), 0x84);
    EXPECT_EQ(wire.information("F0Tg").size(), 0u);
    now = 1s;
    EXPECT_EQ(wire.information("F0Tg").result(), 0);
}

TEST_F(FaultTest, anEnumerationFailsAtTheKeyThatIsNamed) {
    smc.add({.key = "F0Tg", .operation = Operation::enumeration, .result = 0x81});
    EXPECT_EQ(wire.enumerate(0).key(), "#KEY");
    EXPECT_EQ(wire.enumerate(1).result(), 0x81);
    EXPECT_EQ(wire.enumerate(2).key(), "F0Md");
}

TEST_F(FaultTest, aKeyThatTheMachineDoesNotHaveCanHaveFaultsToo) {
    smc.add({.key = "F9Md", .result = 0x82});
    EXPECT_EQ(wire.write("F9Md", {1}).result(), 0x82);
    EXPECT_EQ(wire.information("F9Md").result(), 0x84);
}

TEST_F(FaultTest, theObserverSeesTheAnswerThatWasGiven) {
    std::vector<SMCAccess> told;
    smc.observer = [&told](const SMCAccess& access) { told.push_back(access); };
    smc.add({.key = "F0Md", .value = 1, .result = 0x86});
    smc.add({.key = "F0Md", .kernelReturn = -7});
    smc.add({.key = "F0Md", .operation = Operation::read, .reading = 3});
    writeMode(1);
    writeMode(0);
    wire.read("F0Md", 1);
    ASSERT_EQ(told.size(), 3u);
    EXPECT_EQ(told[0].value, 1);
    EXPECT_EQ(told[0].result, 0x86);
    EXPECT_EQ(told[0].kernelReturn, 0);
    EXPECT_EQ(told[1].kernelReturn, -7);
    EXPECT_EQ(told[2].value, 3);
}

}  // namespace
}  // namespace airflow::simulation
