// Int64: which floating-point numbers become a signed 64-bit integer.
#pragma once

namespace airflow::numbers {

/// Whether `number` without its fraction fits; never when it is not a number. To convert any other
/// is undefined. The largest integer is no double, so the bound is the first that does not fit.
[[nodiscard]] constexpr bool fitsInt64(double number) {
    return number >= -0x1p63 && number < 0x1p63;
}

}  // namespace airflow::numbers
