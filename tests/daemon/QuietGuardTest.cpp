// The guard is for what nobody else sees: it never acts where the controller does its part, however
// long a snapshot takes.
#include <fmt/format.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "ScenarioDiary.h"

namespace airflow::daemon {
namespace {

using testing::IsEmpty;

/// A machine without HID, with so many SMC temperatures; fan 0 is held.
std::string heldFanAmong(int temperatures, const std::string& events) {
    std::string keys;
    for (int key = 0; key < temperatures; ++key) {
        keys += fmt::format(R"({}"TG{:02x}":45)", key == 0 ? "" : ",", key);
    }
    return R"("machine":{"preset":"no-hid","smc":{)" + keys +
           R"(}},"duration":120,"events":[{"at":1,"call":"setManualRPM","fan":0,"rpm":3000})" +
           events + "]";
}

TEST(QuietGuard, leavesAFanAloneThatIsHeldOnAMachineWithVeryManySMCTemperatures) {
    const ScenarioDiary run(heldFanAmong(200, R"(,{"at":2,"heartbeatEvery":2,"until":119})"));
    EXPECT_THAT(run.guardActed, IsEmpty());
    EXPECT_THAT(run.errors, IsEmpty());
    EXPECT_TRUE(run.isForced(0));
}

/// The client was last heard after a second.
TEST(QuietGuard, leavesASilenceNoLongerThanTheSnapshotThatIsUnderWay) {
    const ScenarioDiary run(heldFanAmong(200, ""));
    const auto back = run.givenBack(0);
    ASSERT_TRUE(back);
    EXPECT_GT(*back, 16);
    EXPECT_LT(*back, 16 + 12);
}

const std::filesystem::path scenarios = AIRFLOW_EXAMPLES "/scenarios";

std::expected<std::string, std::string> textOf(const std::string& path) {
    std::ifstream file(scenarios / path);
    if (!file) return std::unexpected(path + " cannot be read.");
    return std::string(std::istreambuf_iterator<char>(file), {});
}

class QuietGuardOfAnExample : public testing::TestWithParam<std::string> {};

TEST_P(QuietGuardOfAnExample, doesNothing) {
    const auto text = textOf(GetParam());
    ASSERT_TRUE(text) << text.error();
    const auto scenario = simulation::Scenario::parse(*text, textOf);
    ASSERT_TRUE(scenario) << scenario.error().description;
    const ScenarioDiary run(*scenario);
    EXPECT_THAT(run.guardActed, IsEmpty());
    EXPECT_FALSE(run.log.empty());
}

INSTANTIATE_TEST_SUITE_P(Each, QuietGuardOfAnExample,
                         testing::Values("busy-claim.json", "client-killed.json",
                                         "daemon-killed.json", "firmware-reclaim.json",
                                         "lost-heartbeat.json", "release-refused.json",
                                         "start-up-recovery.json", "temperatures-missing.json",
                                         "terminated.json", "thermal-ceiling.json", "upgrade.json",
                                         "working-day.json"),
                         [](const auto& name) {
                             std::string text = name.param.substr(0, name.param.find('.'));
                             std::ranges::replace(text, '-', '_');
                             return text;
                         });

TEST(QuietGuard, isAskedOfEveryExample) {
    const auto files = std::filesystem::directory_iterator(scenarios);
    EXPECT_EQ(std::distance(begin(files), end(files)), 12);
}

class QuietGuardOfAMachine : public testing::TestWithParam<std::string> {};

TEST_P(QuietGuardOfAMachine, doesNothingWhileItsFansAreHeldForAMinute) {
    for (std::uint64_t seed = 0; seed < 5; ++seed) {
        const ScenarioDiary run(R"("machine":")" + GetParam() +
                                    R"(","duration":70,"events":[{"at":1,"call":"fullBlast"},
                   {"at":3,"heartbeatEvery":5,"until":64},{"at":65,"call":"automatic"}])",
                                seed);
        EXPECT_THAT(run.guardActed, IsEmpty()) << "seed " << seed;
        EXPECT_FALSE(run.isAnyForced()) << "seed " << seed;
        EXPECT_EQ(run.codes.size(), 2U) << "seed " << seed;
    }
}

std::vector<std::string> namesOfMachines() {
    std::vector<std::string> names;
    for (const auto& machine : simulation::machinePresets()) names.push_back(machine.name);
    return names;
}

INSTANTIATE_TEST_SUITE_P(Each, QuietGuardOfAMachine, testing::ValuesIn(namesOfMachines()),
                         [](const auto& name) {
                             std::string text = name.param;
                             std::ranges::replace(text, '-', '_');
                             return text;
                         });

}  // namespace
}  // namespace airflow::daemon
