#include <gmock/gmock.h>
#include <rapidcheck/gtest.h>

#include <cmath>

#include "sensors/NamedSensors.h"
#include "sensors/hid/HIDSensorCatalog.h"
#include "support/Doubles.h"

namespace airflow::sensors {
namespace {

using HIDSensorCatalog::cleaned;
using HIDSensorCatalog::curate;
using testing::ElementsAre;
using testing::IsEmpty;
using tests::infinity;
using tests::notANumber;

/// A reading around `celsius` that moves.
RawReading moving(std::string label, double celsius) {
    return {.label = std::move(label), .samples = {celsius - 0.5, celsius, celsius + 0.5}};
}

RawReading steady(std::string label, double celsius) {
    return {.label = std::move(label), .samples = {celsius, celsius, celsius}};
}

TempSensor soc(double celsius) {
    return hidSensor("SoC", "CPU", celsius, SensorCategory::cpu);
}

TEST(HIDSensorCatalog, aCleanedNameIsThePrefixAndWhatIsLeftOfTheLabel) {
    EXPECT_EQ(cleaned("PMU tdie3", "CPU"), "CPU (tdie3)");
    EXPECT_EQ(cleaned("GPU MTR Temp Sensor1", "GPU"), "GPU (GPU MTR  Sensor1)");
    EXPECT_EQ(cleaned("pACC 0", "CPU"), "CPU (pACC 0)");
}

TEST(HIDSensorCatalog, aLabelOfWhichNothingIsLeftGivesThePrefixAlone) {
    EXPECT_EQ(cleaned("temp", "CPU"), "CPU");
    EXPECT_EQ(cleaned("PMU", "CPU"), "CPU");
    EXPECT_EQ(cleaned("", "CPU"), "CPU");
    EXPECT_EQ(cleaned("  \t", "GPU"), "GPU");
    EXPECT_EQ(cleaned(" PMU temp PMU ", "GPU"), "GPU");
}

TEST(HIDSensorCatalog, cleaningRemovesEveryOccurrenceInAnyCase) {
    EXPECT_EQ(cleaned("TEMPaTemptEmPb", "CPU"), "CPU (ab)");
    EXPECT_EQ(cleaned("pmuaPMUPmUb", "CPU"), "CPU (ab)");
    EXPECT_EQ(cleaned("PMTUtem", "CPU"), "CPU (PMTUtem)");
}

TEST(HIDSensorCatalog, whatCleaningJoinsIsNotLookedAtAgain) {
    EXPECT_EQ(cleaned("tetempmp", "CPU"), "CPU (temp)");
    EXPECT_EQ(cleaned("tePMUmp", "CPU"), "CPU (temp)");
    EXPECT_EQ(cleaned("PMtempU1", "CPU"), "CPU (1)");  // "temp" goes before "PMU" is looked for
}

TEST(HIDSensorCatalog, whiteSpaceGoesAtTheEndsOnly) {
    EXPECT_EQ(cleaned(" \t\r\n\v\fa  b\f\v\n\r\t ", "CPU"), "CPU (a  b)");
}

TEST(HIDSensorCatalog, whiteSpaceBeyondASCIIIsTrimmedToo) {
    EXPECT_EQ(cleaned("\u00A0\u2003die\u3000\u2028", "CPU"), "CPU (die)");
    EXPECT_EQ(cleaned("\u0085\u1680temp\u202F\u205F", "CPU"), "CPU");
}

TEST(HIDSensorCatalog, lettersBeyondASCIIStayAsTheyAre) {
    EXPECT_EQ(cleaned("Kühler temp É", "CPU"), "CPU (Kühler  É)");
    EXPECT_EQ(cleaned("\uFF34emp", "CPU"), "CPU (\uFF34emp)");  // a full-width T is another letter
}

RC_GTEST_PROP(HIDSensorCatalog, aCleanedNameIsThePrefixWithNothingOrAVisibleTextInParentheses, ()) {
    const auto parts = *rc::gen::container<std::vector<std::string>>(rc::gen::element<std::string>(
        "temp", "TEMP", "te", "mp", "PMU", "pm", "u", " ", "\t", "\u00A0", "é", "x"));
    std::string label;
    for (const std::string& part : parts) label += part;

    const std::string name = cleaned(label, "GPU");

    if (name == "GPU") return;
    RC_ASSERT(name.starts_with("GPU ("));
    RC_ASSERT(name.ends_with(")"));
    const std::string rest = name.substr(5, name.size() - 6);
    RC_ASSERT(!rest.empty());
    for (const std::string space : {" ", "\t", "\u00A0"}) {
        RC_ASSERT(!rest.starts_with(space));
        RC_ASSERT(!rest.ends_with(space));
    }
}

TEST(HIDSensorCatalog, noReadingsGiveNothing) {
    EXPECT_THAT(curate({}), IsEmpty());
}

TEST(HIDSensorCatalog, eachKindOfLabelHasItsNameAndCategory) {
    using enum SensorCategory;
    EXPECT_THAT(curate({moving("gas gauge battery", 31), moving("NAND CH0 temp", 32),
                        moving("AppleSSD", 33), moving("GPU MTR Temp Sensor1", 34),
                        moving("PMU CPU 3", 35), moving("PMU tdie1", 36)}),
                ElementsAre(hidSensor("gas gauge battery", "Battery", 31, battery),
                            hidSensor("NAND CH0 temp", "SSD", 32, ssd),
                            hidSensor("AppleSSD", "SSD", 33, ssd),
                            hidSensor("GPU MTR Temp Sensor1", "GPU (GPU MTR  Sensor1)", 34, gpu),
                            hidSensor("PMU CPU 3", "CPU (CPU 3)", 35, cpu), soc(36)));
}

TEST(HIDSensorCatalog, labelsAreComparedInLowerCase) {
    using enum SensorCategory;
    EXPECT_THAT(
        curate({moving("BATTERY", 31), moving("nAnD", 32), moving("sSd", 33), moving("gPu", 34),
                moving("cPu", 35), moving("PMU TCAL", 36)}),
        ElementsAre(hidSensor("BATTERY", "Battery", 31, battery), hidSensor("nAnD", "SSD", 32, ssd),
                    hidSensor("sSd", "SSD", 33, ssd), hidSensor("gPu", "GPU (gPu)", 34, gpu),
                    hidSensor("cPu", "CPU (cPu)", 35, cpu)));
}

TEST(HIDSensorCatalog, theFirstMatchingKindWins) {
    using enum SensorCategory;
    EXPECT_THAT(curate({moving("cpu gpu ssd nand battery", 31), moving("cpu gpu ssd", 32),
                        moving("cpu gpu nand", 33), moving("cpu gpu", 34)}),
                ElementsAre(hidSensor("cpu gpu ssd nand battery", "Battery", 31, battery),
                            hidSensor("cpu gpu ssd", "SSD", 32, ssd),
                            hidSensor("cpu gpu nand", "SSD", 33, ssd),
                            hidSensor("cpu gpu", "GPU (cpu gpu)", 34, gpu)));
}

TEST(HIDSensorCatalog, calibrationChannelsAreDropped) {
    EXPECT_THAT(curate({moving("PMU tcal", 50), moving("battery TCal", 51)}), IsEmpty());
}

TEST(HIDSensorCatalog, theFirstReadingOfALabelWins) {
    EXPECT_THAT(curate({moving("gpu", 40), moving("gpu", 60)}),
                ElementsAre(hidSensor("gpu", "GPU (gpu)", 40, SensorCategory::gpu)));
}

TEST(HIDSensorCatalog, aSoCChannelIsAcceptedOncePerLabelToo) {
    EXPECT_THAT(curate({moving("tdie", 40), moving("tdie", 60)}), ElementsAre(soc(40)));
}

TEST(HIDSensorCatalog, aDroppedReadingDoesNotTakeItsLabel) {
    EXPECT_THAT(curate({steady("gpu", 40), moving("gpu", 151), moving("gpu", 60)}),
                ElementsAre(hidSensor("gpu", "GPU (gpu)", 60, SensorCategory::gpu)));
}

TEST(HIDSensorCatalog, labelsThatDifferInCaseAreDifferentSensors) {
    using enum SensorCategory;
    EXPECT_THAT(curate({moving("gpu", 40), moving("GPU", 60)}),
                ElementsAre(hidSensor("gpu", "GPU (gpu)", 40, gpu),
                            hidSensor("GPU", "GPU (GPU)", 60, gpu)));
}

TEST(HIDSensorCatalog, aConstantReadingOfABatteryOrAnSSDIsAccepted) {
    using enum SensorCategory;
    EXPECT_THAT(curate({steady("Battery", 30), steady("NAND", 31), steady("SSD", 32)}),
                ElementsAre(hidSensor("Battery", "Battery", 30, battery),
                            hidSensor("NAND", "SSD", 31, ssd), hidSensor("SSD", "SSD", 32, ssd)));
}

TEST(HIDSensorCatalog, aConstantReadingOfAnythingElseIsDropped) {
    EXPECT_THAT(curate({steady("gpu", 30), steady("cpu", 31), steady("tdie", 32)}), IsEmpty());
}

TEST(HIDSensorCatalog, aBatteryWithoutSamplesReadsZero) {
    EXPECT_THAT(curate({{.label = "battery", .samples = {}}, {.label = "gpu", .samples = {}}}),
                ElementsAre(hidSensor("battery", "Battery", 0, SensorCategory::battery)));
}

TEST(HIDSensorCatalog, theBoundsOfPlausibilityAreAccepted) {
    const double below = std::nextafter(-40.0, -41.0);
    const double above = std::nextafter(150.0, 151.0);
    using enum SensorCategory;
    EXPECT_THAT(curate({steady("battery 1", -40.0), steady("battery 2", below),
                        steady("battery 3", 150.0), steady("battery 4", above)}),
                ElementsAre(hidSensor("battery 1", "Battery", -40.0, battery),
                            hidSensor("battery 3", "Battery", 150.0, battery)));
}

TEST(HIDSensorCatalog, aReadingThatIsNoNumberIsDropped) {
    EXPECT_THAT(curate({{.label = "gpu", .samples = {40, notANumber, 41}},
                        steady("battery", notANumber),
                        steady("battery", infinity),
                        steady("ssd", -infinity),
                        {.label = "tdie", .samples = {notANumber, notANumber, notANumber}}}),
                IsEmpty());
}

TEST(HIDSensorCatalog, theHottestDieStandsForTheProcessorAfterEverythingElse) {
    EXPECT_THAT(
        curate({moving("PMU tdie1", 48.0), moving("PMU tdie2", 55.5), moving("PMU gpu", 40.0)}),
        ElementsAre(hidSensor("PMU gpu", "GPU (gpu)", 40.0, SensorCategory::gpu), soc(55.5)));
}

TEST(HIDSensorCatalog, theHottestDieMayComeFirst) {
    EXPECT_THAT(curate({moving("tdie1", 55.5), moving("tdie2", 48.0)}), ElementsAre(soc(55.5)));
    EXPECT_THAT(curate({moving("tdie1", -20.0), moving("tdie2", -30.0)}), ElementsAre(soc(-20.0)));
}

TEST(HIDSensorCatalog, aDieThatIsDroppedDoesNotCount) {
    EXPECT_THAT(curate({moving("tdie1", 48.0), steady("tdie2", 90.0), moving("tdie3", 151.0)}),
                ElementsAre(soc(48.0)));
}

TEST(HIDSensorCatalog, severalBatteriesStaySeparate) {
    using enum SensorCategory;
    EXPECT_THAT(curate({steady("battery A", 30), steady("battery B", 29)}),
                ElementsAre(hidSensor("battery A", "Battery", 30, battery),
                            hidSensor("battery B", "Battery", 29, battery)));
}

}  // namespace
}  // namespace airflow::sensors
