// BraillePlot: lines over time, drawn with the dots of braille characters.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace airflow::text {

/// A grid of characters, each of which is two dots wide and four dots high.
class BraillePlot {
public:
    /// Both in characters, at least 1.
    BraillePlot(std::size_t columns, std::size_t rows);

    [[nodiscard]] std::size_t dotColumns() const { return columns * 2; }
    [[nodiscard]] std::size_t dotRows() const { return rows * 4; }

    /// Fills the dots of one column from `low` to `high`, counted from below; what lies outside is
    /// left out.
    void fill(std::size_t dotColumn, std::size_t low, std::size_t high);

    /// The lines from above, without blanks at their ends.
    [[nodiscard]] std::vector<std::string> lines() const;

private:
    std::size_t columns;
    std::size_t rows;
    std::vector<std::uint8_t> cells;  ///< the dots of each character, by line from above
};

}  // namespace airflow::text
