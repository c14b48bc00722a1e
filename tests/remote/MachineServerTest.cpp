#include <gmock/gmock.h>
#include <sys/ioctl.h>

#include <atomic>
#include <filesystem>
#include <string>
#include <vector>

#include "MachineHarness.h"
#include "remote/MachineServer.h"
#include "smc/SMCRequests.h"

namespace airflow::remote {
namespace {

using namespace std::chrono_literals;

class MachineServerTest : public testing::Test {
protected:
    /// Waits until the other end has hung up.
    static bool isDisconnected(const platform::FileDescriptor& connection) {
        std::array<std::byte, 1> byte{};
        return !platform::receiveExactly(connection, byte);
    }
    static std::optional<std::string> ask(const platform::FileDescriptor& connection,
                                          const std::string& text) {
        MessageWriter writer;
        writer.put(MachineOperation::control);
        writer.put(text);
        EXPECT_TRUE(sendMessage(connection, writer));
        const auto message = receiveMessage(connection);
        return message ? std::optional(message->substr(4)) : std::nullopt;
    }
    /// The connection to the SMC that the peer is given.
    static std::uint32_t open(const platform::FileDescriptor& connection) {
        for (const auto& [operation, number] :
             {std::pair(MachineOperation::findService, 0U),
              std::pair(MachineOperation::openService, 0x5E11U)}) {
            MessageWriter writer;
            writer.put(operation);
            if (number == 0) {
                writer.put("AppleSMC");
            } else {
                writer.put(number);
                writer.put(0U);
            }
            EXPECT_TRUE(sendMessage(connection, writer));
        }
        EXPECT_TRUE(receiveMessage(connection));
        const auto opened = receiveMessage(connection).value();
        return MessageReader(opened).take<OpeningAnswer>().connection;
    }

