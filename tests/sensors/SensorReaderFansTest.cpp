#include <cmath>
#include <cstdint>

#include "sensors/SensorReaderFixture.h"
#include "support/Doubles.h"

namespace airflow::sensors {
namespace {

using smc::SMCValue;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using tests::infinity;
using tests::notANumber;

using SensorReaderFans = SensorReaderTest;

TEST_P(SensorReaderFans, everyFanIsReadInOrder) {
    smc.values["FNum"] = {SMCValue::uint(2)};
    smc.setFan("F0", 2000);
    smc.setFan("F1", 2500);
    smc.set("F0Md", {0});
    smc.set("F1Md", {1});

    EXPECT_THAT(snapshot().fans, ElementsAre(Fan{.id = 0,
                                                 .name = "Fan 0",
                                                 .currentRPM = 2000,
                                                 .minRPM = 1000,
                                                 .maxRPM = 6000,
                                                 .mode = 0},
                                             Fan{.id = 1,
                                                 .name = "Fan 1",
                                                 .currentRPM = 2500,
                                                 .minRPM = 1000,
                                                 .maxRPM = 6000,
                                                 .mode = 1}));
    EXPECT_THAT(smc.reads, ElementsAre("FNum", "F0Ac", "F0Mn", "F0Mx", "F0Md", "F1Ac", "F1Mn",
                                       "F1Mx", "F1Md"));
}

TEST_P(SensorReaderFans, aCountIsBelievedUpToTheTenFansThatKeysCanName) {
    for (const double count : {10.0, 10.5, 11.0, 300.0, 3e9, 0x1p63, infinity}) {
        smc.values.clear();
        smc.reads.clear();
        smc.set("FNum", {count});
        smc.set("F9Ac", {1500});
        smc.set("F9md", {1});

        const auto fans = snapshot().fans;

        ASSERT_EQ(fans.size(), 10u) << count;
        EXPECT_EQ(fans[9], (Fan{.id = 9, .name = "Fan 9", .currentRPM = 1500, .mode = 1}));
        EXPECT_THAT(smc.reads, Each(SizeIs(4))) << count;
    }
}

TEST_P(SensorReaderFans, aNegativeCountGivesNoFansButTemperatures) {
    smc.tempKeys = {"TB0T"};
    smc.set("TB0T", {30});
    for (const double count : {-1.0, -0x1p63, -3e300, -infinity}) {
        smc.set("FNum", {count});
        const SensorSnapshot result = snapshot();
        EXPECT_THAT(result.fans, IsEmpty()) << count;
        EXPECT_EQ(result.temps.size(), 1u) << count;
    }
}

TEST_P(SensorReaderFans, anUnreadableCountGivesNoFansButTemperatures) {
    smc.tempKeys = {"TB0T"};
    smc.set("TB0T", {30});

    const SensorSnapshot result = snapshot();

    EXPECT_THAT(result.fans, IsEmpty());
    EXPECT_EQ(result.temps.size(), 1u);
}

TEST_P(SensorReaderFans, aCountWithoutANumberGivesNoFans) {
    smc.values["FNum"] = {SMCValue::raw()};
    EXPECT_THAT(snapshot().fans, IsEmpty());
    smc.set("FNum", {notANumber});
    EXPECT_THAT(snapshot().fans, IsEmpty());
}

TEST_P(SensorReaderFans, theCountIsTruncated) {
    smc.set("FNum", {0, -0.5, 0.9, 1, 1.9, 2});
    EXPECT_EQ(snapshot().fans.size(), 0u);
    EXPECT_EQ(snapshot().fans.size(), 0u);
    EXPECT_EQ(snapshot().fans.size(), 0u);
    EXPECT_EQ(snapshot().fans.size(), 1u);
    EXPECT_EQ(snapshot().fans.size(), 1u);
    EXPECT_EQ(snapshot().fans.size(), 2u);
}

TEST_P(SensorReaderFans, unreadableKeysOfAFanAreZeroAndTheModeIsAbsent) {
    smc.set("FNum", {1});
    smc.values["F0Ac"] = {SMCValue::raw()};

    EXPECT_THAT(snapshot().fans, ElementsAre(Fan{.id = 0, .name = "Fan 0", .mode = {}}));
}

TEST_P(SensorReaderFans, theModeKeyInLowerCaseIsTriedSecond) {
    smc.set("FNum", {1});
    smc.set("F0md", {1});
    EXPECT_EQ(snapshot().fans.at(0).mode, 1);
    EXPECT_EQ(smc.readsOf("F0md"), 1);

    smc.set("F0Md", {3});
    EXPECT_EQ(snapshot().fans.at(0).mode, 3);
    EXPECT_EQ(smc.readsOf("F0md"), 1);
}

TEST_P(SensorReaderFans, speedsAreRoundedWithHalvesAwayFromZero) {
    smc.set("FNum", {1});
    smc.set("F0Ac", {1234.5});
    smc.set("F0Mn", {1234.49});
    smc.set("F0Mx", {-2.5});

    const Fan fan = snapshot().fans.at(0);

    EXPECT_EQ(fan.currentRPM, 1235);
    EXPECT_EQ(fan.minRPM, 1234);
    EXPECT_EQ(fan.maxRPM, -3);
}

TEST_P(SensorReaderFans, modesAreTruncated) {
    smc.set("FNum", {1});
    smc.set("F0Md", {1.9, -1.9});
    EXPECT_EQ(snapshot().fans.at(0).mode, 1);
    EXPECT_EQ(snapshot().fans.at(0).mode, -1);
}

TEST_P(SensorReaderFans, aSpeedThatIsNoIntegerIsUnreadable) {
    smc.set("FNum", {1});
    smc.set("F0Ac", {notANumber});
    smc.set("F0Mn", {infinity});
    smc.set("F0Mx", {0x1p63});
    EXPECT_THAT(snapshot().fans, ElementsAre(Fan{.id = 0, .name = "Fan 0", .mode = {}}));

    smc.set("F0Ac", {-infinity});
    smc.set("F0Mn", {std::nextafter(0x1p63, 0)});
    smc.set("F0Mx", {-0x1p63});
    EXPECT_THAT(snapshot().fans, ElementsAre(Fan{.id = 0,
                                                 .name = "Fan 0",
                                                 .minRPM = 9223372036854774784,
                                                 .maxRPM = INT64_MIN,
                                                 .mode = {}}));
}

TEST_P(SensorReaderFans, aModeThatIsNoIntegerIsUnreadable) {
    smc.set("FNum", {1});
    smc.set("F0Md", {notANumber});
    EXPECT_EQ(snapshot().fans.at(0).mode, std::nullopt);
    smc.set("F0md", {1});
    EXPECT_EQ(snapshot().fans.at(0).mode, 1);
    smc.set("F0md", {0x1p63});
    EXPECT_EQ(snapshot().fans.at(0).mode, std::nullopt);
}

INSTANTIATE_TEST_SUITE_P(Seeds, SensorReaderFans, testing::Values(0, 1, 2, 3));

}  // namespace
}  // namespace airflow::sensors
