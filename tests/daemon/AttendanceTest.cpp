// Which commands still have a client when their turn comes.
#include <gmock/gmock.h>

#include <optional>

#include "daemon/Attendance.h"
#include "simulation/daemon/SimulatedSystem.h"

namespace airflow::daemon {
namespace {

class AttendanceTest : public testing::Test {
protected:
    simulation::SimulatedSystem system{*simulation::machinePreset("laptop")};
    guard::SMCGate gate{system.smc.executor(), system.smc, system.smc};
    guard::FanGuard guard{system.runtime, gate, [](const control::ControlError&, const auto&) {},
                          [](control::ControlledFans::Request) {}, [] { return std::uint64_t{0}; }};
    Attendance attendance{gate, guard};
};

TEST_F(AttendanceTest, ofACommandIsOverWhenTheLastClientHasGone) {
    Attendance::Visit first(attendance);
    Attendance::Visit second(attendance);
    const auto arrival = attendance.now();
    first.end();
    EXPECT_FALSE(attendance.isOver(arrival));
    EXPECT_TRUE(gate.takesForcing());
    second.end();
    EXPECT_TRUE(attendance.isOver(arrival));
    EXPECT_FALSE(gate.takesForcing());
}

TEST_F(AttendanceTest, ofAnEarlierCommandStaysOverWhenTheNextClientHasCome) {
    std::optional<Attendance::Visit> first(std::in_place, attendance);
    const auto arrival = attendance.now();
    first->end();
    [[maybe_unused]] const Attendance::Visit next(attendance);
    EXPECT_TRUE(attendance.isOver(arrival));
    EXPECT_FALSE(attendance.isOver(attendance.now()));
}

TEST_F(AttendanceTest, ofOthersIsNotEndedByAConnectionThatEndsTwice) {
    Attendance::Visit ending(attendance);
    [[maybe_unused]] const Attendance::Visit staying(attendance);
    const auto arrival = attendance.now();
    ending.end();
    ending.end();
    EXPECT_FALSE(attendance.isOver(arrival));
    EXPECT_TRUE(gate.takesForcing());
}

TEST_F(AttendanceTest, isOverForEveryCommandWhenTheProcessBeginsToEnd) {
    [[maybe_unused]] const Attendance::Visit client(attendance);
    const auto arrival = attendance.now();
    gate.closeForExit();
    EXPECT_TRUE(attendance.isOver(arrival));
}

}  // namespace
}  // namespace airflow::daemon
