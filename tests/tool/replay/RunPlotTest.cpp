#include <gmock/gmock.h>

#include <sstream>

#include "text/Text.h"
#include "tool/common/RunPlot.h"

namespace airflow::tool {
namespace {

using testing::HasSubstr;

RunFigures::Sample sampleAt(double time, double celsius, double rpm) {
    return {.time = time,
            .celsius = celsius,
            .fans = {{0, {.rpm = rpm, .minRPM = 1000, .maxRPM = 6000}}}};
}

std::vector<std::string> linesOf(const RunPlot& plot, std::size_t columns) {
    std::ostringstream out;
    plot.write(out, columns);
    std::istringstream in(out.str());
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

TEST(RunPlot, drawsALineFromTheLowestToTheHighestValue) {
    RunPlot plot;
    for (int i = 0; i <= 20; ++i) plot.add(sampleAt(i, 40 + i, 2000));
    const auto lines = linesOf(plot, 40);
    EXPECT_EQ(lines.at(0), "hottest, °C");
    EXPECT_THAT(lines.at(1), HasSubstr("60│"));
    EXPECT_THAT(lines.at(5), HasSubstr("40│⣀"));
    EXPECT_EQ(lines.at(6), "fan 0, RPM");
}

TEST(RunPlot, aConstantLineLiesInTheMiddle) {
    RunPlot plot;
    plot.add(sampleAt(0, 50, 2000));
    plot.add(sampleAt(10, 50, 2000));
    const auto lines = linesOf(plot, 40);
    EXPECT_EQ(lines.at(1), "    51│");
    EXPECT_THAT(lines.at(3), testing::StartsWith("    50│⠒"));
    EXPECT_EQ(lines.at(5), "    49│");
}

TEST(RunPlot, noLineIsWiderThanAskedFor) {
    RunPlot plot;
    for (int i = 0; i < 1000; ++i) plot.add(sampleAt(i * 1.5, i % 90, i));
    for (const std::size_t columns : {40UL, 80UL, 213UL}) {
        for (const std::string& line : linesOf(plot, columns)) {
            EXPECT_LE(text::columnsOf(line), columns) << line;
        }
    }
}

TEST(RunPlot, eventsAreMarkedAndTheFirstOnesListed) {
    RunPlot plot;
    for (int i = 0; i <= 100; ++i) plot.add(sampleAt(i, 50, 2000));
    for (int i = 0; i < 15; ++i) plot.event(50, "event " + std::to_string(i));
    std::ostringstream out;
    plot.write(out, 80);
    EXPECT_THAT(out.str(), HasSubstr("└────────────────────────────────────▲──────"));
    EXPECT_THAT(out.str(), HasSubstr("50.0 s  event 11\n"));
    EXPECT_THAT(out.str(), HasSubstr("and 3 more\n"));
    EXPECT_THAT(out.str(), Not(HasSubstr("event 12")));
}

TEST(RunPlot, theAxisBeginsAndEndsWithTheRunBeforeZero) {
    RunPlot plot;
    plot.add(sampleAt(-100, 50, 2000));
    plot.add(sampleAt(-71.5, 60, 2000));
    EXPECT_THAT(linesOf(plot, 60).back(), testing::EndsWith("-71.5 s"));
}

TEST(RunPlot, aGapIsLeftEmpty) {
    RunPlot plot;
    plot.add(sampleAt(0, 50, 2000));
    plot.add({.time = 1});
    plot.add(sampleAt(40, 60, 2000));
    const auto lines = linesOf(plot, 40);
    EXPECT_EQ(lines.at(5), "    50│⡀");
    EXPECT_EQ(text::columnsOf(lines.at(1)), 40U);
    EXPECT_EQ(lines.at(3), "    55│");
}

TEST(RunPlot, whatNoSensorShowsIsNotDrawn) {
    RunPlot plot;
    plot.add(sampleAt(0, 1e308, 9e18));
    plot.add(sampleAt(1, -1e308, 2000));
    plot.add(sampleAt(1e300, 50, 2000));
    plot.event(1e300, std::string(300, 'x'));
    for (const std::string& line : linesOf(plot, 80)) {
        EXPECT_LE(text::columnsOf(line), 80U) << line;
        EXPECT_THAT(line, Not(HasSubstr("nan")));
        EXPECT_THAT(line, Not(HasSubstr("inf")));
    }
}

TEST(RunPlot, anEmptyRunDrawsNothing) {
    EXPECT_TRUE(linesOf(RunPlot(), 80).empty());
}

TEST(TimeSeries, keepsLeastAndGreatestInMemoryThatDoesNotGrow) {
    TimeSeries series;
    for (int i = 0; i < 1'000'000; ++i) series.add(i, i == 777'777 ? 5 : i % 2);
    EXPECT_LE(series.all().size(), TimeSeries::capacity);
    EXPECT_EQ(series.all().front().from, 0);
    EXPECT_EQ(series.all().back().to, 999'999);
    double high = 0;
    for (const TimeSeries::Span& span : series.all()) high = std::max(high, span.high);
    EXPECT_EQ(high, 5);
}

}  // namespace
}  // namespace airflow::tool
