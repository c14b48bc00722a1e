// TimeSeries: a number over time, in memory that does not grow.
#pragma once

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

namespace airflow::tool {

/// Keeps at most `capacity` spans. When there are more, neighbours become one, so that each knows
/// the least and the greatest number in it.
class TimeSeries {
public:
    struct Span {
        double from = 0;  ///< seconds, of its first number
        double to = 0;    ///< and of its last
        double low = 0;
        double high = 0;
        bool isApart = false;  ///< nothing is known of the time before it
    };
    static constexpr std::size_t capacity = 4096;

    /// In the order of time.
    void add(double time, double value) {
        if (!spans.empty() && inLast < stride && !isInterrupted) {
            Span& last = spans.back();
            last = {.from = last.from,
                    .to = time,
                    .low = std::min(last.low, value),
                    .high = std::max(last.high, value),
                    .isApart = last.isApart};
            ++inLast;
            return;
        }
        if (spans.size() == capacity) halve();
        spans.push_back({.from = time,
                         .to = time,
                         .low = value,
                         .high = value,
                         .isApart = std::exchange(isInterrupted, false)});
        inLast = 1;
    }
    /// What comes next does not follow on what came before.
    void interrupt() { isInterrupted = true; }
    [[nodiscard]] const std::vector<Span>& all() const { return spans; }
    [[nodiscard]] bool isEmpty() const { return spans.empty(); }

private:
    void halve() {
        for (std::size_t i = 0; i < capacity / 2; ++i) {
            const Span& first = spans[2 * i];
            const Span& second = spans[2 * i + 1];
            spans[i] = {.from = first.from,
                        .to = second.to,
                        .low = std::min(first.low, second.low),
                        .high = std::max(first.high, second.high),
                        .isApart = first.isApart};
        }
        spans.resize(capacity / 2);
        stride *= 2;
    }

    std::vector<Span> spans;
    std::size_t stride = 1;  ///< numbers in each span
    std::size_t inLast = 0;
    bool isInterrupted = false;
};

}  // namespace airflow::tool