    MachineHarness harness;
};

TEST_F(MachineServerTest, answersEachRequestOfAConnection) {
    const auto connection = harness.connect();
    EXPECT_EQ(ask(connection, "one"), "heard one");
    EXPECT_EQ(ask(connection, "two"), "heard two");
}

TEST_F(MachineServerTest, aPeerThatSpeaksNonsenseIsDisconnectedAndNobodyElseIs) {
    const auto other = harness.connect();
    for (const std::string& nonsense :
         {std::string("GET / HTTP/1.1\r\n\r\n"), std::string("\0\0\0\0", 4),
          std::string("\x01\0\0\0\xFF", 5), std::string("\x01\0\0\0\x01", 5)}) {
        const auto connection = harness.connect();
        EXPECT_TRUE(platform::sendAll(connection, nonsense));
        EXPECT_TRUE(isDisconnected(connection)) << nonsense;
    }
    EXPECT_EQ(ask(other, "still"), "heard still");
    EXPECT_TRUE(harness.holdsNothing());
}

TEST_F(MachineServerTest, aPeerThatSendsHalfARequestKeepsNobodyWaiting) {
    const auto slow = harness.connect();
    EXPECT_TRUE(platform::sendAll(slow, std::string_view("\x20\0\0\0\x01", 5)));
    const auto other = harness.connect();
    EXPECT_EQ(ask(other, "quick"), "heard quick");
}

TEST_F(MachineServerTest, aPeerThatDoesNotReadKeepsNobodyWaiting) {
    const auto deaf = harness.connect();
    platform::makeNonBlocking(deaf);
    MessageWriter writer;
    writer.put(MachineOperation::control);
    writer.put(std::string(100'000, 'x'));
    while (sendMessage(deaf, writer)) {  // until both directions are full
    }
    const auto other = harness.connect();
    EXPECT_EQ(ask(other, "quick"), "heard quick");
}

TEST_F(MachineServerTest, aPeerThatDoesNotReadIsAnsweredInTheEnd) {
    const auto slow = harness.connect();
    std::thread asking([&slow] {
        for (int i = 0; i < 50; ++i) {
            MessageWriter writer;
            writer.put(MachineOperation::control);
            writer.put(std::to_string(i) + std::string(100'000, 'x'));
            EXPECT_TRUE(sendMessage(slow, writer));
        }
    });
    EXPECT_TRUE(eventually([&slow] {  // until no more goes in
        int unread = 0;
        return ioctl(slow.get(), FIONREAD, &unread) == 0 && unread > 100'000;
    }));
    for (int i = 0; i < 50; ++i) {
        const auto answer = receiveMessage(slow).value_or("");
        EXPECT_EQ(answer.substr(4), "heard " + std::to_string(i) + std::string(100'000, 'x'));
    }
    asking.join();
}

TEST_F(MachineServerTest, aFloodOfOnePeerKeepsNobodyWaiting) {
    const auto flooding = harness.connect();
    std::atomic<bool> isOver = false;
    std::thread flood([&] {
        MessageWriter writer;
        writer.put(MachineOperation::retain);  // which has no answer
        writer.put(sensors::HIDObject{});
        while (!isOver && sendMessage(flooding, writer)) {
        }
    });
    const auto other = harness.connect();
    for (int i = 0; i < 100; ++i) EXPECT_EQ(ask(other, "quick"), "heard quick");
    isOver = true;
    flood.join();
}

TEST_F(MachineServerTest, aMessageMayComeInPiecesAndManyAtOnce) {
    const auto connection = harness.connect();
    MessageWriter writer;
    writer.put(MachineOperation::control);
    writer.put("piece");
    const std::string message(writer.framed());
    for (const char& byte : message) EXPECT_TRUE(platform::sendAll(connection, {&byte, 1}));
    EXPECT_TRUE(platform::sendAll(connection, message + message));
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(receiveMessage(connection).value_or("").substr(4), "heard piece");
    }
}

TEST_F(MachineServerTest, manyConnectionsNeedOneThread) {
    const auto threads = [] {
        const std::filesystem::directory_iterator tasks("/proc/self/task");
        return std::distance(begin(tasks), end(tasks));
    };
    const auto before = threads();
    std::vector<platform::FileDescriptor> connections;
    for (int i = 0; i < 200; ++i) connections.push_back(harness.connect());
    for (const auto& each : connections) EXPECT_EQ(ask(each, "me"), "heard me");
    EXPECT_EQ(threads(), before) << "the server had its thread before";
}

TEST_F(MachineServerTest, whatADeadPeerHeldIsGivenBack) {
    auto connection = harness.connect();
    MessageWriter writer;
    writer.put(MachineOperation::findService);
    writer.put("AppleSMC");
    EXPECT_TRUE(sendMessage(connection, writer));
    EXPECT_TRUE(receiveMessage(connection));
    EXPECT_EQ(harness.openServices(), 1);
    connection = {};
    EXPECT_TRUE(eventually([this] { return harness.openServices() == 0; }));
}

TEST_F(MachineServerTest, itsEndDisconnectsEverybody) {
    const auto idle = harness.connect();
    const auto busy = harness.connect();
    EXPECT_EQ(ask(busy, "me"), "heard me");
    harness.server.reset();
    EXPECT_TRUE(isDisconnected(idle));
    EXPECT_TRUE(isDisconnected(busy));
}

TEST_F(MachineServerTest, aSlowAnswerComesLateAndKeepsOnlyItsAskerWaiting) {
    for (const auto operation :
         {simulation::Fault::Operation::information, simulation::Fault::Operation::read}) {
        harness.add({.key = "FNum", .operation = operation, .latency = 20ms});
    }
    auto machine = harness.remote();
    smc::SMCRequests requests(machine.smc());
    ASSERT_TRUE(requests.open());
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(requests.tryReadValue("FNum")->numeric(), 2);
    EXPECT_GE(std::chrono::steady_clock::now() - before, 40ms);
    EXPECT_EQ(requests.tryReadValue("F0Ac")->numeric(), 1200);
}

TEST_F(MachineServerTest, requestsBehindASlowOneWaitForItsAnswer) {
    harness.add({.operation = simulation::Fault::Operation::information, .latency = 20ms});
    const auto connection = harness.connect();
    const std::uint32_t opened = open(connection);
    MessageWriter slow;
    slow.put(MachineOperation::call);
    slow.put(opened);
    slow.put(2U);
    slow.put(recordOf(0, 9));
    MessageWriter quick;
    quick.put(MachineOperation::control);
    quick.put("after it");
    const auto before = std::chrono::steady_clock::now();
    EXPECT_TRUE(
        platform::sendAll(connection, std::string(slow.framed()) + std::string(quick.framed())));
    EXPECT_EQ(receiveMessage(connection).value_or("").size(), sizeof(CallAnswer));
    EXPECT_GE(std::chrono::steady_clock::now() - before, 20ms);
    EXPECT_EQ(receiveMessage(connection).value_or("").substr(4), "heard after it");
}

TEST_F(MachineServerTest, anAnswerThatTakesAnHourKeepsNeitherTheHubNorTheEndWaiting) {
    harness.add({.operation = simulation::Fault::Operation::information, .latency = 1h});
    auto machine = harness.remote();
    smc::SMCRequests requests(machine.smc());
    ASSERT_TRUE(requests.open());
    std::thread stuck([&requests] { EXPECT_EQ(requests.tryReadValue("FNum"), std::nullopt); });
    EXPECT_TRUE(eventually(
        [this] { return harness.locked([this] { return harness.served.smcRequests == 4; }); }));
    EXPECT_NE(machine.hidObjects().makeText("quick"), nullptr);
    harness.server.reset();
    stuck.join();
}

TEST_F(MachineServerTest, anAskerThatGoesIsNotWaitedFor) {
    harness.add({.operation = simulation::Fault::Operation::information, .latency = 1h});
    auto connection = harness.connect();
    MessageWriter writer;
    writer.put(MachineOperation::call);
    writer.put(open(connection));
    writer.put(2U);
    writer.put(recordOf(0, 9));
    EXPECT_TRUE(sendMessage(connection, writer));
    EXPECT_TRUE(eventually(
        [this] { return harness.locked([this] { return harness.served.smcRequests == 3; }); }));
    EXPECT_EQ(harness.openConnections(), 1);
    connection = {};
    EXPECT_TRUE(eventually([this] { return harness.holdsNothing(); }));
}

TEST_F(MachineServerTest, acceptsWhoeverConnectsUntilItsEnd) {
    const std::string path = (std::filesystem::path(testing::TempDir()) /
                              ("airflow-machine-" + std::to_string(getpid())))
                                 .string();
    auto listening = platform::listenOn(path);
    ASSERT_TRUE(listening) << listening.error();
    harness.server->accept(std::move(*listening));
    {
        RemoteMachine machine(path);
        smc::SMCRequests requests(machine.smc());
        EXPECT_TRUE(requests.open());
        const auto connection = platform::connectTo(path);
        ASSERT_TRUE(connection);
        EXPECT_EQ(ask(*connection, "me"), "heard me");
    }
    harness.server.reset();
    EXPECT_FALSE(platform::connectTo(path));
    std::filesystem::remove(path);
}

TEST_F(MachineServerTest, thousandsOfConnectionsOneAfterTheOtherLeaveNothingBehind) {
    const auto descriptors = [] {
        std::size_t count = 0;
        for ([[maybe_unused]] const auto& entry :
             std::filesystem::directory_iterator("/proc/self/fd")) {
            ++count;
        }
        return count;
    };
    const auto before = descriptors();
    for (int i = 0; i < 2000; ++i) {
        const auto connection = harness.connect();
        EXPECT_EQ(ask(connection, "me"), "heard me");
    }
    EXPECT_LE(descriptors(), before + 100) << "ended connections wait to be forgotten";
    harness.server.reset();
    EXPECT_LE(descriptors(), before);
}

}  // namespace
}  // namespace airflow::remote
