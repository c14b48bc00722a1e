// Who drives a fan: what the machines with a name do to their mode keys.
#include "SimulatedMacFixture.h"

namespace airflow::simulation {
namespace {

using namespace std::chrono_literals;

TEST_F(SimulatedMacTest, forcedModeIsAcceptedAtOnce) {
    usePreset("laptop");
    EXPECT_EQ(writeByte("F1Md", 1), 0);
    EXPECT_EQ(mac->fan(1).mode, FanMode::forced);
    EXPECT_EQ(mac->fan(0).mode, FanMode::automatic);
    EXPECT_EQ(readByte("F1Md"), 1);
    EXPECT_FALSE(mac->forceTest());
}

TEST_F(SimulatedMacTest, otherModesThanThoseOfTheKeyAreRefused) {
    usePreset("laptop");
    for (const std::uint8_t mode : Bytes{2, 4, 255}) EXPECT_EQ(writeByte("F0Md", mode), 0x86);
    EXPECT_EQ(mac->fan(0).mode, FanMode::automatic);
    EXPECT_EQ(writeByte("F0Md", 3), 0);
    EXPECT_EQ(mac->fan(0).mode, FanMode::reclaimed);
}

TEST_F(SimulatedMacTest, forcedModeMayNeedForceTestForAWhile) {
    usePreset("unlock");
    EXPECT_EQ(writeByte("F0Md", 1), 0x86);
    EXPECT_EQ(writeByte("Ftst", 1), 0);
    EXPECT_TRUE(mac->forceTest());
    EXPECT_EQ(readByte("Ftst"), 1);
    now = 299ms;
    EXPECT_EQ(writeByte("F0Md", 1), 0x86);
    EXPECT_EQ(mac->fan(0).mode, FanMode::automatic);
    now = 300ms;
    EXPECT_EQ(writeByte("F0Md", 1), 0);
    EXPECT_EQ(mac->fan(0).mode, FanMode::forced);
}

TEST_F(SimulatedMacTest, switchingForceTestOffStartsTheWaitAnewAndSwitchingItOnTwiceDoesNot) {
    usePreset("unlock");
    EXPECT_EQ(writeByte("Ftst", 1), 0);
    now = 200ms;
    EXPECT_EQ(writeByte("Ftst", 1), 0);
    now = 300ms;
    EXPECT_EQ(writeByte("F0Md", 1), 0);
    EXPECT_EQ(writeByte("Ftst", 0), 0);
    EXPECT_FALSE(mac->forceTest());
    EXPECT_EQ(mac->fan(0).mode, FanMode::forced) << "a fan that is forced stays so";
    EXPECT_EQ(writeByte("Ftst", 1), 0);
    now = 599ms;
    EXPECT_EQ(writeByte("F1Md", 1), 0x86);
    now = 600ms;
    EXPECT_EQ(writeByte("F1Md", 1), 0);
}

TEST_F(SimulatedMacTest, forcedModeMayBeBusyForAWhileAfterItWasFirstAskedFor) {
    usePreset("busy");
    now = 1s;
    EXPECT_EQ(writeByte("F0Md", 1), 0x82);
    now = 3999ms;
    EXPECT_EQ(writeByte("F0Md", 1), 0x82);
    EXPECT_EQ(mac->fan(0).mode, FanMode::automatic);
    EXPECT_EQ(writeByte("F1Md", 1), 0x82) << "each fan for itself";
    now = 4s;
    EXPECT_EQ(writeByte("F0Md", 1), 0);
    EXPECT_EQ(mac->fan(0).mode, FanMode::forced);
    EXPECT_EQ(writeByte("F0Md", 0), 0) << "never busy with giving a fan back";
    EXPECT_EQ(writeByte("F0Md", 1), 0x82);
}

TEST_F(SimulatedMacTest, theFirmwareMayTakeAForcedFanBack) {
    usePreset("reclaiming");
    now = 10s;
    force(5000);
    now = 29999ms;
    EXPECT_EQ(writeByte("F0Md", 1), 0) << "asking again gains no time";
    EXPECT_EQ(mac->fan(0).mode, FanMode::forced);
    now = 30s;
    EXPECT_EQ(readByte("F0Md"), 3);
    EXPECT_EQ(mac->fan(0).mode, FanMode::reclaimed);
    now = 90s;
    EXPECT_NEAR(mac->fan(0).speed, 1200, 0.01);
    EXPECT_EQ(writeByte("F0Md", 1), 0);
    now = 109900ms;
    EXPECT_EQ(mac->fan(0).mode, FanMode::forced);
    now = 110s;
    EXPECT_EQ(mac->fan(0).mode, FanMode::reclaimed);
}

TEST_F(SimulatedMacTest, theFirmwareMayChangeAModeByItself) {
    use({});
    force(3000);
    mac->setMode(0, FanMode::reclaimed);
    EXPECT_EQ(readByte("F0Md"), 3);
    mac->setMode(0, FanMode::forced);
    EXPECT_EQ(readByte("F0Md"), 1);
}

}  // namespace
}  // namespace airflow::simulation
