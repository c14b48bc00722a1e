#include "DaemonHarness.h"

namespace airflow::daemon {
namespace {

using testing::Each;
using testing::ElementsAre;

/// shutdownForUpgrade, from the call to the end of the process.
class Upgrade : public DaemonSchedule {
protected:
    void SetUp() override { client = harness.startAndHold(); }

    void shutDown() {
        client->send([this](FanHelperService& service) {
            service.shutdownForUpgrade([this] {
                repliedAt.push_back(harness.now());
                modesAtReply = harness.modes();
            });
        });
    }

    DaemonHarness harness{GetParam()};
    DaemonHarness::Connection client;
    std::vector<Duration> repliedAt;
    std::vector<FanMode> modesAtReply;
};

TEST_P(Upgrade, givesTheFansBackAcknowledgesAndExits200MillisecondsLaterWith0) {
    shutDown();
    harness.advance(1s);
    EXPECT_THAT(repliedAt, ElementsAre(1s));
    EXPECT_THAT(modesAtReply, Each(FanMode::automatic));
    EXPECT_EQ(harness.end(), (ProcessEnd{.time = 1200ms, .status = 0}));
    EXPECT_THAT(harness.lines(), ElementsAre(listening, processExit));
    EXPECT_THAT(harness.modes(), Each(FanMode::automatic));
}

TEST_P(Upgrade, restoresTwice) {
    harness.journal.clear();
    shutDown();
    harness.advance(1s);
    EXPECT_THAT(harness.journal,
                ElementsAre("write Ftst=1", "write F0Md=0", "write F1Md=0", "write Ftst=0",
                            std::string("log ") + processExit, "write Ftst=1", "write F0Md=0",
                            "write F1Md=0", "write Ftst=0"));
}

TEST_P(Upgrade, acknowledgesOnlyWhenTheFansAreBack) {
    harness.mac.smc().add({.until = 1500ms, .key = "F1Md", .value = 0, .latency = 700ms});
    shutDown();
    harness.advance(699ms);
    EXPECT_TRUE(repliedAt.empty());
    harness.advance(5s);
    EXPECT_THAT(repliedAt, ElementsAre(1700ms));
    EXPECT_EQ(harness.end(), (ProcessEnd{.time = 1900ms, .status = 0}));
}

TEST_P(Upgrade, goesOnWhenAFanRefusesAndTriesItOnceMoreAtTheExit) {
    harness.mac.smc().add(
        {.until = 1100ms, .key = "F0Md", .value = 0, .result = std::uint8_t{0x86}});
    shutDown();
    harness.advance(1s);
    EXPECT_THAT(repliedAt, ElementsAre(1s));
    EXPECT_THAT(modesAtReply, ElementsAre(FanMode::forced, FanMode::automatic));
    EXPECT_EQ(harness.end(), (ProcessEnd{.time = 1200ms, .status = 0}));
    EXPECT_THAT(harness.modes(), Each(FanMode::automatic));
}

TEST_P(Upgrade, askedForTwiceIsAcknowledgedTwiceAndEndsOnce) {
    shutDown();
    harness.advance(150ms);
    shutDown();
    harness.advance(1s);
    EXPECT_THAT(repliedAt, ElementsAre(1s, 1150ms));
    EXPECT_EQ(harness.end(), (ProcessEnd{.time = 1200ms, .status = 0}));
    EXPECT_THAT(harness.lines(), ElementsAre(listening, processExit));
}

TEST_P(Upgrade, askedForTwiceAtOnceIsAcknowledgedTwice) {
    shutDown();
    shutDown();
    harness.advance(1s);
    EXPECT_THAT(repliedAt, ElementsAre(1s, 1s));
    EXPECT_EQ(harness.end(), (ProcessEnd{.time = 1200ms, .status = 0}));
}

TEST_P(Upgrade, commandsInTheMeantimeAreCarriedOutAndUndoneByTheExit) {
    shutDown();
    harness.advance(50ms);
    std::vector<std::int64_t> codes;
    client->send([&codes](FanHelperService& service) {
        service.setManualRPM(0_fan, 4000_rpm,
                             [&codes](std::int64_t code) { codes.push_back(code); });
    });
    harness.advance(149ms);
    EXPECT_THAT(codes, ElementsAre(0));
    EXPECT_THAT(harness.modes(), ElementsAre(FanMode::forced, FanMode::automatic));
    EXPECT_FALSE(harness.end());
    harness.advance(1ms);
    EXPECT_EQ(harness.end(), (ProcessEnd{.time = 1200ms, .status = 0}));
    EXPECT_THAT(harness.modes(), Each(FanMode::automatic));
}

TEST_P(Upgrade, theStateCanBeReadInTheMeantime) {
    shutDown();
    harness.advance(199ms);
    EXPECT_EQ(harness.stateOf(client), R"({"perFanMode":{},"targets":{},"isHolding":false})");
}

TEST_P(Upgrade, goesOnWhenTheClientIsGone) {
    shutDown();
    client->end();
    harness.advance(1s);
    EXPECT_EQ(harness.end(), (ProcessEnd{.time = 1200ms, .status = 0}));
    EXPECT_THAT(harness.modes(), Each(FanMode::automatic));
}

INSTANTIATE_TEST_SUITE_P(Seeds, Upgrade, testing::Range(std::uint64_t{0}, std::uint64_t{21}));

}  // namespace
}  // namespace airflow::daemon
