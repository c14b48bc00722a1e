// Four-character codes: how the SMC names its keys and its data types.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace airflow::smc {

/// Stops the process, naming `text` and what was expected of it.
[[noreturn]] void refuseFourCharCode(std::string_view text);

/// Packs `text`, its first byte the most significant. Any four bytes will do; any other length is
/// a bug and stops the process.
[[nodiscard]] constexpr std::uint32_t fourCharCode(std::string_view text) {
    if (text.size() != 4) refuseFourCharCode(text);
    std::uint32_t code = 0;
    for (const char character : text) code = code << 8 | static_cast<std::uint8_t>(character);
    return code;
}

/// The four characters of `code`, or "????" unless all of them are ASCII.
[[nodiscard]] std::string toString(std::uint32_t code);

}  // namespace airflow::smc
