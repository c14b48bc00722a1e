// Random: numbers from a seed, the same with every compiler and standard library.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "concurrency/Clock.h"

namespace airflow::simulation {

/// SplitMix64.
class Random {
public:
    /// 2^64 divided by the golden ratio, made odd.
    static constexpr std::uint64_t step = 0x9E3779B97F4A7C15U;

    explicit Random(std::uint64_t seed) : state(seed) {}

    std::uint64_t next() {
        std::uint64_t mixed = (state += step);
        mixed = (mixed ^ (mixed >> 30U)) * 0xBF58476D1CE4E5B9U;
        mixed = (mixed ^ (mixed >> 27U)) * 0x94D049BB133111EBU;
        return mixed ^ (mixed >> 31U);
    }
    /// 0 to `limit` - 1; 0 for a limit below 1.
    std::int64_t below(std::int64_t limit) {
        return limit < 1 ? 0
                         : static_cast<std::int64_t>(next() % static_cast<std::uint64_t>(limit));
    }
    /// In `percent` of the cases.
    bool chance(int percent) { return below(100) < percent; }
    /// Up to `limit`, in milliseconds, so that scenarios can be read by people.
    concurrency::Duration upTo(concurrency::Duration limit) {
        return std::chrono::milliseconds(
            below(std::chrono::duration_cast<std::chrono::milliseconds>(limit).count()));
    }
    template <typename T>
    const T& oneOf(const std::vector<T>& choices) {
        return choices[static_cast<std::size_t>(below(static_cast<std::int64_t>(choices.size())))];
    }

private:
    std::uint64_t state;
};

}  // namespace airflow::simulation
