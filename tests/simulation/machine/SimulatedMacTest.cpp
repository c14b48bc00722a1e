#include <cmath>
#include <limits>

#include "SimulatedMacFixture.h"
#include "simulation/machine/SimulatedMac.h"
#include "support/Doubles.h"

namespace airflow::simulation {
namespace {

using tests::infinity;
using namespace std::chrono_literals;
using testing::ElementsAre;

TEST_F(SimulatedMacTest, listsItsKeysInOrder) {
    usePreset("lower-case");
    std::string keys;
    for (std::uint8_t i = 0; i < readFloat("#KEY") + 100 && wire->enumerate(i).result() == 0; ++i) {
        keys += wire->enumerate(i).key() + " ";
    }
    EXPECT_EQ(keys,
              "#KEY FNum F0Ac F0Mn F0Mx F0Tg F0md F1Ac F1Mn F1Mx F1Tg F1md Ftst "
              "TCHP TCMb TCMz TG0D TD01 TB0T TW0P ");
    EXPECT_THAT(wire->read("#KEY", 4).bytes(4), ElementsAre(0, 0, 0, 20));
}

TEST_F(SimulatedMacTest, itsKeysHoldWhatTheMachineIsMadeOf) {
    usePreset("laptop");
    EXPECT_EQ(readByte("FNum"), 2);
    EXPECT_EQ(readFloat("F0Ac"), 1200);
    EXPECT_EQ(readFloat("F0Mn"), 1200);
    EXPECT_EQ(readFloat("F0Mx"), 6000);
    EXPECT_EQ(readFloat("F1Mx"), 6200);
    EXPECT_EQ(readFloat("F0Tg"), 1200);
    EXPECT_EQ(readByte("F1Md"), 0);
    EXPECT_EQ(readByte("Ftst"), 0);
    EXPECT_EQ(readFloat("TCHP"), 45.5f);
    EXPECT_EQ(wire->information("FNum").type(), "ui8 ");
    EXPECT_EQ(wire->information("F0Ac").type(), "flt ");
    EXPECT_EQ(wire->information("F0Md").size(), 1u);
    EXPECT_EQ(wire->information("TCHP").type(), "flt ");
}

TEST_F(SimulatedMacTest, onlyTargetsModesAndForceTestCanBeWritten) {
    usePreset("laptop");
    for (const char* key : {"F0Ac", "F0Mn", "F0Mx", "TCHP", "#KEY"}) {
        EXPECT_EQ(wire->write(key, {0, 0, 0, 0}).result(), 0x86) << key;
    }
    EXPECT_EQ(writeByte("FNum", 0), 0x86);
}

TEST_F(SimulatedMacTest, aForcedFanGoesToItsTargetWithInertia) {
    use({});
    force(6000);
    EXPECT_EQ(mac->fan(0).speed, 1200);
    now = 99ms;
    EXPECT_EQ(mac->fan(0).speed, 1200);
    now = 100ms;
    EXPECT_DOUBLE_EQ(mac->fan(0).speed, 1392);
    now = 200ms;
    EXPECT_DOUBLE_EQ(mac->fan(0).speed, 1576.32);
    now = 5s;
    EXPECT_NEAR(mac->fan(0).speed, 5376, 5);
    now = 60s;
    EXPECT_NEAR(mac->fan(0).speed, 6000, 0.01);
    EXPECT_NEAR(readFloat("F0Ac"), 6000, 0.01);
    EXPECT_EQ(mac->fan(1).speed, 1200);
}

TEST_F(SimulatedMacTest, aForcedFanCanStop) {
    use({});
    force(0);
    now = 60s;
    EXPECT_NEAR(mac->fan(0).speed, 0, 0.01);
}

TEST_F(SimulatedMacTest, aFanGoesNoFasterThanItCanAndNeverBackwards) {
    use({});
    force(90000);
    now = 60s;
    EXPECT_NEAR(mac->fan(0).speed, 6000, 0.01);
    EXPECT_EQ(mac->fan(0).target, 90000);
    writeFloat("F0Tg", std::numeric_limits<float>::infinity());
    now = 120s;
    EXPECT_NEAR(mac->fan(0).speed, 6000, 0.01);
    writeFloat("F0Tg", -500);
    now = 180s;
    EXPECT_NEAR(mac->fan(0).speed, 0, 0.01);
}

TEST_F(SimulatedMacTest, aTargetThatIsNoNumberStopsAFanAndLeavesTheTruthANumber) {
    use({});
    force(std::numeric_limits<float>::quiet_NaN());
    now = 60s;
    EXPECT_TRUE(std::isnan(mac->fan(0).target));
    EXPECT_NEAR(mac->fan(0).speed, 0, 0.01);
}

TEST_F(SimulatedMacTest, aTargetCountsOnlyInForcedMode) {
    use({});
    writeFloat("F0Tg", 5000);
    now = 10s;
    EXPECT_EQ(mac->fan(0).speed, 1200);
    EXPECT_EQ(mac->fan(0).target, 5000);
    EXPECT_EQ(writeByte("F0Md", 1), 0);
    now = 70s;
    EXPECT_NEAR(mac->fan(0).speed, 5000, 0.01);
}

TEST_F(SimulatedMacTest, theFirmwareDrivesFansByTheHottestSensor) {
    const auto speedAt = [this](double celsius) {
        now = 0s;
        use({}, celsius);
        now = 60s;
        return std::round(mac->fan(0).speed);
    };
    EXPECT_EQ(speedAt(54), 1200);
    EXPECT_EQ(speedAt(55), 1200);
    EXPECT_EQ(speedAt(56), 1320);
    EXPECT_EQ(speedAt(75), 3600);
    EXPECT_EQ(speedAt(94), 5880);
    EXPECT_EQ(speedAt(95), 6000);
    EXPECT_EQ(speedAt(110), 6000);
    EXPECT_EQ(speedAt(std::nan("")), 1200);
    EXPECT_EQ(speedAt(infinity), 6000);
}

TEST_F(SimulatedMacTest, theFirmwareFollowsSMCSensorsToo) {
    usePreset("no-hid");
    mac->setSMCTemperature("TCMz", 95);
    EXPECT_EQ(mac->hottest(), 95);
    EXPECT_EQ(readFloat("TCMz"), 95);
    now = 60s;
    EXPECT_NEAR(mac->fan(0).speed, 6000, 1);
    EXPECT_NEAR(mac->fan(1).speed, 6200, 1);
}

TEST_F(SimulatedMacTest, theHottestSensorMayBeBelowZeroAndIsNoneWithoutANumber) {
    use({}, -5);
    EXPECT_EQ(mac->hottest(), -5);
    use({}, std::nan(""));
    EXPECT_EQ(mac->hottest(), std::nullopt);
}

TEST_F(SimulatedMacTest, withoutTemperaturesTheFirmwareActsAsIfTheMachineWereCool) {
    use({}, 95);
    now = 60s;
    EXPECT_NEAR(mac->fan(0).speed, 6000, 1);
    mac->setHID(std::nullopt);
    EXPECT_EQ(mac->hottest(), std::nullopt);
    now = 120s;
    EXPECT_NEAR(mac->fan(0).speed, 1200, 1);
}

TEST_F(SimulatedMacTest, aFanGivenBackFollowsTheFirmwareAgain) {
    use({});
    force(6000);
    now = 60s;
    EXPECT_EQ(writeByte("F0Md", 0), 0);
    EXPECT_EQ(mac->fan(0).mode, FanMode::automatic);
    now = 120s;
    EXPECT_NEAR(mac->fan(0).speed, 1200, 0.01);
}

TEST_F(SimulatedMacTest, whatHappensDoesNotDependOnWhoLooks) {
    use({.reclaimAfter = 7s}, 80);
    force(4000);
    now = 10s;
    const auto unwatched = mac->fan(0);
    now = 0s;
    use({.reclaimAfter = 7s}, 80);
    force(4000);
    for (; now < 10s; now += 7ms) (void)readFloat("F0Ac");
    now = 10s;
    EXPECT_EQ(mac->fan(0), unwatched);
    EXPECT_EQ(unwatched.mode, FanMode::reclaimed);
}

TEST_F(SimulatedMacTest, aModeKeyMayBeLowerCase) {
    usePreset("lower-case");
    EXPECT_EQ(wire->information("F0Md").result(), 0x84);
    EXPECT_EQ(writeByte("F0md", 1), 0);
    EXPECT_EQ(mac->fan(0).mode, FanMode::forced);
}

TEST_F(SimulatedMacTest, aMachineMayHaveNoModeKey) {
    usePreset("no-mode-key");
    EXPECT_EQ(wire->information("F0Md").result(), 0x84);
    EXPECT_EQ(wire->information("F0md").result(), 0x84);
    EXPECT_EQ(writeByte("F0Md", 1), 0x84);
    EXPECT_EQ(wire->information("F0Tg").result(), 0);
}

TEST_F(SimulatedMacTest, aMachineMayHaveNoFans) {
    usePreset("fanless");
    EXPECT_EQ(mac->fanCount(), 0u);
    EXPECT_EQ(readByte("FNum"), 0);
    EXPECT_EQ(wire->information("F0Ac").result(), 0x84);
    now = 10s;
    EXPECT_EQ(readFloat("TCHP"), 45.5f);
}

TEST_F(SimulatedMacTest, aFanMayBeForcedFromTheStart) {
    usePreset("left-forced");
    now = 60s;
    EXPECT_EQ(mac->fan(0), (SimulatedMac::FanState{FanMode::forced, 1200, 1200}));
    EXPECT_EQ(mac->fan(1).mode, FanMode::forced);
}

TEST_F(SimulatedMacTest, tenFansFitAndElevenDoNot) {
    MachineDescription machine;
    machine.fans.resize(10);
    switchOn(machine);
    EXPECT_EQ(readByte("FNum"), 10);
    EXPECT_EQ(readFloat("F9Mx"), 6000);
    machine.fans.resize(11);
    EXPECT_DEATH(SimulatedMac(machine, [this] { return now; }), "ten fans at most");
}

TEST_F(SimulatedMacTest, underLoadSensorsFollowTheModelAndFansTheSensors) {
    usePreset("laptop");
    mac->follow(ThermalModel({{60s, 45.0}}, 25));
    EXPECT_NEAR(mac->hottest().value(), 42.1, 0.1);
    EXPECT_NEAR(readFloat("TB0T"), 37.9, 0.1);
    now = 60s;
    EXPECT_NEAR(mac->fan(0).speed, 1200, 1);
    now = 30min;
    // Where the firmware's own control and the heat meet.
    const double die = readFloat("TCMz");
    EXPECT_NEAR(die, 82, 1);
    EXPECT_EQ(readFloat("TG0D"), static_cast<float>(die));
    EXPECT_LT(readFloat("TB0T"), die - 20);
    EXPECT_NEAR(mac->hid().temperatures()->front().second, die, 0.001);
    EXPECT_NEAR(mac->fan(0).speed, 4430, 100);
    EXPECT_NEAR(mac->fan(1).speed / 6200, mac->fan(0).speed / 6000, 0.02);
}

TEST_F(SimulatedMacTest, temperaturesThatStandStillKeepWhatTheLoadMadeOfThem) {
    usePreset("laptop");
    mac->follow(ThermalModel({{0s, 45.0}}, 25));
    now = 30min;
    mac->standStill();
    const double die = mac->hottest().value();
    EXPECT_NEAR(die, 82, 1) << "up to this moment they followed it";
    EXPECT_EQ(mac->smcTemperatures().front(), std::pair(std::string("TCHP"), die));
    now = 60min;
    EXPECT_EQ(mac->hottest(), die);
    mac->setSMCTemperature("TCHP", 20);
    now = 61min;
    EXPECT_EQ(mac->smcTemperatures().front(), std::pair(std::string("TCHP"), 20.0));
}

TEST_F(SimulatedMacTest, fansForcedToTheirLowestSpeedOverheatALoadedMachine) {
    usePreset("left-forced");
    mac->follow(ThermalModel({{0s, 45.0}}, 25));
    now = 30min;
    EXPECT_GT(mac->hottest().value(), 110);
}

TEST_F(SimulatedMacTest, aFanWithoutARangeMovesNoAir) {
    MachineDescription machine;
    machine.fans.push_back({.minRPM = 0, .maxRPM = 0, .currentRPM = 0});
    switchOn(machine);
    mac->follow(ThermalModel({}, 25));
    now = 60s;
    EXPECT_EQ(mac->fan(0).speed, 0);
    EXPECT_EQ(readFloat("F0Ac"), 0);
}

}  // namespace
}  // namespace airflow::simulation
