#include <gtest/gtest.h>

#include <sstream>

#include "text/Table.h"

namespace airflow::text {
namespace {

std::string text(const Table& table) {
    std::ostringstream out;
    table.write(out);
    return out.str();
}

TEST(Table, columnsAreAsWideAsTheirWidestCell) {
    Table table({{"a"}, {"number", Table::Align::right}, {"last"}});
    table.add({"wide", "1", "x"});
    table.add({"w", "1000000", "y"});
    EXPECT_EQ(text(table),
              "a      number  last\n"
              "wide        1  x\n"
              "w     1000000  y\n");
}

TEST(Table, countsCharactersNotBytes) {
    Table table({{"°C"}, {"b"}});
    table.add({"…é", "x"});
    table.add({"abc", "y"});
    EXPECT_EQ(text(table), "°C   b\n…é   x\nabc  y\n");
}

TEST(Table, withoutTitlesThereIsNoHeader) {
    Table table({{}, {}});
    table.add({"a", "b"});
    EXPECT_EQ(text(table), "a  b\n");
}

TEST(Table, noLineEndsInBlanks) {
    Table table({{"a"}, {"b"}});
    table.add({"x", ""});
    EXPECT_EQ(text(table), "a  b\nx\n");
}

TEST(Table, withoutRowsThereIsOnlyTheHeader) {
    EXPECT_EQ(text(Table({{"a"}, {"b"}})), "a  b\n");
}

}  // namespace
}  // namespace airflow::text
