#include "text/BraillePlot.h"

#include <algorithm>
#include <array>

namespace airflow::text {

namespace {

/// Which bit of a braille character stands for which of its dots, by column and row from above.
constexpr std::array<std::array<std::uint8_t, 4>, 2> bits{
    {{0x01, 0x02, 0x04, 0x40}, {0x08, 0x10, 0x20, 0x80}}};

/// The character U+2800 plus the bits, in UTF-8.
std::string braille(std::uint8_t dots) {
    constexpr unsigned first = 0x2800;
    const unsigned code = first + dots;
    return {static_cast<char>(0xE0U | (code >> 12U)),
            static_cast<char>(0x80U | ((code >> 6U) & 0x3FU)),
            static_cast<char>(0x80U | (code & 0x3FU))};
}

}  // namespace

BraillePlot::BraillePlot(std::size_t wide, std::size_t high)
    : columns(std::max<std::size_t>(wide, 1)),
      rows(std::max<std::size_t>(high, 1)),
      cells(columns * rows) {}

void BraillePlot::fill(std::size_t dotColumn, std::size_t low, std::size_t high) {
    if (dotColumn >= dotColumns()) return;
    for (std::size_t dot = low; dot <= high && dot < dotRows(); ++dot) {
        const std::size_t fromAbove = dotRows() - 1 - dot;
        cells[fromAbove / 4 * columns + dotColumn / 2] |= bits.at(dotColumn % 2).at(fromAbove % 4);
    }
}

std::vector<std::string> BraillePlot::lines() const {
    std::vector<std::string> lines;
    for (std::size_t row = 0; row < rows; ++row) {
        std::string& line = lines.emplace_back();
        std::size_t end = columns;
        while (end > 0 && cells[row * columns + end - 1] == 0) --end;
        for (std::size_t column = 0; column < end; ++column) {
            const std::uint8_t dots = cells[row * columns + column];
            line += dots == 0 ? " " : braille(dots);
        }
    }
    return lines;
}

}  // namespace airflow::text
