#include "smc/SMCBytes.h"

#include <bit>
#include <cmath>
#include <cstddef>
#include <limits>

namespace airflow::smc {

namespace {

// The language leaves the conversion of a number beyond the largest float undefined.
float nearestFloat(double value) {
    using Float = std::numeric_limits<float>;
    constexpr double halfwayToOverflow = 0x1.ffffffp+127;  // half a step above the largest float
    if (std::abs(value) >= halfwayToOverflow) {
        return value < 0 ? -Float::infinity() : Float::infinity();
    }
    if (std::abs(value) > double{Float::max()}) return value < 0 ? Float::lowest() : Float::max();
    return static_cast<float>(value);
}

}  // namespace

SMCBytes encodeUInt8(std::uint8_t value) {
    SMCBytes bytes = zeroSMCBytes;
    bytes[0] = value;
    return bytes;
}

SMCBytes encodeFloat(double value) {
    SMCBytes bytes = zeroSMCBytes;
    const auto pattern = std::bit_cast<std::uint32_t>(nearestFloat(value));
    for (std::size_t index = 0; index < sizeof pattern; ++index) {
        bytes[index] = static_cast<std::uint8_t>(pattern >> 8 * index);
    }
    return bytes;
}

}  // namespace airflow::smc
