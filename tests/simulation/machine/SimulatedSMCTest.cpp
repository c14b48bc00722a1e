#include <gmock/gmock.h>

#include <map>

#include "Wire.h"
#include "smc/SMCRequests.h"

namespace airflow::simulation {
namespace {

using namespace std::chrono_literals;
using testing::Each;
using testing::ElementsAre;

class SimulatedSMCTest : public testing::Test {
protected:
    SimulatedSMCTest() {
        smc.addNumber("FNum", "ui8 ", [] { return 2.0; });
        smc.addNumber(
            "F0Tg", "flt ", [this] { return target; },
            [this](double value) {
                target = value;
                return std::uint8_t{0};
            });
        smc.add({.name = "TxZZ",
                 .type = "ch8*",
                 .size = 6,
                 .read = [] { return smc::SMCBytes{'a', 'b', 'c'}; },
                 .write = {}});
    }

    concurrency::Duration now{};
    double target = 1200;
    SimulatedSMC smc{[this] { return now; }};
};

TEST_F(SimulatedSMCTest, informationTellsSizeAndType) {
    Wire wire(smc);
    const Answer speed = wire.information("F0Tg");
    EXPECT_EQ(speed.kernelReturn, 0);
    EXPECT_EQ(speed.result(), 0);
    EXPECT_EQ(speed.size(), 4u);
    EXPECT_EQ(speed.type(), "flt ");
    const Answer count = wire.information("#KEY");
    EXPECT_EQ(count.size(), 4u);
    EXPECT_EQ(count.type(), "ui32");
    const Answer text = wire.information("TxZZ");
    EXPECT_EQ(text.size(), 6u);
    EXPECT_EQ(text.type(), "ch8*");
}

TEST_F(SimulatedSMCTest, aReadGivesTheBytesOfTheValue) {
    Wire wire(smc);
    EXPECT_THAT(wire.read("FNum", 1).bytes(2), ElementsAre(2, 0));
    EXPECT_THAT(wire.read("#KEY", 4).bytes(5), ElementsAre(0, 0, 0, 4, 0));
    EXPECT_THAT(wire.read("F0Tg", 4).bytes(5), ElementsAre(0x00, 0x00, 0x96, 0x44, 0));
    EXPECT_THAT(wire.read("TxZZ", 6).bytes(4), ElementsAre('a', 'b', 'c', 0));
}

// In the order of the fields: key | version, gap | power limits | size, type and attributes of the
// key, gap, padding | result, status, selector, gap | index | value.
TEST_F(SimulatedSMCTest, everyByteOfAReplyIsKnown) {
    Wire wire(smc);
    EXPECT_EQ(wire.information("F0Tg").record, record(R"(
        00000000 000000000000 0000 00000000000000000000000000000000
        04000000 20746C66 00 00 0000 00 00 00 00 00000000
        0000000000000000000000000000000000000000000000000000000000000000)"));
    EXPECT_EQ(wire.write("F0Tg", {0x00, 0x40, 0x1C, 0x45}).record, record(R"(
        00000000 000000000000 0000 00000000000000000000000000000000
        00000000 00000000 00 00 0000 00 00 00 00 00000000
        0000000000000000000000000000000000000000000000000000000000000000)"));
    EXPECT_EQ(wire.read("F0Tg", 4).record, record(R"(
        67543046 000000000000 0000 00000000000000000000000000000000
        00000000 00000000 00 00 0000 00 00 00 00 00000000
        00401C4500000000000000000000000000000000000000000000000000000000)"));
    EXPECT_EQ(wire.enumerate(2).record, record(R"(
        67543046 000000000000 0000 00000000000000000000000000000000
        00000000 00000000 00 00 0000 00 00 00 00 00000000
        0000000000000000000000000000000000000000000000000000000000000000)"));
    EXPECT_EQ(wire.enumerate(4).record, record(R"(
        00000000 000000000000 0000 00000000000000000000000000000000
        00000000 00000000 00 00 0000 84 00 00 00 00000000
        0000000000000000000000000000000000000000000000000000000000000000)"));
}

TEST_F(SimulatedSMCTest, aWriteChangesTheValue) {
    Wire wire(smc);
    EXPECT_EQ(wire.write("F0Tg", {0x00, 0x40, 0x1C, 0x45}).result(), 0);
    EXPECT_EQ(target, 2500);
    EXPECT_EQ(floatIn(wire.read("F0Tg", 4)), 2500);
}

TEST_F(SimulatedSMCTest, aWriterMayRefuseAndSaysHow) {
    smc.addNumber(
        "F0Md", "ui8 ", [] { return 0.0; },
        [](double value) { return static_cast<std::uint8_t>(value == 1 ? 0x82 : 0); });
    Wire wire(smc);
    EXPECT_EQ(wire.write("F0Md", {1}).result(), 0x82);
    EXPECT_EQ(wire.write("F0Md", {0}).result(), 0);
}

TEST_F(SimulatedSMCTest, keysAreEnumeratedInTheOrderInWhichTheyWereAdded) {
    Wire wire(smc);
    EXPECT_EQ(wire.enumerate(0).key(), "#KEY");
    EXPECT_EQ(wire.enumerate(1).key(), "FNum");
    EXPECT_EQ(wire.enumerate(2).key(), "F0Tg");
    EXPECT_EQ(wire.enumerate(3).key(), "TxZZ");
    EXPECT_EQ(wire.enumerate(3).result(), 0);
    EXPECT_EQ(wire.enumerate(4).result(), 0x84);
}

TEST_F(SimulatedSMCTest, aKeyThatItDoesNotHaveIsNotFound) {
    Wire wire(smc);
    EXPECT_EQ(wire.information("F9Ac").result(), 0x84);
    EXPECT_EQ(wire.read("F9Ac", 4).result(), 0x84);
    EXPECT_EQ(wire.write("F9Ac", {1}).result(), 0x84);
    EXPECT_EQ(wire.information("fnum").result(), 0x84);
}

TEST_F(SimulatedSMCTest, readsAndWritesDeclareTheKeysSize) {
    Wire wire(smc);
    for (const std::uint8_t size : Bytes{0, 3, 5}) {
        EXPECT_EQ(wire.read("F0Tg", size).result(), 0x87) << int{size};
    }
    EXPECT_EQ(wire.write("F0Tg", {0x00, 0x40, 0x1C}).result(), 0x87);
    EXPECT_EQ(wire.write("F0Tg", {0x00, 0x40, 0x1C, 0x45, 0x00}).result(), 0x87);
    EXPECT_EQ(target, 1200);
}

TEST_F(SimulatedSMCTest, aKeyWithoutAWriterCannotBeWritten) {
    Wire wire(smc);
    EXPECT_EQ(wire.write("FNum", {7}).result(), 0x86);
    EXPECT_EQ(wire.read("FNum", 1).bytes(1), Bytes{2});
}

TEST_F(SimulatedSMCTest, anErrorCarriesNothingButItsResult) {
    Wire wire(smc);
    Answer error = wire.read("F9Ac", 4);
    EXPECT_EQ(error.record[40], 0x84);
    error.record[40] = 0;
    EXPECT_THAT(error.record, Each(0));
}

TEST_F(SimulatedSMCTest, aRequestForNoKnownOperationIsRefused) {
    Wire wire(smc);
    for (const std::uint8_t selector : Bytes{0, 2, 4, 7, 10, 255}) {
        EXPECT_EQ(wire.send(selector, "FNum", 1).result(), 0x89) << int{selector};
    }
}

TEST_F(SimulatedSMCTest, onlyAnOpenConnectionAndTheStructureMethodReachIt) {
    Wire wire(smc);
    wire.method = 3;
    EXPECT_EQ(wire.information("FNum").kernelReturn, SimulatedSMC::badArgument);
    wire.method = 2;
    EXPECT_EQ(wire.information("FNum").kernelReturn, 0);
    smc.close(wire.connection);
    EXPECT_EQ(wire.information("FNum").kernelReturn, SimulatedSMC::badArgument);
    wire.connection = 0;
    EXPECT_EQ(wire.information("FNum").kernelReturn, SimulatedSMC::badArgument);
}

TEST_F(SimulatedSMCTest, theKernelRefusesEverythingToTheUnprivileged) {
    Wire wire(smc);
    smc.isPrivileged = false;
    EXPECT_EQ(wire.information("FNum").kernelReturn, smc::kernelNotPrivileged);
    EXPECT_EQ(wire.write("F0Tg", {0x00, 0x40, 0x1C, 0x45}).kernelReturn, smc::kernelNotPrivileged);
    EXPECT_EQ(target, 1200);
}

TEST_F(SimulatedSMCTest, openingFailsWhereThereIsNoSMC) {
    smc.isPresent = false;
    smc::SMCRequests requests(smc);
    EXPECT_EQ(requests.open().error().description(), "AppleSMC IOKit service not found");
    EXPECT_EQ(smc.findService("AppleSMC"), 0u);
    EXPECT_EQ(smc.openServices(), 0);
}

TEST_F(SimulatedSMCTest, openingFailsAsTheKernelSays) {
    smc.openResult = -536870206;
    smc::SMCRequests requests(smc);
    EXPECT_EQ(requests.open().error().description(), "IOServiceOpen failed: -536870206");
    EXPECT_EQ(smc.openServices(), 0);
    EXPECT_EQ(smc.openConnections(), 0);
}

TEST_F(SimulatedSMCTest, onlyTheServiceOfItsClassIsFoundAndOpened) {
    EXPECT_EQ(smc.findService("AppleSMCKeysEndpoint"), 0u);
    std::uint32_t connection = 0;
    EXPECT_EQ(smc.open(1, 0, connection), SimulatedSMC::badArgument);
    const std::uint32_t service = smc.findService("AppleSMC");
    EXPECT_EQ(smc.open(service, 1, connection), SimulatedSMC::badArgument);
    EXPECT_EQ(connection, 0u);
}

TEST_F(SimulatedSMCTest, whatWasHandedOutIsCounted) {
    const std::uint32_t service = smc.findService("AppleSMC");
    EXPECT_EQ(smc.openServices(), 1);
    std::uint32_t first = 0;
    std::uint32_t second = 0;
    EXPECT_EQ(smc.open(service, 0, first), 0);
    EXPECT_EQ(smc.open(service, 0, second), 0);
    EXPECT_NE(first, second);
    EXPECT_EQ(smc.openConnections(), 2);
    smc.close(first);
    smc.close(second);
    EXPECT_EQ(smc.openConnections(), 0);
    smc.close(second);
    EXPECT_EQ(smc.openConnections(), -1);
    smc.release(service);
    smc.release(service);
    EXPECT_EQ(smc.openServices(), -1);
}

TEST_F(SimulatedSMCTest, theObserverSeesEveryRequestAsItWasAnswered) {
    std::vector<std::string> told;
    smc.observer = [&told](const SMCAccess& access) {
        const std::map<Fault::Operation, std::string> names{
            {Fault::Operation::read, "read"},
            {Fault::Operation::write, "write"},
            {Fault::Operation::information, "information"},
            {Fault::Operation::enumeration, "enumeration"}};
        told.push_back(std::to_string(access.time / 1ms) + " ms " + names.at(access.operation) +
                       " " + access.key + " " + std::to_string(static_cast<int>(access.value)) +
                       " " + std::to_string(access.result));
    };
    Wire wire(smc);
    wire.information("FNum");
    wire.read("FNum", 1);
    now = 20ms;
    wire.write("F0Tg", {0x00, 0x40, 0x1C, 0x45});
    wire.write("FNum", {7});
    wire.read("F0Tg", 3);
    wire.read("TxZZ", 6);
    wire.enumerate(2);
    wire.enumerate(4);
    EXPECT_THAT(told, ElementsAre("0 ms information FNum 0 0", "0 ms read FNum 2 0",
                                  "20 ms write F0Tg 2500 0", "20 ms write FNum 7 134",
                                  "20 ms read F0Tg 0 135", "20 ms read TxZZ 0 0",
                                  "20 ms enumeration F0Tg 0 0", "20 ms enumeration  0 132"));
}

TEST_F(SimulatedSMCTest, aKeyNeedNotBePrintable) {
    smc.add({.name = std::string("T\xFF\0q", 4),
             .type = "ui8 ",
             .size = 1,
             .read = [] { return smc::SMCBytes{9}; },
             .write = {}});
    Wire wire(smc);
    EXPECT_EQ(wire.enumerate(4).key(), std::string("T\xFF\0q", 4));
    EXPECT_EQ(wire.read(std::string_view("T\xFF\0q", 4), 1).bytes(1), Bytes{9});
}

TEST_F(SimulatedSMCTest, aNameThatIsNotFourBytesLongStopsTheProcess) {
    EXPECT_DEATH(smc.addNumber("F10Ac", "flt ", [] { return 0.0; }), "F10Ac");
}

}  // namespace
}  // namespace airflow::simulation
