#include "simulation/machine/SMCNumber.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

#include "smc/FourCharCode.h"
#include "smc/SMCValue.h"

namespace airflow::simulation {

namespace {

/// The low `size` bytes of `value`, most significant first.
smc::SMCBytes bigEndian(std::uint32_t value, std::size_t size) {
    smc::SMCBytes bytes{};
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<std::uint8_t>(value >> (8 * (size - 1 - i)));
    }
    return bytes;
}

/// Rounded, and brought into the range of T; 0 when it is not a number.
template <typename T>
T bounded(double number) {
    if (std::isnan(number)) return 0;
    const double low = static_cast<double>(std::numeric_limits<T>::min());
    const double high = static_cast<double>(std::numeric_limits<T>::max());
    return static_cast<T>(std::clamp(std::round(number), low, high));
}

}  // namespace

smc::SMCBytes encodeNumber(double number, const std::string& type) {
    if (type == "ui8 ") return bigEndian(bounded<std::uint8_t>(number), 1);
    if (type == "ui16") return bigEndian(bounded<std::uint16_t>(number), 2);
    if (type == "ui32") return bigEndian(bounded<std::uint32_t>(number), 4);
    if (type == "fpe2") return bigEndian(bounded<std::uint16_t>(number * 4), 2);
    if (type == "sp78") {
        return bigEndian(static_cast<std::uint16_t>(bounded<std::int16_t>(number * 256)), 2);
    }
    return smc::encodeFloat(number);
}

std::optional<double> decodeNumber(const smc::SMCBytes& bytes, std::uint32_t size,
                                   const std::string& type) {
    return smc::decodeSMCValue(bytes, size, smc::fourCharCode(type)).numeric();
}

std::uint32_t sizeOfNumber(const std::string& type) {
    if (type == "ui8 ") return 1;
    if (type == "ui16" || type == "fpe2" || type == "sp78") return 2;
    if (type == "ui32" || type == "flt ") return 4;
    return 0;
}

}  // namespace airflow::simulation
