#include <gmock/gmock.h>

#include <cmath>
#include <sstream>

#include "tool/replay/Trace.h"

namespace airflow::tool {
namespace {

/// The first line of a trace, or the error.
std::expected<std::optional<TraceTick>, std::string> read(const std::string& text) {
    std::istringstream in(text);
    return TraceReader(in, "t.jsonl").next();
}

std::string errorOf(const std::string& text) {
    auto tick = read(text);
    return tick ? "no error" : tick.error();
}

TEST(Trace, aLineThatIsWrittenReadsBackAsItWas) {
    TraceTick tick{.time = 1.1, .snapshot = {}};
    tick.snapshot.fans = {{.id = 1, .name = "L\"eft", .minRPM = 1, .maxRPM = 2, .mode = 3},
                          {.id = 0, .name = "", .currentRPM = 7, .mode = {}}};
    tick.snapshot.temps = {{.key = "SoC", .name = "CPU", .celsius = 1.0 / 3}};
    tick.snapshot.timestamp = concurrency::Date(concurrency::Seconds(1.1));
    const auto text = traceLine(tick);
    ASSERT_TRUE(text);
    const auto again = read(*text);
    ASSERT_TRUE(again && *again);
    EXPECT_EQ((*again)->time, 1.1);
    EXPECT_EQ((*again)->snapshot, tick.snapshot);
}

TEST(Trace, whatHasNoJSONFormMakesNoLine) {
    TraceTick tick;
    tick.snapshot.temps = {{.key = "SoC", .name = "CPU", .celsius = std::nan("")}};
    const auto text = traceLine(tick);
    ASSERT_FALSE(text);
    EXPECT_THAT(text.error(), testing::StartsWith("temps[0].celsius: "));
}

TEST(Trace, readsEveryField) {
    const auto tick = read(
        R"({"time":2.5,"fans":[{"id":1,"minRPM":1200,"maxRPM":6000,"currentRPM":1300,"mode":1,)"
        R"("name":"Left"}],"temps":[{"key":"TCMz","source":"SMC","celsius":61.5,"name":"CPU",)"
        R"("category":"CPU"}]})");
    ASSERT_TRUE(tick && *tick);
    EXPECT_EQ((*tick)->time, 2.5);
    const sensors::SensorSnapshot expected{
        .fans = {{.id = 1,
                  .name = "Left",
                  .currentRPM = 1300,
                  .minRPM = 1200,
                  .maxRPM = 6000,
                  .mode = 1}},
        .temps = {{.key = "TCMz",
                   .name = "CPU",
                   .celsius = 61.5,
                   .category = sensors::SensorCategory::cpu,
                   .source = sensors::SensorSource::smc}},
        .timestamp = concurrency::Date(concurrency::Seconds(2.5))};
    EXPECT_EQ((*tick)->snapshot, expected);
}

TEST(Trace, fillsInWhatMayBeMissing) {
    const auto tick = read(R"({"time":0,"fans":[{"id":3,"minRPM":0,"maxRPM":5000}],)"
                           R"("temps":[{"key":"PMU tdie1","source":"HID","celsius":40}]})");
    ASSERT_TRUE(tick && *tick);
    const sensors::SensorSnapshot expected{
        .fans =
            {{.id = 3, .name = "Fan 3", .currentRPM = 0, .minRPM = 0, .maxRPM = 5000, .mode = {}}},
        .temps = {{.key = "PMU tdie1",
                   .name = "PMU tdie1",
                   .celsius = 40,
                   .category = sensors::SensorCategory::sensor,
                   .source = sensors::SensorSource::hid}},
        .timestamp = concurrency::Date(concurrency::Seconds(0))};
    EXPECT_EQ((*tick)->snapshot, expected);
}

TEST(Trace, saysWhatIsWrongAndWhere) {
    EXPECT_EQ(errorOf("{\"time\":0,\"fans\":[]}\n"),
              "t.jsonl:1: The required key \"temps\" is missing.");
    EXPECT_EQ(errorOf(R"({"time":0,"fans":[{"id":1,"minRPM":1}],"temps":[]})"),
              "t.jsonl:1: fans[0]: The required key \"maxRPM\" is missing.");
    EXPECT_EQ(errorOf(R"({"time":0,"fans":[],"temps":[{"key":"T","source":"smc","celsius":1}]})"),
              "t.jsonl:1: temps[0].source: Expected \"HID\" or \"SMC\".");
    EXPECT_EQ(errorOf(R"({"time":0,"fans":[],"temps":[{"key":"T","source":"SMC","celsius":1,)"
                      R"("category":"cpu"}]})"),
              "t.jsonl:1: temps[0].category: "
              "Expected \"CPU\", \"GPU\", \"SSD\", \"Battery\" or \"Sensor\".");
    EXPECT_EQ(errorOf(R"({"time":0,"fans":[],"temps":[{"key":"T","source":"SMC","celsius":1,)"
                      R"("category":7}]})"),
              "t.jsonl:1: temps[0].category: Expected a string but found a number.");
    EXPECT_EQ(errorOf("[]"), "t.jsonl:1: Expected an object but found an array.");
    EXPECT_THAT(errorOf("{\"time\" 0}"), testing::StartsWith("t.jsonl:1:9: "));
    EXPECT_THAT(errorOf("\n"), testing::StartsWith("t.jsonl:1:1: "));
}

TEST(Trace, endsWithAndWithoutALastNewline) {
    const std::string line = R"({"time":0,"fans":[],"temps":[]})";
    for (const std::string& text : {line + "\n" + line, line + "\r\n" + line + "\n"}) {
        std::istringstream in(text);
        TraceReader reader(in, "t");
        for (int i = 0; i < 2; ++i) {
            const auto tick = reader.next();
            ASSERT_TRUE(tick && *tick) << i;
        }
        const auto end = reader.next();
        ASSERT_TRUE(end);
        EXPECT_FALSE(*end);
    }
    const auto nothing = read("");
    ASSERT_TRUE(nothing);
    EXPECT_FALSE(*nothing);
}

TEST(Trace, aLineMayBeAsLongAsADocument) {
    const std::string line = R"({"time":0,"fans":[],"temps":[]})";
    const std::string largest = line + std::string(1024 * 1024 - line.size(), ' ');
    EXPECT_TRUE(read(largest));
    EXPECT_TRUE(read(largest + "\n" + line));
    EXPECT_THAT(errorOf(largest + " "), testing::HasSubstr("1048576"));
    EXPECT_THAT(errorOf(largest + " \n"), testing::HasSubstr("1048576"));
    EXPECT_THAT(errorOf(largest + std::string(100, ' ') + "\n"), testing::HasSubstr("1048576"));
}

}  // namespace
}  // namespace airflow::tool
