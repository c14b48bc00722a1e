#include "DaemonBench.h"

namespace airflow::daemon {
namespace {

using testing::Each;
using testing::ElementsAre;

/// shutdownForUpgrade, from the call to the end of the process.
class Upgrade : public DaemonSchedule {
protected:
    void SetUp() override { client = bench.startAndHold(); }

    void shutDown() {
        client->send([this](FanHelperService& service) {
            service.shutdownForUpgrade([this] {
                repliedAt.push_back(bench.now());
                modesAtReply = bench.modes();
            });
        });
    }

    DaemonBench bench{GetParam()};
    DaemonBench::Connection client;
    std::vector<Duration> repliedAt;
    std::vector<FanMode> modesAtReply;
};

TEST_P(Upgrade, givesTheFansBackAcknowledgesAndExits200MillisecondsLaterWith0) {
    shutDown();
    bench.advance(1s);
    EXPECT_THAT(repliedAt, ElementsAre(1s));
    EXPECT_THAT(modesAtReply, Each(FanMode::automatic));
    EXPECT_EQ(bench.end(), (ProcessEnd{.time = 1200ms, .status = 0}));
    EXPECT_THAT(bench.lines(), ElementsAre(listening, processExit));
    EXPECT_THAT(bench.modes(), Each(FanMode::automatic));
}

TEST_P(Upgrade, restoresTwice) {
    bench.journal.clear();
    shutDown();
    bench.advance(1s);
    EXPECT_THAT(bench.journal,
                ElementsAre("write Ftst=1", "write F0Md=0", "write F1Md=0", "write Ftst=0",
                            std::string("log ") + processExit, "write Ftst=1", "write F0Md=0",
                            "write F1Md=0", "write Ftst=0"));
}

TEST_P(Upgrade, acknowledgesOnlyWhenTheFansAreBack) {
    bench.mac.smc().add({.until = 1500ms, .key = "F1Md", .value = 0, .latency = 700ms});
    shutDown();
    bench.advance(699ms);
    EXPECT_TRUE(repliedAt.empty());
    bench.advance(5s);
    EXPECT_THAT(repliedAt, ElementsAre(1700ms));
    EXPECT_EQ(bench.end(), (ProcessEnd{.time = 1900ms, .status = 0}));
}

TEST_P(Upgrade, goesOnWhenAFanRefusesAndTriesItOnceMoreAtTheExit) {
    bench.mac.smc().add({.until = 1100ms, .key = "F0Md", .value = 0, .result = std::uint8_t{0x86}});
    shutDown();
    bench.advance(1s);
    EXPECT_THAT(repliedAt, ElementsAre(1s));
    EXPECT_THAT(modesAtReply, ElementsAre(FanMode::forced, FanMode::automatic));
    EXPECT_EQ(bench.end(), (ProcessEnd{.time = 1200ms, .status = 0}));
    EXPECT_THAT(bench.modes(), Each(FanMode::automatic));
}

TEST_P(Upgrade, askedForTwiceIsAcknowledgedTwiceAndEndsOnce) {
    shutDown();
    bench.advance(150ms);
    shutDown();
    bench.advance(1s);
    EXPECT_THAT(repliedAt, ElementsAre(1s, 1150ms));
    EXPECT_EQ(bench.end(), (ProcessEnd{.time = 1200ms, .status = 0}));
    EXPECT_THAT(bench.lines(), ElementsAre(listening, processExit));
}

TEST_P(Upgrade, askedForTwiceAtOnceIsAcknowledgedTwice) {
    shutDown();
    shutDown();
    bench.advance(1s);
    EXPECT_THAT(repliedAt, ElementsAre(1s, 1s));
    EXPECT_EQ(bench.end(), (ProcessEnd{.time = 1200ms, .status = 0}));
}

TEST_P(Upgrade, commandsInTheMeantimeAreCarriedOutAndUndoneByTheExit) {
    shutDown();
    bench.advance(50ms);
    std::vector<std::int64_t> codes;
    client->send([&codes](FanHelperService& service) {
        service.setManualRPM(0, 4000, [&codes](std::int64_t code) { codes.push_back(code); });
    });
    bench.advance(149ms);
    EXPECT_THAT(codes, ElementsAre(0));
    EXPECT_THAT(bench.modes(), ElementsAre(FanMode::forced, FanMode::automatic));
    EXPECT_FALSE(bench.end());
    bench.advance(1ms);
    EXPECT_EQ(bench.end(), (ProcessEnd{.time = 1200ms, .status = 0}));
    EXPECT_THAT(bench.modes(), Each(FanMode::automatic));
}

TEST_P(Upgrade, theStateCanBeReadInTheMeantime) {
    shutDown();
    bench.advance(199ms);
    EXPECT_EQ(bench.stateOf(client), R"({"perFanMode":{},"targets":{},"isHolding":false})");
}

TEST_P(Upgrade, goesOnWhenTheClientIsGone) {
    shutDown();
    client->end();
    bench.advance(1s);
    EXPECT_EQ(bench.end(), (ProcessEnd{.time = 1200ms, .status = 0}));
    EXPECT_THAT(bench.modes(), Each(FanMode::automatic));
}

INSTANTIATE_TEST_SUITE_P(Seeds, Upgrade, testing::Range(std::uint64_t{0}, std::uint64_t{21}));

}  // namespace
}  // namespace airflow::daemon
