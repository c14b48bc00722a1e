#include <gmock/gmock.h>

#include <algorithm>
#include <string>

#include "LocalConnectionHarness.h"

namespace airflow::platform {
namespace {

TEST_F(LocalConnectionTest, readsNothingBeforeItIsResumed) {
    EXPECT_TRUE(sendAll(client, noCall));
    EXPECT_EQ(turn(), 0U);
    EXPECT_EQ(received(), "");
    connection->resume();
    EXPECT_GT(turn(), 0U);
    EXPECT_EQ(received(), refusal);
    EXPECT_FALSE(connection->hasEnded());
}

TEST_F(LocalConnectionTest, waitsWithoutBusyness) {
    connection->resume();
    turn();
    EXPECT_EQ(turn(), 0U);
    EXPECT_TRUE(sendAll(client, calls(LocalConnection::unansweredLimit)));
    turn();
    EXPECT_EQ(turn(), 0U);
    EXPECT_TRUE(sendAll(client, noCall));  // which is not read now
    turn();
    EXPECT_EQ(turn(), 0U);
    finishSending();
    turn();
    EXPECT_EQ(turn(), 0U);
    EXPECT_EQ(ends, 0);
}

TEST_F(LocalConnectionTest, theEndOfTheClientIsToldOnce) {
    connection->resume();
    client = {};
    turn();
    EXPECT_TRUE(connection->hasEnded());
    EXPECT_EQ(invalidations, 1);
    EXPECT_EQ(ends, 1);
    EXPECT_EQ(turn(), 0U);
    connection.reset();
    EXPECT_EQ(invalidations, 1);
    EXPECT_EQ(interruptions, 0);
    EXPECT_EQ(ends, 1);
}

TEST_F(LocalConnectionTest, itsOwnEndIsToldOnce) {
    connection->resume();
    connection.reset();
    EXPECT_EQ(invalidations, 1);
    client = {};
    turn();
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
    EXPECT_EQ(ends, 1);
    EXPECT_EQ(turn(), 0U);
    EXPECT_EQ(invalidations, 1);
    EXPECT_EQ(received(),
              "{\"id\":null,\"error\":\"The daemon takes commands from its own user and from root "
              "only.\"}\n");
}

TEST_F(LocalConnectionTest, whoeverIsWelcomeIsHeard) {
    connection->setCodeSigningRequirement("any");
    connection->resume();
    EXPECT_TRUE(sendAll(client, noCall));
    turn();
    EXPECT_EQ(received(), refusal);
    EXPECT_FALSE(connection->hasEnded());
    EXPECT_EQ(invalidations, 0);
}

TEST_F(LocalConnectionTest, whatWasSentBeforeTheEndIsDelivered) {
    connection->resume();
    EXPECT_TRUE(sendAll(client, calls(1)));
    client = {};
    turn();
    EXPECT_EQ(invalidations, 1);
    EXPECT_EQ(ends, 1) << "nobody is there to answer";
    runtime.settle();
    EXPECT_EQ(turn(), 1U) << "the answer comes nevertheless";
}

TEST_F(LocalConnectionTest, aClientWithManyCallsUnderWayIsNotReadFrom) {
    beBusy(noCall);
    EXPECT_EQ(received(), "");
    answer();
    const std::string answers = received();
    EXPECT_EQ(std::ranges::count(answers, '\n'), 257);
    EXPECT_THAT(answers, testing::StartsWith("{\"id\":0,\"code\":7}\n" + std::string(refusal) +
                                             "{\"id\":1,\"code\":7}\n"));
    EXPECT_THAT(answers, testing::EndsWith("{\"id\":255,\"code\":7}\n"));
    EXPECT_EQ(invalidations, 0);
}

TEST_F(LocalConnectionTest, theEndOfAClientThatIsNotReadFromIsNoticed) {
    beBusy(noCall);
    EXPECT_EQ(invalidations, 0);
    client = {};
    turn();
    EXPECT_EQ(invalidations, 1);
    EXPECT_TRUE(connection->hasEnded());
    EXPECT_EQ(ends, 1);
    connection.reset();
    answer();  // too late for anybody
    EXPECT_EQ(invalidations, 1);
}

TEST_F(LocalConnectionTest, anEventThatIsNoneEndsNothing) {
    using Event = WatchedSocket::Event;
    beBusy(noCall);
    for (const Event event : {Event::readable, Event::writable, Event::end}) {
        connection->handle(event);
    }
    EXPECT_EQ(invalidations, 0);
    answer();
    EXPECT_EQ(std::ranges::count(received(), '\n'), 257);
    for (const Event event : {Event::readable, Event::writable, Event::end}) {
        connection->handle(event);
    }
    EXPECT_EQ(invalidations, 0);
    EXPECT_EQ(ends, 0);
}

TEST_F(LocalConnectionTest, aClientThatHasFinishedSendingGetsItsAnswersOrGoes) {
    beBusy();
    finishSending();
    turn();
    EXPECT_EQ(invalidations, 0) << "it is not read from, so nobody knows";
    EXPECT_FALSE(connection->hasEnded());
    client = {};
    turn();
    EXPECT_EQ(invalidations, 1);
    EXPECT_EQ(ends, 1);
}

TEST_F(LocalConnectionTest, urgentDataEndsAConnectionThatIsNotReadFrom) {
    beBusy();
    if (send(client.get(), "!", 1, MSG_OOB) != 1) GTEST_SKIP() << "this system has none";
    turn();
    EXPECT_EQ(turn(), 0U) << "it would be told of without end";
    EXPECT_EQ(invalidations, 1);
    EXPECT_EQ(ends, 1);
}

TEST_F(LocalConnectionTest, anAnswerThatComesTooLateFindsNobody) {
    connection->resume();
    EXPECT_TRUE(sendAll(client, calls(1)));
    turn();
    connection.reset();
    answer();
    EXPECT_EQ(received(), "");
}

TEST_F(LocalConnectionTest, aClientThatDoesNotReadIsNotReadFromEither) {
    connection->resume();
    const std::size_t answered = sendWhileRead() * refusal.size();
    EXPECT_GT(answered, 262'144U);
    EXPECT_LT(answered, 262'144U + 2'000'000U);  // and what lies in the socket, both ways
    EXPECT_EQ(turn(), 0U);
    EXPECT_FALSE(connection->hasEnded());
    EXPECT_EQ(invalidations, 0);
}

TEST_F(LocalConnectionTest, whatTheClientCouldNotTakeIsWrittenWhenItCan) {
    connection->resume();
    const std::size_t expected = sendWhileRead();
    std::size_t lines = 0;
    bool isRestSent = false;
    for (int round = 0; round < 100'000 && lines < expected; ++round) {
        const std::string text = received();
        lines += static_cast<std::size_t>(std::ranges::count(text, '\n'));
        turn();
        if (!isRestSent) isRestSent = sendAll(client, restOfALine);
    }
    EXPECT_EQ(lines, expected);
    turn();
    EXPECT_EQ(turn(), 0U);
    EXPECT_TRUE(sendAll(client, noCall));
    turn();
    EXPECT_EQ(received(), refusal);
}

TEST_F(LocalConnectionTest, aClientThatLeavesMoreThanTheLimitUnreadIsDisconnected) {
    connection->resume();
    EXPECT_TRUE(sendAll(client, calls(2)));
    turn();
    connection->answer(std::string(8'388'608, '\n'));
    EXPECT_FALSE(connection->hasEnded());
    EXPECT_EQ(ends, 0);
    connection->answer(std::string(1'000'000, '\n'));
    EXPECT_TRUE(connection->hasEnded());
    EXPECT_EQ(invalidations, 1);
    EXPECT_EQ(ends, 1);
}

TEST_F(LocalConnectionTest, everyCallIsAnsweredOnceWhateverThreadAnswers) {
    const auto threads = makeThreadRuntime(4);
    daemon::FanHelperService parallel(*threads, process, nullptr);
    connection->exportService(parallel);
    connection->resume();
    std::string text;
    for (int round = 0; round < 20; ++round) {
        ASSERT_TRUE(sendAll(client, calls(100)));
        EXPECT_TRUE(eventually([&] {
            turn();
            text += received();
            return std::ranges::count(text, '\n') == 100 * (round + 1);
        }));
    }
    for (int id = 0; id < 100; ++id) {
        const std::string line = "{\"id\":" + std::to_string(id) + ",\"code\":7}\n";
        int times = 0;
        for (auto at = text.find(line); at != std::string::npos; at = text.find(line, at + 1)) {
            ++times;
        }
        EXPECT_EQ(times, 20) << line;
    }
    threads->abandon();
}

}  // namespace
}  // namespace airflow::platform
