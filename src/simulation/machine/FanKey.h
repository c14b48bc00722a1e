// FanKey: which fan a key of the SMC belongs to.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>
#include <utility>

namespace airflow::simulation {

/// "F1Tg" is ("1", "Tg"); none for keys of no fan.
[[nodiscard]] constexpr std::optional<std::pair<std::size_t, std::string_view>> fanKey(
    std::string_view key) {
    if (key.size() != 4 || key[0] != 'F' || key[1] < '0' || key[1] > '9') return std::nullopt;
    return std::pair(static_cast<std::size_t>(key[1] - '0'), key.substr(2));
}

}  // namespace airflow::simulation
