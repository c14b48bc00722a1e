// A client whose connection was interrupted may come back on it. What it sent before is over.
#include <fmt/format.h>

#include "DaemonHarness.h"
#include "RecordingPlatform.h"
#include "daemon/HelperListenerDelegate.h"
#include "simulation/daemon/SimulatedSystem.h"

namespace airflow::daemon {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Not;

class Interruption : public testing::Test {
protected:
    Interruption() {
        system.mac.smc().observer = [this](const simulation::SMCAccess& access) {
            if (access.operation != Fault::Operation::write) return;
            writes.push_back(fmt::format("{}={}", access.key, access.value));
        };
        (void)delegate.shouldAccept(connection);
        system.runtime.settle();
    }
    ~Interruption() override { system.runtime.abandon(); }

    void send() {
        service.setManualRPM(0_fan, 3000_rpm, [this](std::int64_t code) { codes.push_back(code); });
    }
    [[nodiscard]] FanMode mode() { return system.mac.fan(0).mode; }

    Journal journal;
    std::vector<std::string> writes;
    std::vector<std::int64_t> codes;
    simulation::SimulatedSystem system{*simulation::machinePreset("laptop")};
    guard::SMCGate gate{system.smc.executor(), system.smc, system.smc};
    guard::FanGuard guard{system.runtime, gate, [](const control::ControlError&, const auto&) {},
                          [](control::ControlledFans::Request) {}, [] { return std::uint64_t{0}; }};
    Attendance attendance{gate, guard};
    RecordingProcess process{journal};
    std::shared_ptr<control::LocalFanController> controller =
        std::make_shared<control::LocalFanController>(system.runtime, gate, system.sensors,
                                                      [] { return std::uint32_t{0}; });
    FanHelperService service{system.runtime, process, controller, &attendance};
    HelperListenerDelegate delegate{service};
    RecordingConnection connection;
};

TEST_F(Interruption, ofTheOnlyConnectionGivesItsFanBack) {
    send();
    system.runtime.advance(1s);
    ASSERT_EQ(mode(), FanMode::forced);
    connection.interrupted();
    system.runtime.settle();
    EXPECT_EQ(mode(), FanMode::automatic);
}

TEST_F(Interruption, isFollowedByCommandsThatAreCarriedOut) {
    connection.interrupted();
    system.runtime.settle();
    send();
    system.runtime.advance(1s);
    EXPECT_THAT(codes, ElementsAre(0));
    EXPECT_EQ(mode(), FanMode::forced);
}

TEST_F(Interruption, ofTheOnlyConnectionEndsWhatWasSentBeforeIt) {
    send();
    connection.interrupted();
    system.runtime.advance(1s);
    EXPECT_THAT(codes, ElementsAre(4));
    EXPECT_THAT(writes, Not(Contains("F0Md=1")));
    EXPECT_EQ(mode(), FanMode::automatic);
}

TEST_F(Interruption, ofOneConnectionOfTwoEndsNothingThatTheOtherSent) {
    RecordingConnection other;
    (void)delegate.shouldAccept(other);
    const auto arrival = attendance.now();
    other.interrupted();
    EXPECT_FALSE(attendance.isOver(arrival));
    connection.interrupted();
    EXPECT_FALSE(attendance.isOver(arrival));
}

TEST_F(Interruption, isNothingToAConnectionThatHasEnded) {
    connection.invalidated();
    RecordingConnection next;
    (void)delegate.shouldAccept(next);
    const auto arrival = attendance.now();
    connection.interrupted();
    EXPECT_FALSE(attendance.isOver(arrival));
}

TEST_F(Interruption, isNothingToAnExitThatHasBegun) {
    gate.closeForExit();
    const auto epoch = gate.epoch();
    connection.interrupted();
    EXPECT_EQ(gate.epoch(), epoch);
}

TEST_F(Interruption, isFollowedByAnInvalidationThatEndsAllCommands) {
    connection.interrupted();
    const auto arrival = attendance.now();
    connection.invalidated();
    EXPECT_TRUE(attendance.isOver(arrival));
    EXPECT_FALSE(gate.takesForcing());
}

}  // namespace
}  // namespace airflow::daemon
