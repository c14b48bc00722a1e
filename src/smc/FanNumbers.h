// FanNumbers: which fans the SMC can speak of, and what is believed of its count of them.
#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace airflow::smc {

/// A key of a fan is "F", one digit, and two characters: fans are numbered from 0 to 9.
inline constexpr std::int64_t mostFans = 10;

/// Whether keys of four characters can name this fan. A machine does not have any other.
[[nodiscard]] constexpr bool isNameable(std::int64_t fan) {
    return fan >= 0 && fan < mostFans;
}

/// The key that holds `property` (two characters, such as "Md") of a fan that can be named.
[[nodiscard]] inline std::string fanKey(std::int64_t fan, std::string_view property) {
    return "F" + std::to_string(fan) + std::string(property);
}

/// How many fans there are when "FNum" holds `number`: the number without its fraction, not below
/// 0 and not above mostFans, since whatever it counts beyond could be neither read nor written.
/// Nothing when it is not a number, which is as good as one that cannot be read.
[[nodiscard]] constexpr std::optional<std::int64_t> believableFanCount(double number) {
    const bool isNumber = number == number;
    if (!isNumber) return std::nullopt;
    return static_cast<std::int64_t>(std::clamp(number, 0.0, static_cast<double>(mostFans)));
}

}  // namespace airflow::smc
