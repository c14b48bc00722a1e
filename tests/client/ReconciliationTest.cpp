#include <gmock/gmock.h>

#include "FakeHelper.h"
#include "client/HelperClient.h"

namespace airflow::client {
namespace {

namespace commands = daemon::commands;
using daemon::Method;

using control::ControlResult;
using testing::ElementsAre;
using Replies = FakeHelper::Replies;

class Reconciliation : public testing::Test {
protected:
    HelperClient make(std::int64_t attempts = 3) {
        return HelperClient(helper, helper,
                            {.maxUpgradeAttempts = attempts, .startHelper = [this] { onStart(); }});
    }
    static Answer fullBlast(HelperClient& client) { return client.call(commands::FullBlast{}); }
    concurrency::Duration elapsed() { return helper.now().time_since_epoch(); }

    FakeHelper helper;
    int starts = 0;
    std::function<void()> onStart = [this] { ++starts; };
};

TEST_F(Reconciliation, theRightBuildIsUsedAsItIs) {
    auto client = make();
    EXPECT_EQ(client.connect().result, ControlResult::applied());
    EXPECT_THAT(helper.methods(), ElementsAre("helperVersion"));
    EXPECT_EQ(starts, 0);
}

TEST_F(Reconciliation, anotherBuildIsShutDownAndTheNewOneIsUsed) {
    helper.version = "1.0.3+5";
    onStart = [this] {
        ++starts;
        EXPECT_EQ(elapsed(), 200ms);  // when the old one has left
        EXPECT_EQ(helper.openConnections, 0);
        helper.version = "1.0.3+6";
    };
    auto client = make();
    EXPECT_EQ(fullBlast(client).result, ControlResult::applied());
    EXPECT_THAT(helper.methods(),
                ElementsAre("helperVersion", "shutdownForUpgrade", "helperVersion", "fullBlast"));
    EXPECT_EQ(starts, 1);
    EXPECT_EQ(helper.connections, 2);
}

TEST_F(Reconciliation, afterThreeSwapsAnotherBuildIsStale) {
    helper.version = "1.0.2+1";
    auto client = make();
    const auto answer = fullBlast(client);
    EXPECT_EQ(answer.result, ControlResult::noHelper());
    EXPECT_EQ(answer.reason, "the daemon is build 1.0.2+1; this client is made for 1.0.3+6");
    EXPECT_EQ(helper.countOf("helperVersion"), 4u);
    EXPECT_EQ(helper.countOf("shutdownForUpgrade"), 3u);
    EXPECT_EQ(helper.countOf("fullBlast"), 0u);
    EXPECT_EQ(starts, 3);
}

TEST_F(Reconciliation, theThirdSwapMayStillSucceed) {
    helper.version = "1.0.2+1";
    onStart = [this] {
        if (++starts == 3) helper.version = "1.0.3+6";
    };
    auto client = make();
    EXPECT_EQ(fullBlast(client).result, ControlResult::applied());
    EXPECT_EQ(helper.countOf("shutdownForUpgrade"), 3u);
}

TEST_F(Reconciliation, aStaleDaemonIsNotAskedAgainOnTheSameConnection) {
    helper.version = "1.0.2+1";
    auto client = make(0);
    (void)fullBlast(client);
    EXPECT_EQ(fullBlast(client).result, ControlResult::noHelper());
    EXPECT_THAT(helper.methods(), ElementsAre("helperVersion"));
    EXPECT_TRUE(client.isConnected());
}

TEST_F(Reconciliation, theNextConnectionIsAskedAgain) {
    helper.version = "1.0.2+1";
    auto client = make(0);
    (void)fullBlast(client);
    helper.say(std::string(FakeHelper::hangUp));
    helper.version = "1.0.3+6";
    EXPECT_EQ(fullBlast(client).result, ControlResult::applied());
}

TEST_F(Reconciliation, swapsAreCountedAcrossConnections) {
    helper.version = "1.0.2+1";
    auto client = make();
    (void)fullBlast(client);
    helper.say(std::string(FakeHelper::hangUp));
    EXPECT_EQ(fullBlast(client).result, ControlResult::noHelper());
    EXPECT_EQ(helper.countOf("shutdownForUpgrade"), 3u);
    EXPECT_EQ(helper.countOf("helperVersion"), 5u);
}

TEST_F(Reconciliation, withoutAttemptsNobodyIsShutDown) {
    helper.version = "1.0.2+1";
    for (const std::int64_t attempts : {0, -1}) {
        auto client = make(attempts);
        EXPECT_EQ(fullBlast(client).result, ControlResult::noHelper());
    }
    EXPECT_EQ(helper.countOf("shutdownForUpgrade"), 0u);
}

TEST_F(Reconciliation, noReplyIsStaleAtOnceAndTheConnectionIsLeft) {
    helper.answers = [](const std::string&, const std::string& id) -> Replies {
        return {{"{\"id\":" + id + ",\"version\":\"1.0.3+6\"}\n", 5001ms}};
    };
    auto client = make();
    const auto answer = fullBlast(client);
    EXPECT_EQ(answer.result, ControlResult::noHelper());
    EXPECT_EQ(answer.reason, "the daemon does not say which build it is: no answer within 5 s");
    EXPECT_EQ(elapsed(), 5s);
    EXPECT_FALSE(client.isConnected());
    EXPECT_THAT(helper.methods(), ElementsAre("helperVersion"));
    EXPECT_EQ(starts, 0);
}

TEST_F(Reconciliation, garbageAndAnEndAreNoReply) {
    for (const std::string bytes : {"garbage\n", "{\"id\":1,\"error\":\"no\"}\n", "\x04"}) {
        FakeHelper other;
        other.answers = [&](const std::string&, const std::string&) -> Replies {
            return {{bytes}};
        };
        HelperClient client(other, other);
        EXPECT_EQ(fullBlast(client).result, ControlResult::noHelper()) << bytes;
        EXPECT_EQ(other.countOf("shutdownForUpgrade"), 0u) << bytes;
        EXPECT_FALSE(client.isConnected()) << bytes;
    }
}

TEST_F(Reconciliation, theNewDaemonMayTakeAWhileToStart) {
    helper.version = "1.0.3+5";
    onStart = [this] {
        helper.version = "1.0.3+6";
        helper.refusals = 20;  // a try every 100 ms
    };
    auto client = make();
    EXPECT_EQ(fullBlast(client).result, ControlResult::applied());
    EXPECT_EQ(elapsed(), 2200ms);
}

TEST_F(Reconciliation, aNewDaemonThatDoesNotComeIsNoHelper) {
    helper.version = "1.0.3+5";
    onStart = [this] { helper.refusals = 1000; };
    auto client = make();
    const auto answer = fullBlast(client);
    EXPECT_EQ(answer.result, ControlResult::noHelper());
    EXPECT_EQ(answer.reason,
              "the daemon of another build has left, and no other came: "
              "/run/helper.sock: nobody listens there");
    EXPECT_EQ(elapsed(), 15200ms);
}

TEST_F(Reconciliation, aDaemonThatAcknowledgesAndStaysIsAskedAgainAfterFiveSeconds) {
    helper.version = "1.0.3+5";
    helper.answers = [](const std::string& method, const std::string& id) -> Replies {
        if (method != "shutdownForUpgrade") return {};
        return {{"{\"id\":" + id + "}\n"}};
    };
    auto client = make(1);
    EXPECT_EQ(fullBlast(client).result, ControlResult::noHelper());
    EXPECT_EQ(elapsed(), 5s);
    EXPECT_EQ(helper.countOf("shutdownForUpgrade"), 1u);
}

TEST_F(Reconciliation, theBuildAndTheShutdownCanBeAskedOfAnyBuild) {
    helper.version = "1.0.3+5";
    auto client = make();
    EXPECT_EQ(client.call(commands::HelperVersion{}).version, "1.0.3+5");
    EXPECT_EQ(client.call(commands::ShutdownForUpgrade{}).result, ControlResult::applied());
    EXPECT_THAT(helper.methods(), ElementsAre("helperVersion", "shutdownForUpgrade"));
}

TEST_F(Reconciliation, noHeartbeatGoesToAnotherBuild) {
    helper.version = "1.0.3+5";
    auto client = make(0);
    (void)fullBlast(client);
    helper.advance(60s);
    EXPECT_EQ(client.attend(), concurrency::Instant::max());
    EXPECT_EQ(helper.countOf("heartbeat"), 0u);
}

}  // namespace
}  // namespace airflow::client
