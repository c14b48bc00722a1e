// One connection, driven by hand over a pair of sockets.
#include <gmock/gmock.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <array>
#include <optional>
#include <string>

#include "ServedDaemon.h"
#include "platform/linux/LocalConnection.h"

namespace airflow::platform {
namespace {

class LocalConnectionTest : public testing::Test {
protected:
    LocalConnectionTest() {
        std::array<int, 2> ends{};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
        client = FileDescriptor(ends[0]);
        connection.emplace(7, FileDescriptor(ends[1]), std::make_shared<AnswerBox>(), isWelcome);
        connection->setInvalidationHandler([this] { ++invalidations; });
        connection->setInterruptionHandler([this] { ++interruptions; });
    }

    /// What the client can read now.
    std::string received() {
        std::string text(4096, '\0');
        const ssize_t count = recv(client.get(), text.data(), text.size(), MSG_DONTWAIT);
        text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
        return text;
    }

    PeerCheck isWelcome = [](const Peer&) { return true; };
    FileDescriptor client;
    int invalidations = 0;
    int interruptions = 0;
    std::optional<LocalConnection> connection;
};

TEST_F(LocalConnectionTest, readsNothingBeforeItIsResumed) {
    EXPECT_EQ(connection->interest(), 0u);
    connection->resume();
    EXPECT_EQ(connection->interest(), static_cast<std::uint32_t>(EPOLLIN));
    EXPECT_FALSE(connection->hasEnded());
}

TEST_F(LocalConnectionTest, theEndOfTheClientIsToldOnce) {
    connection->resume();
    client = {};
    connection->handle(EPOLLIN | EPOLLHUP);
    EXPECT_TRUE(connection->hasEnded());
    EXPECT_EQ(invalidations, 1);
    connection->handle(EPOLLHUP);
    connection.reset();
    EXPECT_EQ(invalidations, 1);
    EXPECT_EQ(interruptions, 0);
}

TEST_F(LocalConnectionTest, anEndThatOnlyEpollSeesIsToldOnce) {
    connection->resume();
    connection->handle(EPOLLHUP);
    EXPECT_TRUE(connection->hasEnded());
    connection.reset();
    EXPECT_EQ(invalidations, 1);
}

TEST_F(LocalConnectionTest, itsOwnEndIsToldOnce) {
    connection->resume();
    connection.reset();
    EXPECT_EQ(invalidations, 1);
}

TEST_F(LocalConnectionTest, aConnectionThatIsDeclinedEnds) {
    EXPECT_TRUE(connection->hasEnded());
    connection.reset();
    EXPECT_EQ(invalidations, 1);
}

TEST_F(LocalConnectionTest, aStrangerEndsWithAReasonBeforeAnythingIsRead) {
    isWelcome = [](const Peer& peer) { return peer.user != geteuid(); };
    EXPECT_TRUE(sendAll(client, "{\"id\":1,\"method\":\"none\"}\n"));
    connection->setCodeSigningRequirement("any");
    connection->resume();
    EXPECT_TRUE(connection->hasEnded());
    EXPECT_EQ(connection->interest(), 0u);
    EXPECT_EQ(invalidations, 1);
    EXPECT_EQ(received(),
              "{\"id\":null,\"error\":\"The daemon takes commands from its own user and from root "
              "only.\"}\n");
}

TEST_F(LocalConnectionTest, whoeverIsWelcomeIsHeard) {
    connection->setCodeSigningRequirement("any");
    connection->resume();
    EXPECT_TRUE(sendAll(client, "{\"id\":1}\n"));
    connection->handle(EPOLLIN);
    EXPECT_EQ(received(), "{\"id\":1,\"error\":\"The required key \\\"method\\\" is missing.\"}\n");
    EXPECT_FALSE(connection->hasEnded());
    EXPECT_EQ(invalidations, 0);
}

TEST_F(LocalConnectionTest, aClientThatDoesNotReadIsNotReadFromEither) {
    connection->resume();
    std::string messages;
    for (int i = 0; i < 1000; ++i) messages += "{\"id\":1}\n";  // each is answered with 60 bytes
    makeNonBlocking(client);
    int rounds = 0;
    for (; (connection->interest() & EPOLLIN) != 0 && rounds < 1000; ++rounds) {
        ASSERT_TRUE(sendAll(client, messages));
        connection->handle(EPOLLIN);
    }
    EXPECT_EQ(connection->interest(), static_cast<std::uint32_t>(EPOLLOUT));
    EXPECT_GT(rounds * 60'000, 262'144);
    EXPECT_LT(rounds * 60'000, 262'144 + 1'000'000);  // and what lies in the socket
    EXPECT_FALSE(connection->hasEnded());
    EXPECT_EQ(invalidations, 0);
}

TEST_F(LocalConnectionTest, aClientThatLeavesMoreThanTheLimitUnreadIsDisconnected) {
    const auto runtime = makeThreadRuntime(1);
    EndlessProcess process;
    daemon::FanHelperService service(*runtime, process, nullptr);
    connection->exportService(service);
    connection->resume();
    const std::string call = "{\"id\":1,\"method\":\"helperVersion\"}\n";
    EXPECT_TRUE(sendAll(client, call + call));
    connection->handle(EPOLLIN);
    connection->take({.connection = 7, .line = std::string(8'388'608, '\n')});
    EXPECT_FALSE(connection->hasEnded());
    connection->take({.connection = 7, .line = std::string(1'000'000, '\n')});
    EXPECT_TRUE(connection->hasEnded());
    EXPECT_EQ(invalidations, 1);
}

TEST_F(LocalConnectionTest, whatTheClientCouldNotTakeIsWrittenWhenItCan) {
    connection->resume();
    std::string messages;
    for (int i = 0; i < 2000; ++i) messages += "{\"id\":1}\n";
    std::size_t expected = 0;
    while ((connection->interest() & EPOLLOUT) == 0) {
        EXPECT_TRUE(sendAll(client, messages));
        connection->handle(EPOLLIN);
        expected += 2000;
    }
    std::size_t lines = 0;
    for (int round = 0; round < 100'000 && lines < expected; ++round) {
        const std::string text = received();
        lines += static_cast<std::size_t>(std::ranges::count(text, '\n'));
        connection->handle(EPOLLOUT);
    }
    EXPECT_EQ(lines, expected);
    EXPECT_EQ(connection->interest(), static_cast<std::uint32_t>(EPOLLIN));
}

}  // namespace
}  // namespace airflow::platform
