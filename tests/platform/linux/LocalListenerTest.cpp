// The daemon behind its socket, as clients meet it.
#include <gmock/gmock.h>
#include <time.h>

#include <optional>
#include <utility>

#include "FewDescriptors.h"
#include "ServedDaemon.h"
#include "platform/linux/LocalConnection.h"
#include "platform/linux/LocalListener.h"
#include "support/ApplyConfig.h"

namespace airflow::platform {
namespace {

using Mode = ServedMac::Mode;
using testing::HasSubstr;
using testing::StartsWith;

class LocalListenerTest : public testing::Test {
protected:
    LocalListenerTest() { served.start(); }

    ServedDaemon served;
};

TEST_F(LocalListenerTest, everyMethodHasItsAnswer) {
    LineClient client(served.path);
    EXPECT_EQ(client.ask(R"({"id":1,"method":"helperVersion"})"),
              "{\"id\":1,\"version\":\"1.0.3+6\"}\n");
    EXPECT_EQ(client.ask(R"({"id":2,"method":"setManualRPM","fan":1,"rpm":3000})"),
              "{\"id\":2,\"code\":0}\n");
    EXPECT_EQ(served.mac.mode(0), Mode::automatic);
    EXPECT_EQ(served.mac.mode(1), Mode::forced);
    EXPECT_EQ(served.mac.target(1), 3000);
    EXPECT_EQ(client.ask(R"({"id":3,"method":"setPercent","fan":0,"percent":50})"),
              "{\"id\":3,\"code\":0}\n");
    EXPECT_EQ(served.mac.target(0), 3600);
    EXPECT_EQ(client.ask(R"({"id":4,"method":"fullBlast"})"), "{\"id\":4,\"code\":0}\n");
    EXPECT_EQ(served.mac.target(0), 6000);
    EXPECT_EQ(served.mac.target(1), 6200);
    EXPECT_THAT(client.ask(R"({"id":5,"method":"readState"})"),
                StartsWith(R"({"id":5,"state":{"perFanMode":)"));
    EXPECT_EQ(client.ask(R"({"id":6,"method":"automatic"})"), "{\"id\":6,\"code\":0}\n");
    EXPECT_TRUE(served.mac.isAllAutomatic());
    EXPECT_EQ(client.ask(R"({"id":7,"method":"restoreAuto"})"), "{\"id\":7}\n");
}

TEST_F(LocalListenerTest, aPlanIsPutInForce) {
    LineClient client(served.path);
    EXPECT_EQ(client.ask(tests::applyConfig(
                  1, R"({"fans":[{"fanID":1,"mode":{"curve":)"
                     R"({"_0":{"points":[{"id":"5C0E7A31-9B42-4D66-8F10-3A7B2C91D401",)"
                     R"("celsius":20,"percent":50}],"interpolation":"linear"}}}}],"rules":[],)"
                     R"("tuning":{"emaAlpha":0.2,"hysteresisCelsius":3,"maxDeltaRPMPerTick":150,)"
                     R"("minDwellSeconds":6}})")),
              "{\"id\":1,\"code\":0}\n");
    EXPECT_EQ(served.mac.mode(0), Mode::automatic);
    EXPECT_EQ(served.mac.mode(1), Mode::forced);
}

TEST_F(LocalListenerTest, whatIsNoPlanIsAnsweredWithSevenAndChangesNothing) {
    LineClient client(served.path);
    const std::string before = client.ask(R"({"id":0,"method":"readState"})");
    for (const std::string plan : {"null", "{}", "5", R"("x")", "[]"}) {
        EXPECT_EQ(client.ask(tests::applyConfig(1, plan)), "{\"id\":1,\"code\":7}\n");
    }
    EXPECT_EQ(client.ask(R"({"id":0,"method":"readState"})"), before);
}

TEST_F(LocalListenerTest, aHeartbeatHasNoAnswer) {
    LineClient client(served.path);
    EXPECT_TRUE(client.send("{\"method\":\"heartbeat\"}\n{\"id\":1,\"method\":\"heartbeat\"}\n"));
    EXPECT_EQ(client.ask(R"({"id":2,"method":"helperVersion"})"),
              "{\"id\":2,\"version\":\"1.0.3+6\"}\n");
}

TEST_F(LocalListenerTest, theVersionIsAnsweredWhileTheMachineIsStuck) {
    LineClient client(served.path);
    const auto stuck = served.mac.stuck();
    EXPECT_TRUE(client.send("{\"id\":1,\"method\":\"fullBlast\"}\n"));
    EXPECT_EQ(client.ask(R"({"id":2,"method":"helperVersion"})"),
              "{\"id\":2,\"version\":\"1.0.3+6\"}\n");
}

TEST_F(LocalListenerTest, anUpgradeIsAcknowledgedBeforeTheProcessEnds) {
    LineClient client(served.path);
    EXPECT_EQ(client.ask(R"({"id":1,"method":"fullBlast"})"), "{\"id\":1,\"code\":0}\n");
    EXPECT_EQ(client.ask(R"({"id":2,"method":"shutdownForUpgrade"})"), "{\"id\":2}\n");
    EXPECT_TRUE(served.mac.isAllAutomatic());
    EXPECT_TRUE(eventually([this] { return served.process.exitStatus() == 0; }));
}

TEST_F(LocalListenerTest, aLineThatIsNoMessageIsAnsweredAndTheConnectionGoesOn) {
    LineClient client(served.path);
    EXPECT_EQ(client.ask("fullBlast"),
              "{\"id\":null,\"error\":\"column 2: syntax error while parsing value - invalid "
              "literal\"}\n");
    EXPECT_EQ(client.ask(R"({"id":1,"method":"fullBlast","fan":0})"),
              "{\"id\":1,\"error\":\"fan: Unknown key.\"}\n");
    EXPECT_EQ(client.ask(""), "{\"id\":null,\"error\":\"column 1: the document is empty\"}\n");
    EXPECT_EQ(client.ask("{\"id\":2,\"method\":\"helperVersion\"}\r"),
              "{\"id\":2,\"version\":\"1.0.3+6\"}\n");
    EXPECT_TRUE(served.mac.isAllAutomatic());
}

TEST_F(LocalListenerTest, messagesMayComeInPiecesAndManyAtOnce) {
    LineClient client(served.path);
    const std::string message = R"({"id":1,"method":"helperVersion"})";
    for (const char byte : message) EXPECT_TRUE(client.send({&byte, 1}));
    EXPECT_TRUE(client.send("\n" + message + "\n" + message + "\n"));
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(client.receive(), "{\"id\":1,\"version\":\"1.0.3+6\"}\n");
    }
}

TEST_F(LocalListenerTest, theMessagesOfAConnectionAreDeliveredInTheirOrder) {
    LineClient client(served.path);
    std::string messages;
    for (int i = 0; i < 1000; ++i) {
        messages += R"({"id":)" + std::to_string(i) + ",\"method\":\"helperVersion\"}\n";
    }
    EXPECT_TRUE(client.send(messages));
    for (int i = 0; i < 1000; ++i) {
        EXPECT_EQ(client.receive(),
                  R"({"id":)" + std::to_string(i) + ",\"version\":\"1.0.3+6\"}\n");
    }
}

TEST_F(LocalListenerTest, aLineOfOneMebibyteIsAMessage) {
    LineClient client(served.path);
    const std::string message = R"({"id":1,"method":"helperVersion"})";
    EXPECT_EQ(client.ask(message + std::string(1'048'576 - message.size(), ' ')),
              "{\"id\":1,\"version\":\"1.0.3+6\"}\n");
    EXPECT_EQ(client.ask(message), "{\"id\":1,\"version\":\"1.0.3+6\"}\n");
}

TEST_F(LocalListenerTest, aLongerLineEndsTheConnectionAndRestoresAuto) {
    LineClient client(served.path);
    EXPECT_EQ(client.ask(R"({"id":1,"method":"fullBlast"})"), "{\"id\":1,\"code\":0}\n");
    const std::string message = R"({"id":1,"method":"helperVersion"})";
    (void)client.send(message + std::string(1'048'577 - message.size(), ' '));
    EXPECT_EQ(client.receive(),
              "{\"id\":null,\"error\":\"The line has more than 1048576 bytes.\"}\n");
    EXPECT_TRUE(client.hasEnded());
    EXPECT_TRUE(eventually([this] { return served.mac.isAllAutomatic(); }));
}

TEST_F(LocalListenerTest, theEndOfEitherClientReleasesWhatTheOtherSet) {
    LineClient first(served.path);
    {
        LineClient second(served.path);
        EXPECT_EQ(second.ask(R"({"id":1,"method":"helperVersion"})"),
                  "{\"id\":1,\"version\":\"1.0.3+6\"}\n");
        EXPECT_EQ(first.ask(R"({"id":1,"method":"fullBlast"})"), "{\"id\":1,\"code\":0}\n");
    }
    EXPECT_TRUE(eventually([this] { return served.mac.isAllAutomatic(); }));
    LineClient third(served.path);
    EXPECT_EQ(third.ask(R"({"id":1,"method":"fullBlast"})"), "{\"id\":1,\"code\":0}\n");
    first.socket = {};
    EXPECT_TRUE(eventually([this] { return served.mac.isAllAutomatic(); }));
}

TEST_F(LocalListenerTest, aClientThatHasSentEverythingStillGetsItsAnswers) {
    LineClient client(served.path);
    EXPECT_EQ(client.ask(R"({"id":1,"method":"fullBlast"})"), "{\"id\":1,\"code\":0}\n");
    EXPECT_TRUE(client.send("{\"id\":2,\"method\":\"readState\"}\n"));
    client.finishSending();
    EXPECT_THAT(client.receive(), StartsWith("{\"id\":2,\"state\":"));
    EXPECT_TRUE(client.hasEnded());
    EXPECT_TRUE(eventually([this] { return served.mac.isAllAutomatic(); }));
}

TEST_F(LocalListenerTest, whatIsCutOffByTheEndIsNotCarriedOut) {
    LineClient client(served.path);
    EXPECT_TRUE(client.send(R"({"id":1,"method":"fullBlast"})"));
    client.finishSending();
    EXPECT_EQ(client.receive(), "{\"id\":null,\"error\":\"The last line has no newline.\"}\n");
    EXPECT_TRUE(client.hasEnded());
}

TEST_F(LocalListenerTest, aClientThatDoesNotReadHoldsUpNobody) {
    LineClient slow(served.path);
    EXPECT_EQ(slow.ask(R"({"id":1,"method":"fullBlast"})"), "{\"id\":1,\"code\":0}\n");
    LineClient other(served.path);
    makeNonBlocking(slow.socket);
    int sent = 0;
    pollfd writable{.fd = slow.socket.get(), .events = POLLOUT, .revents = 0};
    while (sent < 100'000 && poll(&writable, 1, 200) == 1) {
        if (!slow.send("{\"id\":1,\"method\":\"none\"}\n")) break;
        ++sent;
    }
    EXPECT_GT(sent, 1'400);   // 188 bytes an answer: 256 KiB are 1,394 of them
    EXPECT_LT(sent, 20'000);  // and what lies in the socket, both ways
    EXPECT_EQ(other.ask(R"({"id":1,"method":"helperVersion"})"),
              "{\"id\":1,\"version\":\"1.0.3+6\"}\n");
    EXPECT_EQ(served.mac.mode(0), Mode::forced);
    slow.socket = {};
    EXPECT_TRUE(eventually([this] { return served.mac.isAllAutomatic(); }));
}

TEST_F(LocalListenerTest, aFloodOfCallsWaitsInTheSocketAndIsAnsweredInTheEnd) {
    LineClient client(served.path);
    LineClient other(served.path);
    EXPECT_EQ(client.ask(R"({"id":1,"method":"fullBlast"})"), "{\"id\":1,\"code\":0}\n");
    auto stuck = served.mac.stuck();  // so none of the calls can be answered
    makeNonBlocking(client.socket);
    const std::string message = "{\"id\":1,\"method\":\"restoreAuto\"}\n";
    std::size_t sent = 0;
    pollfd writable{.fd = client.socket.get(), .events = POLLOUT, .revents = 0};
    while (sent < 100'000 && poll(&writable, 1, 200) == 1 && client.send(message)) ++sent;
    EXPECT_GE(sent, LocalConnection::unansweredLimit);
    EXPECT_LT(sent, 50'000u);
    EXPECT_EQ(other.ask(R"({"id":1,"method":"helperVersion"})"),
              "{\"id\":1,\"version\":\"1.0.3+6\"}\n");
    stuck.unlock();
    for (std::size_t i = 0; i < sent; ++i) {
        ASSERT_EQ(client.receive(), "{\"id\":1}\n");
    }
}

TEST_F(LocalListenerTest, aFloodOfHeartbeatsIsHeardInTheEnd) {
    LineClient client(served.path);
    std::string messages;
    for (int i = 0; i < 5000; ++i) messages += "{\"method\":\"heartbeat\"}\n";
    EXPECT_TRUE(client.send(messages));
    EXPECT_EQ(client.ask(R"({"id":1,"method":"helperVersion"})"),
              "{\"id\":1,\"version\":\"1.0.3+6\"}\n");
}

TEST_F(LocalListenerTest, anEndedConnectionLeavesNoDescriptor) {
    LineClient(served.path).ask(R"({"id":1,"method":"helperVersion"})");
    EXPECT_TRUE(eventually([this] { return served.mac.isAllAutomatic(); }));
    const std::size_t before = openDescriptors();
    for (int i = 0; i < 50; ++i) {
        LineClient client(served.path);
        if (i % 2 == 0) client.ask(R"({"id":1,"method":"helperVersion"})");
    }
    EXPECT_TRUE(eventually([before] { return openDescriptors() <= before; }));
}

/// CPU time of this process.
std::chrono::nanoseconds used() {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

TEST_F(LocalListenerTest, clientsWaitWithoutBusynessUntilThereIsADescriptorForThem) {
    LineClient first(served.path);
    EXPECT_EQ(first.ask(R"({"id":1,"method":"helperVersion"})"),
              "{\"id\":1,\"version\":\"1.0.3+6\"}\n");
    LineClient reserve(served.path);
    std::optional<FewDescriptors> none(std::in_place, 3);  // every number below is taken
    LineClient* const second = &reserve;
    EXPECT_TRUE(second->send("{\"id\":2,\"method\":\"helperVersion\"}\n"));
    const auto usedBefore = used();
    pollfd readable{.fd = second->socket.get(), .events = POLLIN, .revents = 0};
    (void)poll(&readable, 1, 500);
    EXPECT_LT(used() - usedBefore, 100ms);
    EXPECT_EQ(first.ask(R"({"id":3,"method":"helperVersion"})"),
              "{\"id\":3,\"version\":\"1.0.3+6\"}\n");
    none.reset();
    EXPECT_EQ(second->receive(), "{\"id\":2,\"version\":\"1.0.3+6\"}\n");
}

TEST(LocalListener, clientsThatComeBeforeItListensAreServedThen) {
    ServedDaemon served;
    LineClient client(served.path);
    EXPECT_TRUE(client.send("{\"id\":1,\"method\":\"helperVersion\"}\n"));
    served.start();
    EXPECT_EQ(client.receive(), "{\"id\":1,\"version\":\"1.0.3+6\"}\n");
}

TEST(LocalListener, aStrangersCommandsAreNotCarriedOutAndItsEndRestoresAuto) {
    bool isUntrusted = false;
    ServedDaemon served([&isUntrusted](const Peer&) { return !isUntrusted; });
    served.start();
    LineClient known(served.path);
    EXPECT_EQ(known.ask(R"({"id":1,"method":"setManualRPM","fan":0,"rpm":3000})"),
              "{\"id\":1,\"code\":0}\n");
    isUntrusted = true;
    LineClient stranger(served.path);
    (void)stranger.send("{\"id\":1,\"method\":\"setManualRPM\",\"fan\":1,\"rpm\":3000}\n");
    EXPECT_EQ(stranger.receive(),
              "{\"id\":null,\"error\":\"The daemon takes commands from its own user and from root "
              "only.\"}\n");
    EXPECT_TRUE(stranger.hasEnded());
    EXPECT_TRUE(eventually([&served] { return served.mac.isAllAutomatic(); }));
    EXPECT_EQ(served.mac.target(1), 1200);  // as it was
    EXPECT_EQ(known.ask(R"({"id":2,"method":"helperVersion"})"),
              "{\"id\":2,\"version\":\"1.0.3+6\"}\n");
}

TEST(LocalListener, itsEndEndsItsConnections) {
    ServedDaemon served;
    served.start();
    LineClient client(served.path);
    EXPECT_EQ(client.ask(R"({"id":1,"method":"fullBlast"})"), "{\"id\":1,\"code\":0}\n");
    served.listener.reset();
    EXPECT_TRUE(client.hasEnded());
    EXPECT_TRUE(eventually([&served] { return served.mac.isAllAutomatic(); }));
}

TEST(LocalListener, aPeerIsWelcomeWhenItIsTheSameUserOrRoot) {
    EXPECT_TRUE(isOwnUserOrRoot({.user = geteuid(), .process = 1}));
    EXPECT_TRUE(isOwnUserOrRoot({.user = 0, .process = 1}));
    EXPECT_FALSE(isOwnUserOrRoot({.user = geteuid() + 1, .process = 1}));
}

}  // namespace
}  // namespace airflow::platform
