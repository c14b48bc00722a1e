#include <gmock/gmock.h>

#include <optional>
#include <string>
#include <unordered_set>
#include <utility>

#include "sensors/TempSensor.h"
#include "support/Doubles.h"

namespace airflow::sensors {
namespace {

using tests::notANumber;

TempSensor sensor(SensorSource source, std::string key) {
    return {.key = std::move(key),
            .name = "CPU Proximity",
            .celsius = 61.5,
            .category = SensorCategory::cpu,
            .source = source};
}

TEST(SensorSource, everyOneHasItsText) {
    EXPECT_EQ(rawValue(SensorSource::hid), "HID");
    EXPECT_EQ(rawValue(SensorSource::smc), "SMC");
}

TEST(SensorSource, everyTextIsItsSource) {
    EXPECT_EQ(sourceFromRawValue("HID"), SensorSource::hid);
    EXPECT_EQ(sourceFromRawValue("SMC"), SensorSource::smc);
}

TEST(SensorSource, anyOtherTextIsNone) {
    EXPECT_EQ(sourceFromRawValue("hid"), std::nullopt);
    EXPECT_EQ(sourceFromRawValue("smc"), std::nullopt);
    EXPECT_EQ(sourceFromRawValue("SMC "), std::nullopt);
    EXPECT_EQ(sourceFromRawValue(""), std::nullopt);
}

TEST(SensorSource, sourcesCanBeHashed) {
    EXPECT_EQ((std::unordered_set{SensorSource::hid, SensorSource::smc, SensorSource::hid}.size()),
              2u);
}

TEST(TempSensor, itsIdIsSourceHyphenKey) {
    EXPECT_EQ(sensor(SensorSource::smc, "TC0P").id(), "SMC-TC0P");
    EXPECT_EQ(sensor(SensorSource::smc, "TCMz").id(), "SMC-TCMz");
    EXPECT_EQ(sensor(SensorSource::hid, "pACC MTR Temp Sensor0").id(), "HID-pACC MTR Temp Sensor0");
}

TEST(TempSensor, oneKeyOfTwoSourcesIsTwoSensors) {
    EXPECT_EQ(sensor(SensorSource::hid, "TC0P").id(), "HID-TC0P");
    EXPECT_NE(sensor(SensorSource::hid, "TC0P").id(), sensor(SensorSource::smc, "TC0P").id());
}

TEST(TempSensor, theKeyIsStoredUnchanged) {
    EXPECT_EQ(sensor(SensorSource::smc, "").id(), "SMC-");
    EXPECT_EQ(sensor(SensorSource::hid, "a-b").id(), "HID-a-b");
}

TEST(TempSensor, everyFieldTakesPartInEquality) {
    const TempSensor reading = sensor(SensorSource::smc, "TC0P");
    TempSensor other = reading;
    EXPECT_EQ(other, reading);
    other.key = "TC1P";
    EXPECT_NE(other, reading);
    other = reading;
    other.name = "";
    EXPECT_NE(other, reading);
    other = reading;
    other.celsius = 61.6;
    EXPECT_NE(other, reading);
    other = reading;
    other.category = SensorCategory::gpu;
    EXPECT_NE(other, reading);
    other = reading;
    other.source = SensorSource::hid;
    EXPECT_NE(other, reading);
}

TEST(TempSensor, aReadingThatIsNotANumberEqualsNothing) {
    TempSensor broken = sensor(SensorSource::smc, "TC0P");
    broken.celsius = notANumber;
    const TempSensor copy = broken;
    EXPECT_NE(copy, broken);
}

}  // namespace
}  // namespace airflow::sensors
