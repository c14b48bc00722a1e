#include <gmock/gmock.h>

#include "FakeHelper.h"
#include "client/HelperClient.h"

namespace airflow::client {
namespace {

namespace commands = daemon::commands;
using daemon::Method;

using control::ControlResult;
using testing::ElementsAre;

class HelperClientTest : public testing::Test {
protected:
    using Replies = FakeHelper::Replies;

    /// Answers `method` by `bytes`, in which # stands for the id.
    void reply(std::string method, std::string bytes, concurrency::Duration after = 0s) {
        helper.answers = [=](const std::string& asked, const std::string& id) -> Replies {
            if (asked != method) return {};
            std::string filled = bytes;
            if (const auto mark = filled.find('#'); mark != std::string::npos) {
                filled.replace(mark, 1, id);
            }
            return {{filled, after}};
        };
    }
    concurrency::Duration elapsed() { return helper.now().time_since_epoch(); }
    Answer call(daemon::Method method) { return client.call(daemon::commandOf(method)); }
    /// Attends to the client in time, as its user has to.
    void idleFor(concurrency::Duration duration) {
        const auto until = helper.now() + duration;
        for (;;) {
            const auto due = client.attend();
            if (helper.now() >= until) return;
            helper.sleepUntil(std::min(due, until));
        }
    }

