// Table: aligned columns for people.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace airflow::text {

/// Columns are as wide as their widest cell and two blanks apart. No line ends in blanks.
class Table {
public:
    enum class Align : bool { left, right };
    struct Column {
        std::string title;
        Align align = Align::left;
    };

    /// Without titles there is no header line.
    explicit Table(std::vector<Column> columns) : columns(std::move(columns)) {}

    /// As many cells as there are columns.
    void add(std::vector<std::string> cells) { rows.push_back(std::move(cells)); }
    void write(std::ostream& out) const;

private:
    std::vector<Column> columns;
    std::vector<std::vector<std::string>> rows;
};

}  // namespace airflow::text
