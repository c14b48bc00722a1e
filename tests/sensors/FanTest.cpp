#include <gmock/gmock.h>

#include <optional>

#include "sensors/Fan.h"

namespace airflow::sensors {
namespace {

const Fan fan{
    .id = 1, .name = "Right Fan", .currentRPM = 2400, .minRPM = 1200, .maxRPM = 6000, .mode = 1};

TEST(Fan, everyFieldTakesPartInEquality) {
    Fan other = fan;
    EXPECT_EQ(other, fan);
    other.id = 0;
    EXPECT_NE(other, fan);
    other = fan;
    other.name = "Left Fan";
    EXPECT_NE(other, fan);
    other = fan;
    other.currentRPM = 2401;
    EXPECT_NE(other, fan);
    other = fan;
    other.minRPM = 1201;
    EXPECT_NE(other, fan);
    other = fan;
    other.maxRPM = 6001;
    EXPECT_NE(other, fan);
    other = fan;
    other.mode = 0;
    EXPECT_NE(other, fan);
}

TEST(Fan, anUnreadableModeIsNotModeZero) {
    Fan unreadable = fan;
    unreadable.mode = std::nullopt;
    Fan automatic = fan;
    automatic.mode = 0;
    EXPECT_NE(unreadable, automatic);
    EXPECT_EQ(Fan().mode, std::nullopt);
}

}  // namespace
}  // namespace airflow::sensors
