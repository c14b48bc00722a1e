// Tokens of a JSON text that were not expected where they stand, or are none. Only errors come
// here.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace airflow::json {

struct TokenError {
    std::size_t offset = 0;  ///< of the first wrong byte, or the text's size
    std::string reason;
};

/// What is wrong with the token at `start`, if anything: a string, a number, a word or punctuation.
[[nodiscard]] std::optional<TokenError> errorInToken(std::string_view text, std::size_t start);

/// What the well-formed token at `start`, or the end of the text, is called.
[[nodiscard]] std::string nameOfToken(std::string_view text, std::size_t start);

/// Where the string starts that holds the byte at `offset` or ends before it, in a text without
/// errors before that string.
[[nodiscard]] std::size_t startOfString(std::string_view text, std::size_t offset);

/// Where the value starts that an error at `offset` is in or that is missing there.
[[nodiscard]] std::size_t startOfValue(std::string_view text, std::size_t offset);

}  // namespace airflow::json
