// Units: numbers that stand side by side and must not be swapped.
#pragma once

#include <compare>
#include <cstdint>

namespace airflow::numbers {

/// A number of one unit. A plain number becomes one only where the unit is named, and nothing
/// becomes a number of another unit. Nothing is checked: clients may send any number.
template <typename Unit, typename Number>
class Quantity {
public:
    explicit constexpr Quantity(Number number) : number(number) {}

    [[nodiscard]] constexpr Number value() const { return number; }

    auto operator<=>(const Quantity&) const = default;

private:
    Number number;
};

/// A fan, by the SMC's zero-based number of it.
using FanIndex = Quantity<struct FanIndexUnit, std::int64_t>;
/// A speed in turns a minute, as clients ask for it: without a fraction.
using WholeRPM = Quantity<struct WholeRPMUnit, std::int64_t>;
/// A speed in turns a minute, as it is computed.
using RPM = Quantity<struct RPMUnit, double>;
/// A share of a fan's range: 0 is its lowest speed, 100 its highest.
using Percent = Quantity<struct PercentUnit, double>;

}  // namespace airflow::numbers
