// Commands whose clients are gone when their turn comes: the end of the last connection was the
// last word.
#include <gmock/gmock.h>

#include "DaemonHarness.h"
#include "RecordingPlatform.h"
#include "daemon/Daemon.h"

namespace airflow::daemon {
namespace {

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::Not;

/// A daemon whose threads take up last what came first, as a busy pool may: a command of the first
/// client has its turn when there is nothing else to do.
class GoneClients : public testing::Test {
protected:
    GoneClients() {
        runtime.detach("start-up", daemon.startUp());
        runtime.settle();
        (void)listener.delegate->shouldAccept(first);
        mac.smc().observer = [this](const simulation::SMCAccess& access) { note(access); };
    }
    ~GoneClients() override { runtime.abandon(); }

    void letTheNextComeInTheirPlace() {
        first.invalidated();
        (void)listener.delegate->shouldAccept(next);
    }
    [[nodiscard]] FanHelperService::CodeReply keepCode() {
        return [this](std::int64_t code) { codes.push_back(code); };
    }
    void expectRejected() {
        EXPECT_THAT(codes, ElementsAre(4));
        EXPECT_THAT(writes, Not(Contains("F0Md=1")));
        EXPECT_EQ(mac.fan(0).mode, FanMode::automatic);
    }

    static std::size_t newest(std::size_t candidates) { return candidates - 1; }

    std::vector<std::int64_t> codes;
    std::vector<std::string> writes;
    /// Called once, when the first client's end has given the fans back.
    std::function<void()> givenBack;

    Journal journal;
    simulation::SimulatedRuntime runtime{newest};
    simulation::SimulatedMac mac{*simulation::machinePreset("laptop"),
                                 [this] { return runtime.now().time_since_epoch(); },
                                 {.jitter = 0}};
    RecordingProcess process{journal};
    RecordingListener listener{journal};
    RecordingConnection first;
    RecordingConnection next;
    simulation::RecordedLines standardError;
    simulation::SimulatedHardware hardware{runtime, mac, standardError};
    Daemon daemon{{.runtime = runtime,
                   .hardware = hardware,
                   .process = process,
                   .listener = listener,
                   .standardError = standardError,
                   .effectiveUserID = [] { return 0U; }}};

private:
    void note(const simulation::SMCAccess& access) {
        if (access.operation != Fault::Operation::write) return;
        writes.push_back(fmt::format("{}={}", access.key, access.value));
        if (writes.back() == "Ftst=0" && givenBack) std::exchange(givenBack, nullptr)();
    }
};

TEST_F(GoneClients, forceNothingAfterTheEndOfTheLast) {
    first.exported->setManualRPM(0_fan, 3000_rpm, keepCode());
    first.invalidated();
    runtime.advance(1s);
    expectRejected();
}

TEST_F(GoneClients, setNoSpeedWhenTheNextHasCome) {
    first.exported->setManualRPM(0_fan, 3000_rpm, keepCode());
    letTheNextComeInTheirPlace();
    runtime.advance(1s);
    expectRejected();
}

TEST_F(GoneClients, setNoSpeedWhenTheirConnectionWasInterrupted) {
    first.exported->setManualRPM(0_fan, 3000_rpm, keepCode());
    first.interrupted();
    runtime.advance(1s);
    expectRejected();
}

TEST_F(GoneClients, putNoPlanInForceWhenTheNextHasCome) {
    first.exported->applyConfig(
        R"({"fans":[{"fanID":0,"mode":{"fixedRPM":{"_0":2500}}}],"rules":[],"tuning":)"
        R"({"emaAlpha":0.3,"hysteresisCelsius":2,"maxDeltaRPMPerTick":400,"minDwellSeconds":3}})",
        keepCode());
    letTheNextComeInTheirPlace();
    runtime.advance(1s);
    expectRejected();
}

TEST_F(GoneClients, doNotEndWhatTheNextHolds) {
    int acknowledgements = 0;
    first.exported->restoreAuto([&acknowledgements] { ++acknowledgements; });
    letTheNextComeInTheirPlace();
    givenBack = [this] { next.exported->fullBlast(keepCode()); };
    runtime.advance(1s);
    EXPECT_EQ(acknowledgements, 1);
    EXPECT_THAT(codes, ElementsAre(0));
    EXPECT_EQ(mac.fan(0).mode, FanMode::forced);
    EXPECT_EQ(mac.fan(1).mode, FanMode::forced);
}

}  // namespace
}  // namespace airflow::daemon
