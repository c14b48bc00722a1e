#include <gmock/gmock.h>

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>

#include "sensors/SensorCategory.h"

namespace airflow::sensors {
namespace {

using testing::ElementsAre;

TEST(SensorCategory, allAreListedInDeclarationOrder) {
    EXPECT_THAT(allCategories,
                ElementsAre(SensorCategory::cpu, SensorCategory::gpu, SensorCategory::battery,
                            SensorCategory::ssd, SensorCategory::sensor));
    EXPECT_TRUE(std::ranges::is_sorted(allCategories));
}

TEST(SensorCategory, everyOneHasItsText) {
    EXPECT_EQ(rawValue(SensorCategory::cpu), "CPU");
    EXPECT_EQ(rawValue(SensorCategory::gpu), "GPU");
    EXPECT_EQ(rawValue(SensorCategory::battery), "Battery");
    EXPECT_EQ(rawValue(SensorCategory::ssd), "SSD");
    EXPECT_EQ(rawValue(SensorCategory::sensor), "Sensor");
}

TEST(SensorCategory, everyTextIsItsCategory) {
    EXPECT_EQ(categoryFromRawValue("CPU"), SensorCategory::cpu);
    EXPECT_EQ(categoryFromRawValue("GPU"), SensorCategory::gpu);
    EXPECT_EQ(categoryFromRawValue("Battery"), SensorCategory::battery);
    EXPECT_EQ(categoryFromRawValue("SSD"), SensorCategory::ssd);
    EXPECT_EQ(categoryFromRawValue("Sensor"), SensorCategory::sensor);
}

TEST(SensorCategory, aTextInAnotherLetterCaseIsNone) {
    EXPECT_EQ(categoryFromRawValue("cpu"), std::nullopt);
    EXPECT_EQ(categoryFromRawValue("Gpu"), std::nullopt);
    EXPECT_EQ(categoryFromRawValue("BATTERY"), std::nullopt);
    EXPECT_EQ(categoryFromRawValue("ssd"), std::nullopt);
    EXPECT_EQ(categoryFromRawValue("sensor"), std::nullopt);
}

TEST(SensorCategory, aTextThatIsNearlyOneIsNone) {
    EXPECT_EQ(categoryFromRawValue(""), std::nullopt);
    EXPECT_EQ(categoryFromRawValue("CPU "), std::nullopt);
    EXPECT_EQ(categoryFromRawValue(" CPU"), std::nullopt);
    EXPECT_EQ(categoryFromRawValue("CP"), std::nullopt);
    EXPECT_EQ(categoryFromRawValue(std::string_view("CPU\0", 4)), std::nullopt);
}

TEST(SensorCategory, everyOneHasItsRank) {
    EXPECT_EQ(sortOrder(SensorCategory::cpu), 0);
    EXPECT_EQ(sortOrder(SensorCategory::gpu), 1);
    EXPECT_EQ(sortOrder(SensorCategory::ssd), 2);
    EXPECT_EQ(sortOrder(SensorCategory::battery), 3);
    EXPECT_EQ(sortOrder(SensorCategory::sensor), 4);
}

TEST(SensorCategory, peopleSeeTheSSDBeforeTheBattery) {
    auto shown = allCategories;
    std::ranges::sort(shown, {}, sortOrder);
    EXPECT_THAT(shown, ElementsAre(SensorCategory::cpu, SensorCategory::gpu, SensorCategory::ssd,
                                   SensorCategory::battery, SensorCategory::sensor));
}

TEST(SensorCategory, categoriesCanBeHashed) {
    const std::unordered_set<SensorCategory> set(allCategories.begin(), allCategories.end());
    EXPECT_EQ(set.size(), 5u);
}

}  // namespace
}  // namespace airflow::sensors
