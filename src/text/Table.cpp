#include "text/Table.h"

#include <algorithm>
#include <ostream>
#include <utility>

#include "text/Text.h"

namespace airflow::text {

void Table::write(std::ostream& out) const {
    std::vector<std::string> titles;
    std::vector<std::size_t> widths;
    for (const Column& column : columns) {
        titles.push_back(column.title);
        widths.push_back(columnsOf(column.title));
    }
    for (const auto& row : rows) {
        for (std::size_t i = 0; i < columns.size(); ++i) {
            widths[i] = std::max(widths[i], columnsOf(row[i]));
        }
    }
    const auto writeLine = [&](const std::vector<std::string>& cells) {
        std::string line;
        for (std::size_t i = 0; i < columns.size(); ++i) {
            const std::string blanks(widths[i] - columnsOf(cells[i]), ' ');
            if (i > 0) line += "  ";
            line += columns[i].align == Align::left ? cells[i] + blanks : blanks + cells[i];
        }
        line.erase(line.find_last_not_of(' ') + 1);
        out << line << '\n';
    };
    if (!std::ranges::all_of(titles, &std::string::empty)) writeLine(titles);
    for (const auto& row : rows) writeLine(row);
}

}  // namespace airflow::text
