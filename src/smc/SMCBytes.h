// SMCBytes: the payload of a request or reply, and the two encodings that are ever written.
#pragma once

#include <array>
#include <cstdint>

namespace airflow::smc {

/// Index 0 comes first on the wire; bytes past the value are zero in requests.
using SMCBytes = std::array<std::uint8_t, 32>;

inline constexpr SMCBytes zeroSMCBytes{};

/// `value` in the first byte.
[[nodiscard]] SMCBytes encodeUInt8(std::uint8_t value);

/// `value` as a single-precision number in the first four bytes, least significant byte first.
///
/// Rounds to nearest. What is too large even after rounding becomes the infinity of its sign; an
/// infinity stays one, and not-a-number stays not-a-number.
[[nodiscard]] SMCBytes encodeFloat(double value);

}  // namespace airflow::smc
