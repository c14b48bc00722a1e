// Numbers as a JSON text writes them.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace airflow::json {

struct WrittenNumber {
    std::size_t length = 0;   ///< in bytes; of a malformed one, those before the wrong byte
    bool isInteger = true;    ///< no fraction and no exponent
    std::string_view reason;  ///< why it is malformed; empty if it is not
};

/// The number that `text` starts with; malformed where neither a digit nor a minus sign stands.
[[nodiscard]] WrittenNumber firstNumber(std::string_view text);

/// The double nearest to a well-formed number, in whatever locale the process is; an infinity if
/// the number is too large.
[[nodiscard]] double nearestDouble(const std::string& number);

}  // namespace airflow::json
