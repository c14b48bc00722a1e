#include <gmock/gmock.h>

#include <regex>

#include "ToolRun.h"
#include "json/Decoder.h"
#include "tool/replay/Trace.h"

namespace airflow::tool {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

ToolRun sensorsOf(const std::string& machine, const std::string& format = "table") {
    return runTool({"sensors", "--machine", machine, "--format", format});
}

TEST(SensorsCommand, theTableShowsFansAndTemperatures) {
    const auto run = sensorsOf("no-hid");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out,
              "fan  name   speed (RPM)   min   max  mode\n"
              "  0  Fan 0         1200  1200  6000  automatic (0)\n"
              "  1  Fan 1         1200  1200  6200  automatic (0)\n"
              "\n"
              "temperature  name           category     °C\n"
              "SMC-TCHP     CPU            CPU       45.50\n"
              "SMC-TCMb     CPU (cluster)  CPU       44.00\n"
              "SMC-TCMz     CPU (cluster)  CPU       45.00\n"
              "SMC-TG0D     GPU            GPU       42.00\n"
              "SMC-TD01     SSD/Board      SSD       36.00\n"
              "SMC-TB0T     Battery        Battery   31.00\n");
}

TEST(SensorsCommand, theFallbackNoticeGoesToStandardErrorAsTheDaemonWritesIt) {
    EXPECT_EQ(sensorsOf("no-hid").err,
              "[AirflowLib] HID sensor hub unavailable (private API resolved but returned no "
              "plausible sensors) — falling back to curated SMC temp keys.\n");
    EXPECT_EQ(sensorsOf("no-hid-symbols").err,
              "[AirflowLib] HID sensor hub unavailable (private HID symbols did not resolve on "
              "this OS build) — falling back to curated SMC temp keys.\n");
    EXPECT_EQ(sensorsOf("laptop").err, "");
}

TEST(SensorsCommand, theLaptopAndTheTableAreTheDefaults) {
    const auto run = runTool({"sensors"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, sensorsOf("laptop").out);
    EXPECT_TRUE(std::regex_search(
        run.out, std::regex("\nHID-SoC                   CPU +CPU +(46.9|47.0)[0-9]\n")))
        << run.out;
}

TEST(SensorsCommand, modesAreShownInWordsAndNumbers) {
    EXPECT_THAT(sensorsOf("laptop").out, HasSubstr("automatic (0)\n"));
    EXPECT_THAT(sensorsOf("left-forced").out, HasSubstr("forced (1)\n"));
    EXPECT_THAT(sensorsOf("no-mode-key").out, HasSubstr("no mode key\n"));
    EXPECT_THAT(sensorsOf("lower-case").out, HasSubstr("automatic (0)\n"));
}

TEST(SensorsCommand, aMachineWithoutFansSaysSo) {
    const auto run = sensorsOf("fanless");
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.out, StartsWith("no fans\n\ntemperature "));
}

TEST(SensorsCommand, writesOneLineOfATraceWhoseTimeIsZero) {
    const auto run = sensorsOf("no-hid", "json");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out,
              R"x({"time":0,)x"
              R"x("fans":[{"id":0,"minRPM":1200,"maxRPM":6000,"currentRPM":1200,"mode":0,)x"
              R"x("name":"Fan 0"},{"id":1,"minRPM":1200,"maxRPM":6200,"currentRPM":1200,"mode":0,)x"
              R"x("name":"Fan 1"}],)x"
              R"x("temps":[{"key":"TCHP","source":"SMC","celsius":45.5,"name":"CPU",)x"
              R"x("category":"CPU"},{"key":"TCMb","source":"SMC","celsius":44,)x"
              R"x("name":"CPU (cluster)","category":"CPU"},{"key":"TCMz","source":"SMC",)x"
              R"x("celsius":45,"name":"CPU (cluster)","category":"CPU"},{"key":"TG0D",)x"
              R"x("source":"SMC","celsius":42,"name":"GPU","category":"GPU"},{"key":"TD01",)x"
              R"x("source":"SMC","celsius":36,"name":"SSD/Board","category":"SSD"},{"key":"TB0T",)x"
              R"x("source":"SMC","celsius":31,"name":"Battery","category":"Battery"}]})x"
              "\n");
}

TEST(SensorsCommand, itsObjectHasNoFansWhereThereAreNoneAndLeavesAbsentModesOut) {
    EXPECT_THAT(sensorsOf("fanless", "json").out, HasSubstr(R"("fans":[],"temps":[{)"));
    EXPECT_THAT(
        sensorsOf("no-mode-key", "json").out,
        HasSubstr(R"({"id":0,"minRPM":1200,"maxRPM":6000,"currentRPM":1200,"name":"Fan 0"})"));
}

TEST(SensorsCommand, everyMachinesLineReadsBackAsALineOfATrace) {
    const auto machines = runTool({"machines"}).out;
    std::istringstream lines(machines);
    for (std::string line; std::getline(lines, line);) {
        const auto text = sensorsOf(line.substr(0, line.find(' ')), "json").out;
        std::istringstream in(text);
        TraceReader reader(in, "sensors");
        const auto tick = reader.next();
        ASSERT_TRUE(tick) << tick.error();
        ASSERT_TRUE(*tick) << line;
        EXPECT_FALSE((*tick)->snapshot.temps.empty()) << line;
    }
}

TEST(SensorsCommand, itsLineIsATraceThatReplayTakesFromStandardInput) {
    const auto trace = sensorsOf("laptop", "json").out;
    const auto run = runTool({"replay", example("plans/cool.json"), "--trace", "-"}, trace);
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.err, "");
    EXPECT_THAT(run.out, HasSubstr("         0.0  CPU "));
}

TEST(SensorsCommand, everyRunIsTheSame) {
    EXPECT_EQ(sensorsOf("forty-sensors", "json").out, sensorsOf("forty-sensors", "json").out);
}

TEST(SensorsCommand, anUnknownMachineIsWrongUsageAndTheKnownOnesAreNamed) {
    const auto run = sensorsOf("toas\x1Bter");
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.out, "");
    EXPECT_THAT(run.err, StartsWith("--machine: there is no machine \"toas\xEF\xBF\xBDter\"; there "
                                    "are laptop, forty-sensors, unlock, busy, lower-case, "
                                    "no-mode-key, reclaiming, no-hid, no-hid-symbols, fanless, "
                                    "left-forced\n"));
    EXPECT_EQ(sensorsOf("").status, 2);
    EXPECT_EQ(sensorsOf("Laptop").status, 2);
}

TEST(SensorsCommand, outputThatCannotBeWrittenIsAnError) {
    std::istringstream in;
    std::ostringstream out;
    std::ostringstream err;
    out.setstate(std::ios::badbit);
    EXPECT_EQ(runTool({"sensors"}, {in, out, err}), 1);
    EXPECT_EQ(err.str(), "the output cannot be written\n");
}

}  // namespace
}  // namespace airflow::tool
