#include "smc/FourCharCode.h"

#include <fmt/format.h>

#include "concurrency/Require.h"

namespace airflow::smc {

void refuseFourCharCode(std::string_view text) {
    concurrency::stopProcess(fmt::format(
        "a four-character code must be four bytes long, \"{}\" is {}", text, text.size()));
}

std::string toString(std::uint32_t code) {
    constexpr std::uint32_t highBits = 0x80808080;
    if ((code & highBits) != 0) return "????";
    return {static_cast<char>(code >> 24), static_cast<char>(code >> 16 & 0xFF),
            static_cast<char>(code >> 8 & 0xFF), static_cast<char>(code & 0xFF)};
}

}  // namespace airflow::smc
