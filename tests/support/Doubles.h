// Doubles: those that are no numbers that one can calculate with, and any that are.
#pragma once

#include <rapidcheck.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>

namespace airflow::tests {

inline constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
inline constexpr double infinity = std::numeric_limits<double>::infinity();

/// The exponent's lowest bit is taken out of what would be infinite or not a number.
inline double finiteFromBits(std::uint64_t bits) {
    const auto number = std::bit_cast<double>(bits);
    return std::isfinite(number) ? number : std::bit_cast<double>(bits & ~(1ULL << 52));
}

/// Of every magnitude, those at the ends of something, and those that people write.
inline rc::Gen<double> finiteDoubles() {
    using Limits = std::numeric_limits<double>;
    return rc::gen::oneOf(
        rc::gen::map(rc::gen::inRange(-1'000'000, 1'000'001),
                     [](int hundredths) { return hundredths / 100.0; }),
        rc::gen::map(rc::gen::inRange(-10'000, 10'001), [](int whole) { return whole * 1.0; }),
        rc::gen::map(rc::gen::resize(rc::kNominalSize, rc::gen::arbitrary<std::uint64_t>()),
                     finiteFromBits),
        rc::gen::element(0.0, -0.0, 0.1, -0.1, 1e-7, 1e15, 1e16, 1e17, 1e21, 1e22, 1e23,
                         Limits::max(), Limits::lowest(), Limits::min(), Limits::denorm_min(),
                         Limits::epsilon(), 9007199254740991.0, 9007199254740992.0,
                         9223372036854774784.0, 9223372036854775808.0, -9223372036854775808.0));
}

}  // namespace airflow::tests
