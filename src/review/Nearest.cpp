#include "review/Nearest.h"

#include <algorithm>
#include <numeric>
#include <utility>
#include <vector>

namespace airflow::review {

namespace {

char lower(char character) {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a')
                                                : character;
}

}  // namespace

std::size_t editDistance(std::string_view a, std::string_view b) {
    // row[j]: from what of `a` was read so far to the first j characters of `b`.
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (const char character : a) {
        std::size_t diagonal = row[0]++;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t replaced = diagonal + (lower(character) == lower(b[j - 1]) ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({replaced, row[j - 1] + 1, row[j] + 1});
        }
    }
    return row.back();
}

}  // namespace airflow::review
