#include "DaemonHarness.h"

namespace airflow::daemon {
namespace {

using testing::ElementsAre;

/// A daemon whose states somebody is told, or nobody.
struct TellingDaemon {
    explicit TellingDaemon(simulation::SimulatedMac& mac, bool isListenedTo = true)
        : life(mac, standardError, {.published = listener(isListenedTo)}) {
        life.start();
        life.runtime.settle();
    }

    std::function<void(const control::ControlState&)> listener(bool isListenedTo) {
        if (!isListenedTo) return {};
        return [this](const control::ControlState& state) { told.push_back(state.isHolding); };
    }
    void fullBlast() {
        life.listener.connect()->send(
            [](FanHelperService& service) { service.fullBlast([](std::int64_t) {}); });
        life.runtime.advance(1s);
    }

    std::vector<bool> told;  ///< of each state, whether it holds
    simulation::RecordedLines standardError;
    simulation::SimulatedDaemon life;
};

class PublishedStates : public testing::Test {
protected:
    simulation::SimulatedMac mac{
        *simulation::machinePreset("laptop"), [] { return Duration::zero(); }, {.jitter = 0}};
};

TEST_F(PublishedStates, areDeliveredOneByOneToTheirReader) {
    TellingDaemon daemon(mac);
    EXPECT_THAT(daemon.told, ElementsAre(false));  // of the recovery
    daemon.fullBlast();
    EXPECT_THAT(daemon.told, ElementsAre(false, true));
}

TEST_F(PublishedStates, areNotQueuedWithoutAReader) {
    TellingDaemon daemon(mac, false);
    daemon.fullBlast();
    EXPECT_EQ(daemon.life.runtime.pending().find("states"), std::string::npos);
    EXPECT_EQ(mac.fan(0).mode, FanMode::forced);
}

}  // namespace
}  // namespace airflow::daemon
