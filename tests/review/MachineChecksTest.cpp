#include "Documents.h"

namespace airflow::review {
namespace {

using testing::ElementsAre;

const Machine machine{.name = "the machine laptop",
                      .fans = {{0, {.minRPM = 1200, .maxRPM = 6000}},
                               {1, {.minRPM = 1500, .maxRPM = 1500}},
                               {2, {.minRPM = 3000, .maxRPM = 2000}}},
                      .sensorIDs = {"SMC-TCMz", "HID-PMU tdie1"}};

Found foundOnMachine(const std::string& fans, const std::string& rules = {}) {
    return found(planOf(fans, rules), &machine);
}

TEST(MachineChecks, aFanThatTheMachineLacksIsAWarning) {
    EXPECT_EQ(foundOnMachine(goodFan("2")), nothing);
    EXPECT_THAT(foundOnMachine(goodFan("3")), ElementsAre("fan-not-on-machine /fans/0/fanID"));
    EXPECT_EQ(adviceIn(planOf(goodFan("3")), &machine),
              "Remove the entry; the fans there are 0, 1, 2.");
    EXPECT_EQ(found(planOf(goodFan("3"))), nothing);
}

TEST(MachineChecks, aMachineWithoutFansHasNoneToName) {
    const Machine fanless{.name = "it", .fans = {}, .sensorIDs = {}};
    EXPECT_EQ(reasonIn(planOf(goodFan()), &fanless), "There is no fan 0 on it.");
    EXPECT_EQ(adviceIn(planOf(goodFan()), &fanless), "Remove the entry: there are no fans.");
}

TEST(MachineChecks, aFanThatNoMachineHasIsToldOnce) {
    EXPECT_THAT(foundOnMachine(goodFan("10")), ElementsAre("fan-out-of-range /fans/0/fanID"));
}

TEST(MachineChecks, aFixedSpeedIsWithinTheFansRange) {
    const std::string place = "/fans/0/mode/fixedRPM/_0";
    EXPECT_EQ(foundOnMachine(fanWith(rpmMode("1200"))), nothing);
    EXPECT_EQ(foundOnMachine(fanWith(rpmMode("6000"))), nothing);
    EXPECT_EQ(foundOnMachine(fanWith(rpmMode("1500"), "1")), nothing);
    EXPECT_THAT(foundOnMachine(fanWith(rpmMode("1199.5"))),
                ElementsAre("fixed-rpm-out-of-range " + place));
    EXPECT_THAT(foundOnMachine(fanWith(rpmMode("6000.5"))),
                ElementsAre("fixed-rpm-out-of-range " + place));
    EXPECT_THAT(foundOnMachine(fanWith(rpmMode("0"))),
                ElementsAre("fixed-rpm-not-positive " + place));
}

TEST(MachineChecks, aFixedSpeedOutOfRangeIsToldWhatItCountsAs) {
    EXPECT_EQ(adviceIn(planOf(fanWith(rpmMode("900"))), &machine), "Write 1200.");
    EXPECT_EQ(adviceIn(planOf(fanWith(rpmMode("9000"))), &machine), "Write 6000.");
    EXPECT_EQ(adviceIn(planOf(fanWith(rpmMode("2500"), "2")), &machine), "Write 2000.");
    EXPECT_EQ(adviceIn(planOf(fanWith(rpmMode("1500"), "2")), &machine), "Write 2000.");
    EXPECT_EQ(reasonIn(planOf(fanWith(rpmMode("900"))), &machine),
              "900 RPM is outside the fan's range on the machine laptop, 1200 to 6000 RPM, and "
              "counts as 1200 RPM.");
}

TEST(MachineChecks, aSensorThatTheMachineLacksIsAWarning) {
    const auto curveOn = [](const std::string& sensor) {
        return fanWith(curveMode({{50, 5}, {90, 100}}, R"("sourceSensorID":")" + sensor + R"(",)"));
    };
    EXPECT_EQ(foundOnMachine(curveOn("SMC-TCMz")), nothing);
    EXPECT_THAT(foundOnMachine(curveOn("SMC-TCMb")),
                ElementsAre("sensor-not-on-machine /fans/0/mode/curve/_0/sourceSensorID"));
    EXPECT_EQ(adviceIn(planOf(curveOn("SMC-TCMb")), &machine), R"(Did you mean "SMC-TCMz"?)");
    EXPECT_EQ(adviceIn(planOf(curveOn("HID-NAND CH0 temp")), &machine),
              "Write the id of one of its sensors, or leave the key out to follow the hottest.");
    EXPECT_THAT(foundOnMachine(curveOn("TCMz")),
                ElementsAre("unknown-sensor-source /fans/0/mode/curve/_0/sourceSensorID"));
}

TEST(MachineChecks, aSensorOfARuleThatTheMachineLacksIsAWarning) {
    EXPECT_EQ(foundOnMachine(goodFan(), RuleText{.sensor = "HID-PMU tdie1"}), nothing);
    EXPECT_THAT(foundOnMachine(goodFan(), RuleText{.sensor = "SMC-TG0D"}),
                ElementsAre("sensor-not-on-machine /rules/0/sensorID"));
}

}  // namespace
}  // namespace airflow::review
