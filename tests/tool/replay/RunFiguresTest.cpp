#include <gmock/gmock.h>

#include <sstream>

#include "tool/common/RunFigures.h"

namespace airflow::tool {
namespace {

using Sample = RunFigures::Sample;

/// A forced fan of 1000 to 6000 RPM.
RunFigures::FanSample fanAt(double rpm) {
    return {.rpm = rpm, .minRPM = 1000, .maxRPM = 6000, .isForced = true, .targetRPM = rpm};
}

RunFigures::FanSample automatic(double rpm) {
    auto fan = fanAt(rpm);
    fan.isForced = false;
    return fan;
}

RunFigures figuresOf(const std::vector<Sample>& samples) {
    RunFigures figures;
    for (const Sample& sample : samples) figures.add(sample);
    return figures;
}

TEST(RunFigures, eachSampleCountsUntilTheNext) {
    const auto figures = figuresOf({{.time = 10, .fans = {{0, fanAt(1000)}}},
                                    {.time = 11, .fans = {{0, fanAt(3000)}}},
                                    {.time = 14, .fans = {{0, fanAt(6000)}}}});
    EXPECT_EQ(figures.seconds(), 4);
    EXPECT_EQ(figures.fans().at(0).meanRPM, 2500);
    EXPECT_EQ(figures.fans().at(0).topRPM, 6000);
}

TEST(RunFigures, ofOneSampleTheSpeedIsTheMean) {
    EXPECT_EQ(figuresOf({{.time = 1, .fans = {{0, fanAt(1234)}}}}).fans().at(0).meanRPM, 1234);
}

TEST(RunFigures, theHottestIgnoresWhatIsMissingOrNotANumber) {
    const auto figures =
        figuresOf({{.time = 0, .celsius = 50},
                   {.time = 1},
                   {.time = 2, .celsius = std::numeric_limits<double>::quiet_NaN()},
                   {.time = 3, .celsius = 40}});
    EXPECT_EQ(figures.hottest(), 50);
    EXPECT_EQ(figuresOf({{.time = 0}}).hottest(), std::nullopt);
}

TEST(RunFigures, aFanIsLoudAboveSixtyPercentOfItsRange) {
    const auto figures = figuresOf({{.time = 0, .fans = {{0, fanAt(4000)}, {1, fanAt(4001)}}},
                                    {.time = 5, .fans = {{0, fanAt(0)}, {1, fanAt(0)}}}});
    EXPECT_EQ(figures.fans().at(0).loudSeconds, 0);
    EXPECT_EQ(figures.fans().at(1).loudSeconds, 5);
}

TEST(RunFigures, startsAndStopsAreCountedAtATenthOfTheMinimum) {
    const auto figures = figuresOf({{.time = 0, .fans = {{0, fanAt(0)}}},
                                    {.time = 1, .fans = {{0, fanAt(101)}}},
                                    {.time = 2, .fans = {{0, fanAt(100)}}},
                                    {.time = 3, .fans = {{0, fanAt(1000)}}}});
    EXPECT_EQ(figures.fans().at(0).starts, 2);
    EXPECT_EQ(figures.fans().at(0).stops, 1);
}

TEST(RunFigures, changesOfOnePercentOfTheRangeCountUnderControlOnly) {
    const auto figures = figuresOf({{.time = 0, .fans = {{0, fanAt(2000)}}},
                                    {.time = 10, .fans = {{0, fanAt(2050)}}},
                                    {.time = 20, .fans = {{0, fanAt(2099)}}},
                                    {.time = 30, .fans = {{0, automatic(3000)}}},
                                    {.time = 60, .fans = {{0, automatic(4000)}}}});
    EXPECT_EQ(figures.fans().at(0).changesPerMinute, 2);  // one in half a minute
    EXPECT_EQ(figures.controlledSeconds(), 30);
}

TEST(RunFigures, aFanThatWasNotThereDoesNotLowerItsMean) {
    const auto figures = figuresOf({{.time = 0, .fans = {{0, fanAt(2000)}}},
                                    {.time = 1},
                                    {.time = 9, .fans = {{0, fanAt(4000)}}},
                                    {.time = 10}});
    EXPECT_EQ(figures.fans().at(0).meanRPM, 3000);
}

TEST(RunFigures, timeThatGoesBackwardsCountsForNothing) {
    EXPECT_EQ(figuresOf({{.time = 5}, {.time = 1}, {.time = 2}}).seconds(), 1);
}

TEST(RunFigures, aRunWithoutTemperaturesOrReleasesSaysSo) {
    std::ostringstream out;
    RunFigures().write(out);
    EXPECT_THAT(out.str(), testing::StartsWith("hottest        —\n"
                                               "under control  0.0 of 0.0 s\n"
                                               "releases       none\n"));
}

}  // namespace
}  // namespace airflow::tool
