#include <gmock/gmock.h>

#include <sstream>

#include "ToolRun.h"
#include "client/FakeHelper.h"
#include "tool/client/WatchCommand.h"

namespace airflow::tool {
namespace {

using client::FakeHelper;
using testing::ElementsAre;
using namespace std::chrono_literals;

class WatchCommand : public testing::Test {
protected:
    WatchPlan plan(std::optional<std::int64_t> count) {
        return {.helper = &client,
                .lookAtMachine = [] { return std::nullopt; },
                .count = count,
                .pause =
                    [this](concurrency::Instant until) {
                        helper.sleepUntil(until);
                        const bool isInterrupted = ++pauses == interruptedAt;
                        return isInterrupted ? WatchPlan::Pause::isInterrupted
                                             : WatchPlan::Pause::isOver;
                    }};
    }
    ToolRun watch(const WatchPlan& plan) {
        std::ostringstream out;
        std::ostringstream err;
        const int status = watchHelper(plan, helper, out, err);
        return {.status = status, .out = out.str(), .err = err.str()};
    }
    void hold() {
        helper.answers = [](const std::string& method, const std::string& id) {
            FakeHelper::Replies replies;
            if (method == "readState") {
                replies = {{"{\"id\":" + id +
                            R"(,"state":{"perFanMode":{"0":{"manual":{}}},)"
                            R"("targets":{"0":3000},"isHolding":true}})" +
                            "\n"}};
            }
            return replies;
        };
    }

    FakeHelper helper;
    client::HelperClient client{
        helper, helper, {.sendsHeartbeats = false, .maxUpgradeAttempts = 0}};
    int pauses = 0;
    int interruptedAt = 0;
};

TEST_F(WatchCommand, looksOverOneConnectionAndSendsNothingElse) {
    const auto run = watch(plan(3));
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "0.0 s  not held\n1.0 s  not held\n2.0 s  not held\n");
    EXPECT_EQ(run.err, "");
    EXPECT_THAT(helper.methods(),
                ElementsAre("helperVersion", "readState", "readState", "readState"));
    EXPECT_EQ(helper.connections, 1);
}

TEST_F(WatchCommand, sendsNoHeartbeatHoweverLongItLooks) {
    EXPECT_EQ(watch(plan(100)).status, 0);
    EXPECT_EQ(helper.countOf("heartbeat"), 0u);
}

TEST_F(WatchCommand, saysWhenItsEndReleases) {
    hold();
    const auto run = watch(plan(1));
    EXPECT_EQ(run.out, "0.0 s  held  fan 0 manual → 3000 RPM\n");
    EXPECT_EQ(run.err, "Disconnected: all fans return to Auto.\n");
}

TEST_F(WatchCommand, endsWhenInterrupted) {
    interruptedAt = 2;
    const auto run = watch(plan(std::nullopt));
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "0.0 s  not held\n1.0 s  not held\n");
}

TEST_F(WatchCommand, waitsForADaemonThatIsNotThere) {
    helper.refusals = 1;
    const auto run = watch(plan(2));
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out,
              "0.0 s  noHelper: /run/helper.sock: nobody listens there\n1.0 s  not held\n");
    helper.refusals = 1;
    client.disconnect();
    EXPECT_EQ(watch(plan(1)).status, 1);
}

TEST_F(WatchCommand, leavesADaemonOfAnotherBuildAlone) {
    helper.version = "1.0.3+5";
    EXPECT_EQ(watch(plan(2)).status, 1);
    EXPECT_THAT(helper.methods(), ElementsAre("helperVersion"));
}

TEST_F(WatchCommand, ofTheMachineOnlyDoesNotConnect) {
    auto machineOnly = plan(1);
    machineOnly.helper = nullptr;
    EXPECT_EQ(watch(machineOnly).out, "0.0 s  no machine\n");
    machineOnly.lookAtMachine = [] {
        return MachineSight{.fans = {{.id = 0, .rpm = 1200, .maxRPM = 6000, .mode = "forced"}}};
    };
    const auto run = watch(machineOnly);
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "0.0 s    fan 0 forced (1200 RPM)\n");
    EXPECT_EQ(helper.connections, 0);
}

TEST_F(WatchCommand, aScreenIsRedrawnInPlace) {
    auto onScreen = plan(2);
    onScreen.screen = [] { return WatchPlan::Screen{.columns = 80, .rows = 23}; };
    onScreen.lookAtMachine = [this] {
        const bool isFirst = helper.countOf("readState") == 1;
        return MachineSight{.fans = {{.id = 0, .rpm = isFirst ? 0.0 : 6000, .mode = "forced"}}};
    };
    EXPECT_EQ(watch(onScreen).out,
              "0.0 s  not held\x1B[K\nfan 0  forced          0 RPM\x1B[K\n\x1B[J"
              "\x1B[2A\r"
              "1.0 s  not held\x1B[K\nfan 0  forced       6000 RPM\x1B[K\n\x1B[J");
}

TEST_F(WatchCommand, aTerminalThatChangesItsSizeIsDrawnAnewWithoutAnotherLook) {
    auto onScreen = plan(2);
    std::size_t columns = 80;
    onScreen.screen = [&columns] { return WatchPlan::Screen{.columns = columns, .rows = 23}; };
    onScreen.pause = [&](concurrency::Instant until) {
        if (std::exchange(columns, 8) == 80) return WatchPlan::Pause::screenChanged;
        helper.sleepUntil(until);
        return WatchPlan::Pause::isOver;
    };
    EXPECT_EQ(watch(onScreen).out,
              "0.0 s  not held\x1B[K\n\x1B[J"
              "\x1B[2J\x1B[H0.0 s  …\x1B[K\n\x1B[J"
              "\x1B[1A\r1.0 s  …\x1B[K\n\x1B[J");
    EXPECT_EQ(helper.countOf("readState"), 2u);
}

TEST_F(WatchCommand, leavesALineOfItsOwnToThePromptWhenInterrupted) {
    interruptedAt = 1;
    auto onScreen = plan(std::nullopt);
    onScreen.screen = [] { return WatchPlan::Screen{}; };
    EXPECT_EQ(watch(onScreen).out, "0.0 s  not held\x1B[K\n\x1B[J\n");
}

TEST_F(WatchCommand, endsWhenNobodyReadsItsOutput) {
    std::ostringstream out;
    std::ostringstream err;
    out.setstate(std::ios::badbit);
    EXPECT_EQ(watchHelper(plan(std::nullopt), helper, out, err), 0);
    EXPECT_EQ(helper.connections, 0);
}

}  // namespace
}  // namespace airflow::tool
