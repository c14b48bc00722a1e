// UTF-8: shortest forms only, no surrogates, up to U+10FFFF.
#pragma once

#include <cstddef>
#include <string_view>

namespace airflow::json {

struct Character {
    bool isWellFormed = false;
    std::size_t length = 0;  ///< in bytes; of an ill-formed one, those before the wrong byte
};

/// The character that `text` starts with. Requires one.
[[nodiscard]] Character firstCharacter(std::string_view text);

[[nodiscard]] bool isUTF8(std::string_view text);

}  // namespace airflow::json
