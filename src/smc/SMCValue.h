// SMCValue: what the bytes of a key mean.
#pragma once

#include <cstdint>
#include <optional>
#include <variant>

#include "smc/SMCBytes.h"

namespace airflow::smc {

/// A floating-point number of the SMC ("flt ").
struct Floating {
    double value = 0;

    bool operator==(const Floating&) const = default;
};

/// An unsigned integer of one, two or four bytes ("ui8 ", "ui16", "ui32").
struct Unsigned {
    std::uint32_t value = 0;

    bool operator==(const Unsigned&) const = default;
};

/// A number with a fixed count of fraction bits ("fpe2", "sp78").
struct FixedPoint {
    double value = 0;

    bool operator==(const FixedPoint&) const = default;
};

/// Bytes that have no meaning here: of another type, or too few for theirs.
struct Raw {
    bool operator==(const Raw&) const = default;
};

struct SMCValue {
    std::variant<Floating, Unsigned, FixedPoint, Raw> value = Raw{};

    bool operator==(const SMCValue&) const = default;

    [[nodiscard]] static SMCValue floating(double value) { return {Floating{value}}; }
    [[nodiscard]] static SMCValue uint(std::uint32_t value) { return {Unsigned{value}}; }
    [[nodiscard]] static SMCValue fixedPoint(double value) { return {FixedPoint{value}}; }
    [[nodiscard]] static SMCValue raw() { return {}; }

    [[nodiscard]] bool isRaw() const { return std::holds_alternative<Raw>(value); }

    /// The number, whatever its encoding; nothing for raw bytes. May be infinite or not a number,
    /// as the SMC's floating-point values may.
    [[nodiscard]] std::optional<double> numeric() const;
};

/// Reads the first `size` bytes of a reply as a value of the four-character type `dataType`.
///
/// `size` is what the SMC claims: below 0 it counts as 0, above 32 as 32. Never fails: what is of
/// an unknown type or too short for its type is raw.
[[nodiscard]] SMCValue decodeSMCValue(const SMCBytes& bytes, std::int64_t size,
                                      std::uint32_t dataType);

}  // namespace airflow::smc
