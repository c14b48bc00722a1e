// People read the properties in docs/safety.md, word for word.
#include <fmt/format.h>
#include <gmock/gmock.h>

#include <fstream>
#include <string>
#include <vector>

#include "simulation/oracle/Oracle.h"

namespace airflow::simulation {
namespace {

using Lines = std::vector<std::string>;

/// The rows of the table under this heading, without its head.
Lines rowsUnder(const std::string& heading) {
    std::ifstream file(AIRFLOW_DOCS "/safety.md");
    Lines rows;
    bool isUnder = false;
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with("## ")) isUnder = line == "## " + heading;
        if (isUnder && line.starts_with("| `")) rows.push_back(line);
    }
    return rows;
}

TEST(Properties, areListedForPeopleWordForWord) {
    Lines expected;
    for (const PropertyText& text : properties) {
        expected.push_back(fmt::format("| `{}` | {} |", text.name, text.sentence));
    }
    EXPECT_EQ(rowsUnder("Properties"), expected);
    EXPECT_EQ(expected.size(), 21U);
}

TEST(Properties, areFoundByTheirNumber) {
    EXPECT_EQ(textOf(Property::releaseBegins).name, "releaseBegins");
    EXPECT_EQ(textOf(Property::appliedIsTrue).name, "appliedIsTrue");
    for (const PropertyText& text : properties) EXPECT_EQ(textOf(text.property).name, text.name);
}

TEST(Violation, isDescribedByItsPropertyItsTimeAndWhatWasSeen) {
    const Violation violation{.property = Property::releaseBegins,
                              .time = std::chrono::milliseconds(12'500),
                              .what = "fan 0 was not asked to go back"};
    EXPECT_EQ(describe(violation), "releaseBegins at 12.500 s: fan 0 was not asked to go back");
}

}  // namespace
}  // namespace airflow::simulation
