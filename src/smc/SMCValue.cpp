#include "smc/SMCValue.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <span>
#include <type_traits>

#include "smc/FourCharCode.h"

namespace airflow::smc {

namespace {

struct DataType {
    std::uint32_t code;
    std::size_t width;                      // in bytes
    SMCValue (*decode)(std::uint32_t big);  // takes the bytes read as a big-endian integer
};

SMCValue floating(std::uint32_t big) {
    // The firmware stores floats in the order of its own processor, and nothing else.
    return SMCValue::floating(double{std::bit_cast<float>(std::byteswap(big))});
}

SMCValue twoFractionBits(std::uint32_t big) {
    return SMCValue::fixedPoint(big / 4.0);
}

SMCValue signedEightFractionBits(std::uint32_t big) {
    return SMCValue::fixedPoint(static_cast<std::int16_t>(big) / 256.0);
}

constexpr std::array dataTypes{
    DataType{fourCharCode("flt "), 4, floating},
    DataType{fourCharCode("ui8 "), 1, SMCValue::uint},
    DataType{fourCharCode("ui16"), 2, SMCValue::uint},
    DataType{fourCharCode("ui32"), 4, SMCValue::uint},
    DataType{fourCharCode("fpe2"), 2, twoFractionBits},
    DataType{fourCharCode("sp78"), 2, signedEightFractionBits},
};

std::uint32_t bigEndian(std::span<const std::uint8_t> bytes) {
    std::uint32_t number = 0;
    for (const std::uint8_t byte : bytes) number = number << 8 | byte;
    return number;
}

}  // namespace

std::optional<double> SMCValue::numeric() const {
    return std::visit(
        [](const auto& number) -> std::optional<double> {
            if constexpr (std::is_same_v<decltype(number), const Raw&>)
                return std::nullopt;
            else
                return number.value;
        },
        value);
}

SMCValue decodeSMCValue(const SMCBytes& bytes, std::int64_t size, std::uint32_t dataType) {
    constexpr auto capacity = static_cast<std::int64_t>(std::tuple_size_v<SMCBytes>);
    const auto available = static_cast<std::size_t>(std::clamp<std::int64_t>(size, 0, capacity));
    const auto type = std::ranges::find(dataTypes, dataType, &DataType::code);
    if (type == dataTypes.end() || available < type->width) return SMCValue::raw();
    return type->decode(bigEndian(std::span(bytes).first(type->width)));
}

}  // namespace airflow::smc
