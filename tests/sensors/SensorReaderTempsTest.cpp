
#include "sensors/SensorReaderFixture.h"
#include "support/Doubles.h"

namespace airflow::sensors {
namespace {

using tests::infinity;
using tests::notANumber;
using namespace std::chrono_literals;
using smc::SMCValue;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

using SensorReaderTemps = SensorReaderTest;

// ---- temperatures of the HID system

TEST_P(SensorReaderTemps, withHIDReadingsNoTemperatureOfTheSMCIsRead) {
    useHID({.services = {{"gpu", {40, 41, 42}}}});
    smc.tempKeys = {"TB0T"};

    EXPECT_THAT(snapshot().temps,
                ElementsAre(hidSensor("gpu", "GPU (gpu)", 41, SensorCategory::gpu)));

    EXPECT_EQ(smc.discoveries, 0);
    EXPECT_THAT(smc.reads, Not(Contains(StartsWith("T"))));
    EXPECT_EQ(log.text, "");
}

TEST_P(SensorReaderTemps, temperaturesAreOrderedByCategoryAndThenByName) {
    using enum SensorCategory;
    useHID({.services = {{"battery 1", {30}},
                         {"ssd", {31, 32, 33}},
                         {"gpu é", {41, 42, 43}},
                         {"battery 2", {29}},
                         {"gpu z", {44, 45, 46}},
                         {"cpu 1", {51, 52, 53}},
                         {"tdie", {61, 62, 63}},
                         {"gpu Z", {47, 48, 49}}}});

    EXPECT_THAT(
        snapshot().temps,
        ElementsAre(hidSensor("SoC", "CPU", 62, cpu), hidSensor("cpu 1", "CPU (cpu 1)", 52, cpu),
                    hidSensor("gpu Z", "GPU (gpu Z)", 48, gpu),
                    hidSensor("gpu z", "GPU (gpu z)", 45, gpu),
                    hidSensor("gpu é", "GPU (gpu é)", 42, gpu), hidSensor("ssd", "SSD", 32, ssd),
                    hidSensor("battery 1", "Battery", 30, battery),
                    hidSensor("battery 2", "Battery", 29, battery)));
}

TEST_P(SensorReaderTemps, readingsEqualInCategoryAndNameKeepTheirOrder) {
    tests::HIDLibrary::Machine machine;
    for (int i = 0; i < 40; ++i) {
        machine.services.push_back({"battery " + std::to_string(99 - i), {30.0 + i % 3}});
    }
    useHID(std::move(machine));

    const auto temps = snapshot().temps;

    ASSERT_EQ(temps.size(), 40u);
    for (std::size_t i = 0; i < temps.size(); ++i) {
        EXPECT_EQ(temps[i].key, "battery " + std::to_string(99 - i));
    }
}

TEST_P(SensorReaderTemps, aSnapshotOverHIDTakesEightyMilliseconds) {
    useHID({.services = {{"gpu", {40, 41, 42}}}});
    snapshot();
    EXPECT_EQ(runtime.now(), concurrency::Instant(80ms));
}

TEST_P(SensorReaderTemps, theTimestampIsTheWallClockAfterReading) {
    useHID({.services = {{"gpu", {40, 41, 42}}}});
    std::vector<SensorSnapshot> results;
    runtime.detach("caller", take(results, *reader));
    runtime.advance(10ms);
    const concurrency::Date reset(concurrency::Seconds(1000));
    runtime.setDate(reset);

    runtime.advance(70ms);

    ASSERT_EQ(results.size(), 1u);
    EXPECT_NEAR((results[0].timestamp - reset).count(), 0.07, 1e-9);
}

TEST_P(SensorReaderTemps, otherOperationsRunWhileTheHIDSystemIsSampled) {
    useHID({.services = {{"gpu", {40, 41, 42}}}});
    std::vector<SensorSnapshot> results;
    runtime.detach("first", take(results, *reader));
    runtime.advance(10ms);
    runtime.detach("second", take(results, *reader));

    runtime.settle();
    EXPECT_EQ(smc.readsOf("FNum"), 2);  // the second has begun, the first has not ended
    EXPECT_EQ(results.size(), 0u);
    runtime.advance(70ms);
    EXPECT_EQ(results.size(), 1u);
    runtime.advance(80ms);
    EXPECT_EQ(results.size(), 2u);
}

// ---- temperatures of the SMC

TEST_P(SensorReaderTemps, theNoticeSaysThatTheFunctionsAreMissingAndIsWrittenOnce) {
    for (int i = 0; i < 3; ++i) snapshot();
    EXPECT_EQ(log.text,
              "[AirflowLib] HID sensor hub unavailable (private HID symbols did not resolve on "
              "this OS build) \xE2\x80\x94 falling back to curated SMC temp keys.\n");
}

TEST_P(SensorReaderTemps, theNoticeSaysThatNoSensorWasPlausibleAndIsWrittenOnce) {
    useHID({.services = {{"gpu", {40}}}});
    for (int i = 0; i < 3; ++i) snapshot();
    EXPECT_EQ(log.text,
              "[AirflowLib] HID sensor hub unavailable (private API resolved but returned no "
              "plausible sensors) \xE2\x80\x94 falling back to curated SMC temp keys.\n");
}

TEST_P(SensorReaderTemps, theHIDSystemIsUsedAgainOnceItHasReadings) {
    useHID({.services = {{"gpu", {40, 40, 40, 40, 41, 42}}}});
    smc.tempKeys = {"TB0T"};
    smc.set("TB0T", {30});

    EXPECT_EQ(snapshot().temps.at(0).id(), "SMC-TB0T");
    EXPECT_EQ(snapshot().temps.at(0).id(), "HID-gpu");
    EXPECT_EQ(snapshot().temps.at(0).id(), "SMC-TB0T");
}

TEST_P(SensorReaderTemps, onlyKeysWithANameAreRead) {
    using enum SensorCategory;
    smc.tempKeys = {"TB1T", "TC0P", "TCMz", "TD01", "TG0D", "tb0T", "TCHP", "TCMb", "Ts0P"};
    for (const std::string& key : smc.tempKeys) smc.set(key, {50});

    EXPECT_THAT(
        snapshot().temps,
        ElementsAre(smcSensor("TCHP", "CPU", 50, cpu), smcSensor("TCMz", "CPU (cluster)", 50, cpu),
                    smcSensor("TCMb", "CPU (cluster)", 50, cpu), smcSensor("TG0D", "GPU", 50, gpu),
                    smcSensor("TD01", "SSD/Board", 50, ssd),
                    smcSensor("TB1T", "Battery", 50, battery)));
    EXPECT_THAT(smc.reads, ElementsAre("FNum", "TB1T", "TB1T", "TCMz", "TCMz", "TD01", "TD01",
                                       "TG0D", "TG0D", "TCHP", "TCHP", "TCMb", "TCMb"));
}

TEST_P(SensorReaderTemps, keysAreDiscoveredOnce) {
    smc.tempKeys = {"TB0T"};
    smc.set("TB0T", {30});
    snapshot();
    smc.tempKeys = {"TG0D"};
    EXPECT_EQ(snapshot().temps.at(0).key, "TB0T");
    EXPECT_EQ(smc.discoveries, 1);
}

TEST_P(SensorReaderTemps, anEmptyListOfKeysIsNotDiscoveredAgainEither) {
    smc.tempKeys = {"TC0P"};
    EXPECT_THAT(snapshot().temps, IsEmpty());
    EXPECT_THAT(snapshot().temps, IsEmpty());
    EXPECT_EQ(smc.discoveries, 1);
}

TEST_P(SensorReaderTemps, snapshotsThatOverlapTheDiscoveryWaitForIt) {
    smc.tempKeys = {"TB0T"};
    smc.set("TB0T", {30});
    smc.discoveryTime = 1s;
    std::vector<SensorSnapshot> results;
    for (int i = 0; i < 3; ++i) runtime.detach("caller", take(results, *reader));

    runtime.advance(1s);
    EXPECT_THAT(results, IsEmpty());
    runtime.advance(40ms);

    ASSERT_EQ(results.size(), 3u);
    for (const SensorSnapshot& result : results) EXPECT_EQ(result.temps.size(), 1u);
    EXPECT_EQ(smc.discoveries, 1);
    EXPECT_EQ(std::ranges::count(log.text, '\n'), 1);
}

TEST_P(SensorReaderTemps, everyKeyTakesFortyMillisecondsBetweenItsTwoReadings) {
    smc.tempKeys = {"TB0T", "TG0D"};
    smc.set("TB0T", {30});
    smc.set("TG0D", {50});
    std::vector<SensorSnapshot> results;
    runtime.detach("caller", take(results, *reader));

    runtime.advance(39'999us);
    EXPECT_EQ(smc.readsOf("TB0T"), 1);
    runtime.advance(1us);
    EXPECT_EQ(smc.readsOf("TB0T"), 2);
    EXPECT_EQ(smc.readsOf("TG0D"), 1);
    EXPECT_THAT(results, IsEmpty());
    runtime.advance(40ms);
    EXPECT_EQ(results.size(), 1u);
}

TEST_P(SensorReaderTemps, otherOperationsRunBetweenTheTwoReadings) {
    smc.tempKeys = {"TB0T"};
    smc.set("TB0T", {30});
    std::vector<SensorSnapshot> results;
    runtime.detach("first", take(results, *reader));
    runtime.detach("second", take(results, *reader));

    runtime.settle();
    EXPECT_EQ(smc.readsOf("TB0T"), 2);  // the first reading of each
    EXPECT_TRUE(runtime.run(smc.tryReadValue("TB0T")).has_value());
    EXPECT_EQ(runtime.now(), concurrency::Instant(0ms));
    runtime.advance(40ms);
    EXPECT_EQ(results.size(), 2u);
}

TEST_P(SensorReaderTemps, theReadingsAreAveraged) {
    EXPECT_THAT(readCurated("TB0T", 30, 31),
                ElementsAre(smcSensor("TB0T", "Battery", 30.5, SensorCategory::battery)));
}

TEST_P(SensorReaderTemps, aKeyThatIsUnreadableOnceIsSkipped) {
    smc.tempKeys = {"TB0T", "TB1T", "TB2T", "TB3T"};
    smc.values["TB1T"] = {SMCValue::floating(30), std::nullopt};
    smc.values["TB2T"] = {SMCValue::raw()};
    smc.values["TB3T"] = {SMCValue::fixedPoint(30), SMCValue::uint(31)};

    EXPECT_THAT(snapshot().temps,
                ElementsAre(smcSensor("TB3T", "Battery", 30.5, SensorCategory::battery)));
    EXPECT_EQ(smc.readsOf("TB0T"), 1);
    EXPECT_EQ(smc.readsOf("TB1T"), 2);
    EXPECT_EQ(smc.readsOf("TB2T"), 1);
    EXPECT_EQ(runtime.now(), concurrency::Instant(80ms));  // for those that were read once
}

TEST_P(SensorReaderTemps, twoZerosAreNoTemperature) {
    EXPECT_THAT(readCurated("TB0T", 0, 0), IsEmpty());
}

TEST_P(SensorReaderTemps, twoNegativeZerosAreNoTemperature) {
    EXPECT_THAT(readCurated("TB0T", -0.0, 0), IsEmpty());
}

TEST_P(SensorReaderTemps, aZeroAndAnotherValueAreATemperature) {
    EXPECT_THAT(readCurated("TB0T", 0, 0.5),
                ElementsAre(smcSensor("TB0T", "Battery", 0.25, SensorCategory::battery)));
}

TEST_P(SensorReaderTemps, aValueAndAZeroAreATemperature) {
    EXPECT_EQ(readCurated("TB0T", 0.5, 0).at(0).celsius, 0.25);
}

TEST_P(SensorReaderTemps, oppositeValuesThatAverageToZeroAreATemperature) {
    EXPECT_EQ(readCurated("TB0T", -1, 1).at(0).celsius, 0);
}

TEST_P(SensorReaderTemps, theBoundsOfPlausibilityAreAccepted) {
    EXPECT_EQ(readCurated("TB0T", 149, 151).at(0).celsius, 150);
    EXPECT_EQ(readCurated("TB0T", -39, -41).at(0).celsius, -40);
    EXPECT_THAT(readCurated("TB0T", 150.01, 150.01), IsEmpty());
    EXPECT_THAT(readCurated("TB0T", -40.01, -40.01), IsEmpty());
}

TEST_P(SensorReaderTemps, aMeanThatIsNoNumberIsDropped) {
    EXPECT_THAT(readCurated("TB0T", notANumber, 40), IsEmpty());
    EXPECT_THAT(readCurated("TB0T", 40, notANumber), IsEmpty());
    EXPECT_THAT(readCurated("TB0T", infinity, 40), IsEmpty());
    EXPECT_THAT(readCurated("TB0T", -infinity, infinity), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Seeds, SensorReaderTemps, testing::Values(0, 1, 2, 3));

}  // namespace
}  // namespace airflow::sensors
