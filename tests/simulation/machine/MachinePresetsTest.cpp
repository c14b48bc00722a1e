// Every machine that has a name, seen through the whole stack.
#include <gmock/gmock.h>

#include <set>

#include "simulation/daemon/SimulatedSystem.h"

namespace airflow::simulation {
namespace {

using namespace std::chrono_literals;
using sensors::SensorSnapshot;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* emptyHub =
    "[AirflowLib] HID sensor hub unavailable (private API resolved but returned no plausible "
    "sensors) — falling back to curated SMC temp keys.\n";
constexpr const char* noSymbols =
    "[AirflowLib] HID sensor hub unavailable (private HID symbols did not resolve on this OS "
    "build) — falling back to curated SMC temp keys.\n";

std::vector<std::string> ids(const SensorSnapshot& snapshot) {
    std::vector<std::string> ids;
    for (const auto& temp : snapshot.temps) ids.push_back(temp.id());
    return ids;
}

TEST(MachinePresets, eachHasANameOfItsOwnAndOneLineForPeople) {
    std::vector<std::string> names;
    for (const MachineDescription& machine : machinePresets()) {
        names.push_back(machine.name);
        EXPECT_NE(machine.summary, "") << machine.name;
        EXPECT_FALSE(machine.summary.contains('\n')) << machine.name;
        EXPECT_EQ(machinePreset(machine.name), machine);
    }
    EXPECT_THAT(
        names, ElementsAre("laptop", "forty-sensors", "unlock", "busy", "lower-case", "no-mode-key",
                           "reclaiming", "no-hid", "no-hid-symbols", "fanless", "left-forced"));
    EXPECT_EQ(machinePreset("toaster"), std::nullopt);
    EXPECT_EQ(machinePreset(""), std::nullopt);
}

TEST(MachinePresets, modeKeysAreNumberedByFan) {
    EXPECT_EQ(upperModeKey(0), "F0Md");
    EXPECT_EQ(lowerModeKey(9), "F9md");
}

TEST(MachinePresets, theLaptopIsReadWhole) {
    SimulatedSystem system(*machinePreset("laptop"), {.jitter = 0.01});
    const SensorSnapshot snapshot = system.runtime.run(system.sensors.snapshot());
    ASSERT_EQ(snapshot.fans.size(), 2u);
    EXPECT_EQ(snapshot.fans[1], (sensors::Fan{.id = 1,
                                              .name = "Fan 1",
                                              .currentRPM = 1200,
                                              .minRPM = 1200,
                                              .maxRPM = 6200,
                                              .mode = 0}));
    EXPECT_THAT(ids(snapshot), ElementsAre("HID-SoC", "HID-GPU MTR Temp Sensor1",
                                           "HID-NAND CH0 temp", "HID-gas gauge battery"));
    EXPECT_NEAR(snapshot.temps[0].celsius, 47.0, 0.01);
    EXPECT_NEAR(snapshot.temps[3].celsius, 31.0, 0.01);
    EXPECT_THAT(system.standardError.lines, IsEmpty());
    EXPECT_EQ(system.elapsed(), 80ms);
}

TEST(MachinePresets, theFortySensorsAreFortyServices) {
    SimulatedSystem system(*machinePreset("forty-sensors"));
    EXPECT_EQ(system.mac.hid().temperatures()->size(), 40u);
    const SensorSnapshot snapshot = system.runtime.run(system.sensors.snapshot());
    EXPECT_EQ(snapshot.fans.size(), 2u);
    EXPECT_THAT(ids(snapshot),
                ElementsAre("HID-SoC", "HID-GPU MTR Temp Sensor1", "HID-GPU MTR Temp Sensor2",
                            "HID-GPU MTR Temp Sensor3", "HID-GPU MTR Temp Sensor4",
                            "HID-NAND CH0 temp", "HID-gas gauge battery"));
    EXPECT_NEAR(snapshot.temps[0].celsius, 48.5, 0.05);
}

/// What one snapshot of a preset shows.
struct Sight {
    std::string preset;
    std::size_t fans = 2;
    std::optional<std::int64_t> mode = 0;
    std::size_t temperatures = 4;
    sensors::SensorSource source = sensors::SensorSource::hid;
    std::vector<std::string> said = {};
};

class EveryPreset : public testing::TestWithParam<Sight> {};

TEST_P(EveryPreset, isSeenAsItIs) {
    const Sight& sight = GetParam();
    SimulatedSystem system(*machinePreset(sight.preset));
    const SensorSnapshot snapshot = system.runtime.run(system.sensors.snapshot());
    EXPECT_EQ(snapshot.fans.size(), sight.fans);
    for (const auto& fan : snapshot.fans) EXPECT_EQ(fan.mode, sight.mode);
    EXPECT_EQ(snapshot.temps.size(), sight.temperatures);
    for (const auto& temp : snapshot.temps) EXPECT_EQ(temp.source, sight.source);
    EXPECT_EQ(system.standardError.lines, sight.said);
}

INSTANTIATE_TEST_SUITE_P(Presets, EveryPreset,
                         testing::Values(Sight{.preset = "laptop"},
                                         Sight{.preset = "forty-sensors", .temperatures = 7},
                                         Sight{.preset = "unlock"}, Sight{.preset = "busy"},
                                         Sight{.preset = "lower-case"},
                                         Sight{.preset = "no-mode-key", .mode = std::nullopt},
                                         Sight{.preset = "reclaiming"},
                                         Sight{.preset = "no-hid",
                                               .temperatures = 6,
                                               .source = sensors::SensorSource::smc,
                                               .said = {emptyHub}},
                                         Sight{.preset = "no-hid-symbols",
                                               .temperatures = 6,
                                               .source = sensors::SensorSource::smc,
                                               .said = {noSymbols}},
                                         Sight{.preset = "fanless", .fans = 0},
                                         Sight{.preset = "left-forced", .mode = 1}),
                         [](const testing::TestParamInfo<Sight>& info) {
                             std::string name = info.param.preset;
                             std::ranges::replace(name, '-', '_');
                             return name;
                         });

}  // namespace
}  // namespace airflow::simulation
