#include "review/PercentChecks.h"

#include <fmt/format.h>

#include <utility>

#include "text/Text.h"

namespace airflow::review {

void checkPercent(double percent, std::string pointer, Report& report) {
    if (percent >= 0 && percent <= 100) return;
    const int counted = percent < 0 ? 0 : 100;
    report.add(
        Subject::percentOutOfRange, std::move(pointer),
        fmt::format("{} % is outside 0 to 100 and counts as {} %.", text::plain(percent), counted),
        fmt::format("Write {}.", counted));
}

}  // namespace airflow::review
