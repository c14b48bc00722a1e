// What a curve answers, each step of the look-up on its own.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "plan/FanCurve.h"
#include "support/Doubles.h"

namespace airflow::plan {

namespace {

using Numbers = std::numeric_limits<double>;
using airflow::tests::infinity;
using airflow::tests::notANumber;

struct Point {
    double celsius;
    double percent;
};

FanCurve curveOf(const std::vector<Point>& points,
                 CurveInterpolation interpolation = CurveInterpolation::linear) {
    FanCurve curve{.sourceSensorID = {}, .points = {}, .interpolation = interpolation};
    for (const auto& [celsius, percent] : points) {
        curve.points.push_back({.id = {}, .celsius = celsius, .percent = percent});
    }
    return curve;
}

double justBelow(double celsius) {
    return std::nextafter(celsius, -infinity);
}
double justAbove(double celsius) {
    return std::nextafter(celsius, infinity);
}

}  // namespace

TEST(FanCurveLookup, aCurveWithoutPointsAsksForNothing) {
    for (const double celsius : {-300.0, 0.0, 45.0, 1e300, infinity, -infinity, notANumber}) {
        EXPECT_EQ(FanCurve{}.percentAt(celsius), 0) << celsius;
    }
}

TEST(FanCurveLookup, aSinglePointHoldsAtEveryTemperature) {
    const FanCurve curve = curveOf({{50, 35}});
    for (const double celsius : {-300.0, justBelow(50), 50.0, justAbove(50), 1e300, infinity}) {
        EXPECT_EQ(curve.percentAt(celsius), 35) << celsius;
    }
    EXPECT_EQ(curve.percentAt(notANumber), 35);
}

TEST(FanCurveLookup, aSinglePointIsClampedToZeroToAHundredPercent) {
    EXPECT_EQ(curveOf({{50, -5}}).percentAt(50), 0);
    EXPECT_EQ(curveOf({{50, 0}}).percentAt(50), 0);
    EXPECT_EQ(curveOf({{50, Numbers::denorm_min()}}).percentAt(50), Numbers::denorm_min());
    EXPECT_EQ(curveOf({{50, justBelow(100)}}).percentAt(50), justBelow(100));
    EXPECT_EQ(curveOf({{50, 100}}).percentAt(50), 100);
    EXPECT_EQ(curveOf({{50, justAbove(100)}}).percentAt(50), 100);
    EXPECT_EQ(curveOf({{50, 120}}).percentAt(50), 100);
}

TEST(FanCurveLookup, minusZeroIsAnsweredAsZero) {
    EXPECT_FALSE(std::signbit(curveOf({{50, -0.0}}).percentAt(50)));
}

TEST(FanCurveLookup, isFlatBeforeTheFirstPoint) {
    const FanCurve curve = curveOf({{45, 10}, {70, 40}, {90, 100}});
    EXPECT_EQ(curve.percentAt(-infinity), 10);
    EXPECT_EQ(curve.percentAt(-40), 10);
    EXPECT_EQ(curve.percentAt(justBelow(45)), 10);
    EXPECT_EQ(curve.percentAt(45), 10);
    EXPECT_GT(curve.percentAt(45.001), 10);
}

TEST(FanCurveLookup, isFlatAfterTheLastPoint) {
    const FanCurve curve = curveOf({{45, 10}, {70, 40}, {90, 80}});
    EXPECT_LT(curve.percentAt(89.999), 80);
    EXPECT_EQ(curve.percentAt(90), 80);
    EXPECT_EQ(curve.percentAt(justAbove(90)), 80);
    EXPECT_EQ(curve.percentAt(150), 80);
    EXPECT_EQ(curve.percentAt(infinity), 80);
}

TEST(FanCurveLookup, isAStraightLineBetweenPoints) {
    const FanCurve curve = curveOf({{40, 0}, {60, 50}, {80, 60}});
    EXPECT_EQ(curve.percentAt(50), 25);
    EXPECT_EQ(curve.percentAt(45), 12.5);
    EXPECT_EQ(curve.percentAt(55), 37.5);
    EXPECT_EQ(curve.percentAt(70), 55);
    EXPECT_EQ(curve.percentAt(75), 57.5);
}

TEST(FanCurveLookup, mayFallWithTheTemperature) {
    const FanCurve curve = curveOf({{40, 80}, {60, 40}});
    EXPECT_EQ(curve.percentAt(45), 70);
    EXPECT_EQ(curve.percentAt(50), 60);
}

TEST(FanCurveLookup, belowFreezingIsATemperatureLikeAnyOther) {
    EXPECT_EQ(curveOf({{-20, 10}, {20, 30}}).percentAt(-10), 15);
    EXPECT_EQ(curveOf({{-20, 10}, {20, 30}}).percentAt(0), 20);
}

TEST(FanCurveLookup, atAPointTheAnswerIsThePointsPercentage) {
    const FanCurve curve = curveOf({{40, 5}, {50, 25}, {60, 30}, {70, 90}});
    EXPECT_EQ(curve.percentAt(40), 5);
    EXPECT_EQ(curve.percentAt(50), 25);
    EXPECT_EQ(curve.percentAt(60), 30);
    EXPECT_EQ(curve.percentAt(70), 90);
}

TEST(FanCurveLookup, pointsOutOfOrderAnswerAsSortedOnes) {
    const std::vector<Point> sorted = {{40, 0}, {55, 20}, {70, 40}, {90, 100}};
    std::vector<Point> shuffled = sorted;
    const auto byCelsius = [](const Point& a, const Point& b) { return a.celsius < b.celsius; };
    do {
        for (const double celsius : {30.0, 40.0, 47.5, 55.0, 60.0, 70.0, 80.0, 90.0, 95.0}) {
            EXPECT_EQ(curveOf(shuffled).percentAt(celsius), curveOf(sorted).percentAt(celsius));
        }
    } while (std::ranges::next_permutation(shuffled, byCelsius).found);
}

TEST(FanCurveLookup, atATemperatureOfTwoMiddlePointsTheFirstOfThemCounts) {
    const FanCurve curve = curveOf({{40, 0}, {60, 20}, {60, 80}, {80, 100}});
    EXPECT_NEAR(curve.percentAt(justBelow(60)), 20, 1e-9);
    EXPECT_EQ(curve.percentAt(60), 20);
    EXPECT_NEAR(curve.percentAt(justAbove(60)), 80, 1e-9);
    EXPECT_EQ(curve.percentAt(70), 90);
}

TEST(FanCurveLookup, pointsOfOneTemperatureKeepTheirOrderWhenTheyAreSorted) {
    const FanCurve curve = curveOf({{80, 100}, {60, 80}, {60, 20}, {40, 0}});
    EXPECT_EQ(curve.percentAt(60), 80);
    EXPECT_EQ(curve.percentAt(50), 40);
    EXPECT_EQ(curve.percentAt(70), 60);
}

TEST(FanCurveLookup, pointsOfOneTemperatureAtTheStartAnswerWithTheFirst) {
    const FanCurve curve = curveOf({{40, 10}, {40, 30}, {60, 50}});
    EXPECT_EQ(curve.percentAt(39), 10);
    EXPECT_EQ(curve.percentAt(40), 10);
    EXPECT_EQ(curve.percentAt(50), 40);
}

TEST(FanCurveLookup, pointsOfOneTemperatureAtTheEndAnswerWithTheLast) {
    const FanCurve curve = curveOf({{40, 10}, {60, 30}, {60, 50}});
    EXPECT_EQ(curve.percentAt(50), 20);
    EXPECT_EQ(curve.percentAt(60), 50);
    EXPECT_EQ(curve.percentAt(61), 50);
}

TEST(FanCurveLookup, pointsOfOnlyOneTemperatureAreAStep) {
    const FanCurve curve = curveOf({{60, 30}, {60, 40}, {60, 50}});
    EXPECT_EQ(curve.percentAt(59), 30);
    EXPECT_EQ(curve.percentAt(60), 30);
    EXPECT_EQ(curve.percentAt(61), 50);
    EXPECT_EQ(curve.percentAt(notANumber), 50);
}

TEST(FanCurveLookup, threePointsOfOneTemperatureInTheMiddleSkipTheSecond) {
    const FanCurve curve = curveOf({{40, 0}, {60, 20}, {60, 99}, {60, 80}, {80, 100}});
    EXPECT_EQ(curve.percentAt(60), 20);
    EXPECT_EQ(curve.percentAt(70), 90);
}

TEST(FanCurveLookup, manyUnsortedPointsOfOneTemperatureKeepTheirOrder) {
    std::vector<Point> points = {{90, 100}};
    for (int i = 0; i < 100; ++i) points.push_back({50, 10 + i * 0.5});
    points.push_back({30, 0});
    const FanCurve curve = curveOf(points);
    EXPECT_EQ(curve.percentAt(50), 10);     // the first of the hundred
    EXPECT_EQ(curve.percentAt(40), 5);      // half way up to it
    EXPECT_EQ(curve.percentAt(70), 79.75);  // half way from the last, 59.5, to 100
}

TEST(FanCurveLookup, zeroAndMinusZeroAreOneTemperature) {
    const FanCurve curve = curveOf({{20, 90}, {0.0, 30}, {-0.0, 10}, {-20, 0}});
    EXPECT_EQ(curve.percentAt(0.0), 30);
    EXPECT_EQ(curve.percentAt(-0.0), 30);
    EXPECT_EQ(curve.percentAt(10), 50);
}

TEST(FanCurveLookup, aPointBeyondTheRangeIsReachedAsItsLimit) {
    const FanCurve curve = curveOf({{40, -5}, {50, 5}, {60, 120}});
    EXPECT_EQ(curve.percentAt(40), 0);
    EXPECT_EQ(curve.percentAt(44), 0);    // -1 on the line
    EXPECT_EQ(curve.percentAt(45), 0);    // exactly 0 on the line
    EXPECT_EQ(curve.percentAt(46), 1);    // the line is not bent by the limit
    EXPECT_EQ(curve.percentAt(58), 97);   // 5 + 0.8 * 115
    EXPECT_EQ(curve.percentAt(59), 100);  // 108.5 on the line
    EXPECT_EQ(curve.percentAt(60), 100);
}

TEST(FanCurveLookup, monotoneCurvesAreEvaluatedAsLinearOnes) {
    const std::vector<Point> points = {{40, 0}, {60, 70}, {65, 72}, {80, 100}};
    const FanCurve monotone = curveOf(points, CurveInterpolation::monotone);
    const FanCurve linear = curveOf(points, CurveInterpolation::linear);
    for (int tenths = 300; tenths <= 900; ++tenths) {
        EXPECT_EQ(monotone.percentAt(tenths / 10.0), linear.percentAt(tenths / 10.0));
    }
}

TEST(FanCurveLookup, atATemperatureThatIsNotANumberThereIsNoAnswer) {
    EXPECT_TRUE(std::isnan(curveOf({{40, 0}, {80, 100}}).percentAt(notANumber)));
    EXPECT_TRUE(std::isnan(curveOf({{80, 100}, {40, 0}}).percentAt(notANumber)));
}

TEST(FanCurveLookup, pointsTooFarApartForADoubleHaveNoLineBetweenThem) {
    const FanCurve curve = curveOf({{Numbers::lowest(), 0}, {Numbers::max(), 100}});
    EXPECT_EQ(curve.percentAt(Numbers::lowest()), 0);
    EXPECT_EQ(curve.percentAt(Numbers::max()), 100);
    EXPECT_EQ(curve.percentAt(0), 0);  // a finite distance of an infinite one is nothing
    const FanCurve steep = curveOf({{0, Numbers::lowest()}, {1, Numbers::max()}});
    EXPECT_EQ(steep.percentAt(0.5), 100);
}

TEST(FanCurveLookup, pointsWhoseTemperatureIsNotANumberComeLast) {
    const std::vector<Point> unsorted = {{50, 0}, {90, 0}, {notANumber, 0}, {80, 80}, {60, 60}};
    const std::vector<Point> inOrder = {{50, 0}, {notANumber, 0}, {60, 60}, {80, 80}, {90, 0}};
    for (const auto& points : {unsorted, inOrder}) {
        EXPECT_EQ(curveOf(points).percentAt(40), 0);
        EXPECT_EQ(curveOf(points).percentAt(55), 30);
        EXPECT_EQ(curveOf(points).percentAt(70), 70);
        EXPECT_TRUE(std::isnan(curveOf(points).percentAt(95)));  // the last point says nothing
    }
}

TEST(FanCurveLookup, manyPointsWhoseTemperatureIsNotANumberDoNoHarm) {
    for (const std::size_t spacing : {1u, 2u, 3u, 5u, 7u}) {
        std::vector<Point> points;
        for (std::size_t i = 0; i < 200; ++i) {
            points.push_back({i % spacing == 0 ? notANumber : 200.0 - static_cast<double>(i), 50});
        }
        const double percent = curveOf(points).percentAt(60);
        EXPECT_TRUE(percent == 50 || (spacing == 1 && std::isnan(percent))) << percent;
    }
}

TEST(FanCurveLookup, aLookUpLeavesTheCurveAsItWas) {
    const FanCurve curve = curveOf({{80, 100}, {60, 80}, {40, 0}});
    const FanCurve before = curve;
    EXPECT_EQ(curve.percentAt(50), 40);
    EXPECT_EQ(curve, before);
}

}  // namespace airflow::plan