    FakeHelper helper;
    HelperClient client{helper, helper};
};

TEST_F(HelperClientTest, theFirstCallConnectsAsksForTheBuildAndIsCarriedOut) {
    const auto answer = client.call(commands::SetPercent{.fan = 0, .percent = 55});
    EXPECT_EQ(answer.result, ControlResult::applied());
    EXPECT_THAT(helper.lines,
                ElementsAre("{\"id\":1,\"method\":\"helperVersion\"}",
                            "{\"id\":2,\"method\":\"setPercent\",\"fan\":0,\"percent\":55}"));
    EXPECT_EQ(helper.connections, 1);
}

TEST_F(HelperClientTest, theBuildIsAskedOnceAConnection) {
    (void)call(Method::fullBlast);
    (void)call(Method::automatic);
    EXPECT_THAT(helper.methods(), ElementsAre("helperVersion", "fullBlast", "automatic"));
}

TEST_F(HelperClientTest, everyCodeBecomesItsResult) {
    const std::vector<std::pair<int, ControlResult>> rows{
        {0, ControlResult::applied()},
        {1, ControlResult::acquiring()},
        {2, ControlResult::timedOut()},
        {3, ControlResult::reclaimed()},
        {4, ControlResult::rejected(0)},
        {5, ControlResult::notPrivileged()},
        {6, ControlResult::noHelper()},
        {7, ControlResult::failed("xpc: unrecognized result code 7")},
        {8, ControlResult::failed("xpc: unrecognized result code 8")},
        {-1, ControlResult::failed("xpc: unrecognized result code -1")}};
    for (const auto& [code, result] : rows) {
        reply("fullBlast", "{\"id\":#,\"code\":" + std::to_string(code) + "}\n");
        const auto answer = call(Method::fullBlast);
        EXPECT_EQ(answer.result, result) << code;
        EXPECT_EQ(answer.reason, "") << code;
    }
}

TEST_F(HelperClientTest, acknowledgementsVersionsAndStatesCountAsApplied) {
    EXPECT_EQ(call(Method::restoreAuto).result, ControlResult::applied());
    const auto version = call(Method::helperVersion);
    EXPECT_EQ(version.result, ControlResult::applied());
    EXPECT_EQ(version.version, "1.0.3+6");
    const auto state = call(Method::readState);
    EXPECT_EQ(state.result, ControlResult::applied());
    EXPECT_EQ(state.state, control::ControlState::idle());
}

TEST_F(HelperClientTest, anErrorIsAFailureWithTheDaemonsReasonAndTheConnectionStays) {
    reply("fullBlast", "{\"id\":#,\"error\":\"unknown method\"}\n");
    const auto answer = call(Method::fullBlast);
    EXPECT_EQ(answer.result, ControlResult::failed("unknown method"));
    EXPECT_EQ(answer.reason, "unknown method");
    EXPECT_TRUE(client.isConnected());
}

TEST_F(HelperClientTest, anErrorWithoutAnIDIsAboutTheCallThatWaits) {
    reply("fullBlast", "{\"id\":null,\"error\":\"not JSON\"}\n");
    EXPECT_EQ(call(Method::fullBlast).result, ControlResult::failed("not JSON"));
}

TEST_F(HelperClientTest, anAnswerThatLacksWhatItsMethodIsAnsweredWithIsAFailure) {
    reply("fullBlast", "{\"id\":#}\n");
    EXPECT_EQ(call(Method::fullBlast).reason, "the answer to fullBlast has no code");
    reply("readState", "{\"id\":#}\n");
    EXPECT_EQ(call(Method::readState).reason, "the answer to readState has no state");
    reply("helperVersion", "{\"id\":#,\"code\":0}\n");
    EXPECT_EQ(call(Method::helperVersion).reason, "the answer to helperVersion has no version");
    EXPECT_EQ(helper.connections, 1);
}

TEST_F(HelperClientTest, aStateThatIsNoneIsAFailureAndTheConnectionStays) {
    reply("readState", "{\"id\":#,\"state\":{}}\n");
    EXPECT_EQ(call(Method::readState).reason,
              "the answer: state: The required key \"perFanMode\" is missing.");
    EXPECT_TRUE(client.isConnected());
}

TEST_F(HelperClientTest, withoutADaemonThereIsNoHelper) {
    helper.refusals = 1;
    const auto answer = call(Method::fullBlast);
    EXPECT_EQ(answer.result, ControlResult::noHelper());
    EXPECT_EQ(answer.reason, "/run/helper.sock: nobody listens there");
    EXPECT_EQ(elapsed(), 0s);
    EXPECT_EQ(call(Method::fullBlast).result, ControlResult::applied());
}

TEST_F(HelperClientTest, aCallIsGivenUpAfterThirtySeconds) {
    reply("fullBlast", "{\"id\":#,\"code\":0}\n", 30001ms);
    const auto answer = call(Method::fullBlast);
    EXPECT_EQ(answer.result, ControlResult::failed("no answer within 30 s"));
    EXPECT_EQ(elapsed(), 30s);
}

TEST_F(HelperClientTest, theTimeThatWasWaitedIsToldInRoundNumbers) {
    /// Every look at the clock takes a moment.
    struct Ticking final : Time {
        explicit Ticking(FakeHelper& clock) : clock(clock) {}
        concurrency::Instant now() override { return clock.advance(51ns), clock.now(); }
        void sleepUntil(concurrency::Instant until) override { clock.sleepUntil(until); }

        FakeHelper& clock;
    } ticking(helper);
    HelperClient client(helper, ticking);
    reply("fullBlast", "{\"id\":#,\"code\":0}\n", 31s);
    EXPECT_EQ(client.call(daemon::commands::FullBlast{}).reason, "no answer within 30 s");
}

TEST_F(HelperClientTest, anAnswerAtTheLastMomentCounts) {
    reply("fullBlast", "{\"id\":#,\"code\":2}\n", 30s);
    EXPECT_EQ(call(Method::fullBlast).result, ControlResult::timedOut());
}

TEST_F(HelperClientTest, anAnswerThatComesTooLateIsNotTakenForTheNext) {
    reply("fullBlast", "{\"id\":#,\"code\":4}\n", 31s);
    (void)call(Method::fullBlast);
    reply("automatic", "{\"id\":#,\"code\":0}\n", 2s);
    EXPECT_EQ(call(Method::automatic).result, ControlResult::applied());
    EXPECT_EQ(elapsed(), 32s);
}

TEST_F(HelperClientTest, answersOutOfOrderFindTheirCalls) {
    helper.answers = [](const std::string& method, const std::string& id) -> Replies {
        if (method != "fullBlast") return {};
        return {{"{\"id\":99,\"code\":5}\n{\"id\":1,\"code\":6}\n"},
                {"{\"id\":" + id + ",\"code\":2}\n{\"id\":-3}\n"}};
    };
    EXPECT_EQ(call(Method::fullBlast).result, ControlResult::timedOut());
    EXPECT_EQ(call(Method::automatic).result, ControlResult::applied());
}

TEST_F(HelperClientTest, anAnswerMayArriveInPieces) {
    helper.answers = [](const std::string& method, const std::string& id) -> Replies {
        if (method != "fullBlast") return {};
        return {{"{\"id\":"}, {id, 1s}, {",\"code\":3}", 2s}, {"\n", 3s}};
    };
    EXPECT_EQ(call(Method::fullBlast).result, ControlResult::reclaimed());
    EXPECT_EQ(elapsed(), 3s);
}

TEST_F(HelperClientTest, whoDoesNotSpeakTheProtocolIsLeft) {
    for (const std::string garbage :
         {"HTTP/1.1 400 Bad Request\n", "\n", "{\"hello\":1}\n", "[1]\n", "{\"id\":\"x\"}\n"}) {
        reply("fullBlast", garbage);
        const auto answer = call(Method::fullBlast);
        EXPECT_EQ(answer.result,
                  ControlResult::failed("what answers does not speak the daemon's protocol"))
            << garbage;
        EXPECT_FALSE(client.isConnected()) << garbage;
        EXPECT_EQ(helper.openConnections, 0) << garbage;
    }
}

TEST_F(HelperClientTest, aLineWithoutEndIsNotCollectedForEver) {
    reply("fullBlast", std::string(wire::lineLimit + 1, 'x'));
    EXPECT_EQ(call(Method::fullBlast).reason, "what answers does not speak the daemon's protocol");
    (void)client.connect();
    helper.say(std::string(wire::lineLimit, 'x'));
    client.attend();
    EXPECT_TRUE(client.isConnected());
    helper.say("x");
    client.attend();
    EXPECT_FALSE(client.isConnected());
}

TEST_F(HelperClientTest, aDaemonThatDiesDuringACallIsAFailureAndTheNextCallConnectsAgain) {
    reply("fullBlast", std::string(FakeHelper::hangUp), 3s);
    const auto answer = call(Method::fullBlast);
    EXPECT_EQ(answer.result, ControlResult::failed("the connection ended before an answer came"));
    EXPECT_FALSE(client.isConnected());
    reply("", "");
    EXPECT_EQ(call(Method::automatic).result, ControlResult::applied());
    EXPECT_EQ(helper.connections, 2);
    EXPECT_EQ(helper.countOf("helperVersion"), 2u);
}

TEST_F(HelperClientTest, anAnswerBeforeTheEndOfTheConnectionCounts) {
    helper.answers = [](const std::string& method, const std::string& id) -> Replies {
        if (method != "fullBlast") return {};
        return {{"{\"id\":" + id + ",\"code\":0}\n"}, {std::string(FakeHelper::hangUp)}};
    };
    EXPECT_EQ(call(Method::fullBlast).result, ControlResult::applied());
}

TEST_F(HelperClientTest, whatADeadConnectionLeftUnreadIsNotReadOnTheNext) {
    helper.answers = [](const std::string& method, const std::string&) -> Replies {
        if (method != "fullBlast") return {};
        return {{"{\"id\":"}, {std::string(FakeHelper::hangUp)}};
    };
    (void)call(Method::fullBlast);
    EXPECT_EQ(call(Method::automatic).result, ControlResult::applied());
}

TEST_F(HelperClientTest, aConnectionThatEndedWhileNothingWaitedIsMadeAgain) {
    (void)call(Method::fullBlast);
    helper.say(std::string(FakeHelper::hangUp));
    EXPECT_EQ(call(Method::automatic).result, ControlResult::applied());
    EXPECT_EQ(helper.connections, 2);
}

TEST_F(HelperClientTest, attendingNoticesTheEndOfTheConnection) {
    (void)client.connect();
    EXPECT_EQ(client.attend(), helper.now() + 5s);
    helper.say(std::string(FakeHelper::hangUp));
    EXPECT_EQ(client.attend(), concurrency::Instant::max());
    EXPECT_FALSE(client.isConnected());
}

TEST_F(HelperClientTest, whatCannotBeSentIsAFailureAndEndsTheConnection) {
    (void)client.connect();
    helper.isDeaf = true;
    const auto answer = call(Method::fullBlast);
    EXPECT_EQ(answer.result,
              ControlResult::failed("the connection ended before the call was sent"));
    EXPECT_FALSE(client.isConnected());
}

TEST_F(HelperClientTest, aRequestThatHasNoLineIsNotSent) {
    const auto answer = client.call(commands::ApplyConfig{.plan = "\xFF"});
    EXPECT_EQ(answer.result.outcome(), ControlResult::Case::failed);
    EXPECT_THAT(answer.reason, testing::StartsWith("plan: "));
    EXPECT_EQ(helper.countOf("applyConfig"), 0u);
}

TEST_F(HelperClientTest, aHeartbeatGoesOutEveryFiveSeconds) {
    (void)client.connect();
    idleFor(4999ms);
    EXPECT_EQ(helper.countOf("heartbeat"), 0u);
    idleFor(1ms);
    EXPECT_EQ(helper.countOf("heartbeat"), 1u);
    idleFor(15s);
    EXPECT_EQ(helper.countOf("heartbeat"), 4u);
    EXPECT_THAT(helper.times, ElementsAre(0s, 5s, 10s, 15s, 20s));
}

TEST_F(HelperClientTest, heartbeatsGoOnWhileACallWaits) {
    reply("fullBlast", "{\"id\":#,\"code\":0}\n", 12s);
    EXPECT_EQ(call(Method::fullBlast).result, ControlResult::applied());
    EXPECT_THAT(helper.methods(),
                ElementsAre("helperVersion", "fullBlast", "heartbeat", "heartbeat"));
    EXPECT_THAT(helper.times, ElementsAre(0s, 0s, 5s, 10s));
}

TEST_F(HelperClientTest, aHeartbeatByCallHasNoAnswer) {
    EXPECT_EQ(call(Method::heartbeat).result, ControlResult::applied());
    EXPECT_EQ(elapsed(), 0s);
    EXPECT_THAT(helper.methods(), ElementsAre("helperVersion", "heartbeat"));
}

TEST_F(HelperClientTest, whoOnlyWatchesSendsNoHeartbeats) {
    HelperClient watcher(helper, helper, {.sendsHeartbeats = false});
    (void)watcher.connect();
    EXPECT_EQ(watcher.attend(), concurrency::Instant::max());
    helper.advance(60s);
    watcher.attend();
    EXPECT_EQ(helper.countOf("heartbeat"), 0u);
}

TEST_F(HelperClientTest, disconnectingEndsTheConnection) {
    (void)client.connect();
    EXPECT_EQ(helper.openConnections, 1);
    client.disconnect();
    EXPECT_EQ(helper.openConnections, 0);
    EXPECT_FALSE(client.isConnected());
}

}  // namespace
}  // namespace airflow::client
