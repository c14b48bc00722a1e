#include "json/Token.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <utility>

#include "json/Number.h"
#include "json/Unicode.h"

namespace airflow::json {

namespace {

constexpr std::string_view punctuation = "{}[]:,";
constexpr std::array<std::string_view, 3> words = {"true", "false", "null"};

/// What the parts of a string have in common: the length of a part, or its error.
struct Part {
    std::size_t length = 0;
    std::optional<TokenError> error;
};

bool isDigitOrMinus(char character) {
    return character == '-' || (character >= '0' && character <= '9');
}

std::string_view wordWith(char first) {
    const auto* const word = std::ranges::find(words, first, &std::string_view::front);
    return word == words.end() ? std::string_view() : *word;
}

TokenError unescapedControl(std::size_t at, unsigned char control) {
    static constexpr std::array<std::string_view, 32> names = {
        "NUL", "SOH", "STX", "ETX", "EOT", "ENQ", "ACK", "BEL", "BS",  "HT",  "LF",
        "VT",  "FF",  "CR",  "SO",  "SI",  "DLE", "DC1", "DC2", "DC3", "DC4", "NAK",
        "SYN", "ETB", "CAN", "EM",  "SUB", "ESC", "FS",  "GS",  "RS",  "US"};
    static constexpr std::string_view letters = "btn-fr";  // from U+0008 on; U+000B has none
    std::string reason = fmt::format(
        "invalid string: control character U+{0:04X} ({1}) must be escaped to \\u{0:04X}", control,
        names[control]);
    if (control >= '\b' && control <= '\r' && control != '\v') {
        reason.append(" or \\").append(1, letters[control - std::size_t{'\b'}]);
    }
    return {.offset = at, .reason = std::move(reason)};
}

/// A \u at `at` and its four digits; `unit` becomes what they stand for.
Part hexEscape(std::string_view text, std::size_t at, unsigned& unit) {
    constexpr std::string_view digits = "0123456789abcdef0123456789ABCDEF";
    unit = 0;
    for (std::size_t digit = at + 2; digit < at + 6; ++digit) {
        const auto value = digit < text.size() ? digits.find(text[digit]) : std::string_view::npos;
        if (value == std::string_view::npos) {
            return {.length = 0,
                    .error = TokenError{digit,
                                        "invalid string: '\\u' must be followed by 4 hex digits"}};
        }
        unit = unit * 16 + static_cast<unsigned>(value % 16);
    }
    return {.length = 6, .error = {}};
}

/// The escaped low surrogate that has to stand at `at`.
Part lowSurrogate(std::string_view text, std::size_t at) {
    const auto refused = [](std::size_t offset) {
        constexpr std::string_view reason =
            "invalid string: surrogate U+D800..U+DBFF must be followed by U+DC00..U+DFFF";
        return Part{.length = 0, .error = TokenError{offset, std::string(reason)}};
    };
    if (!text.substr(at).starts_with('\\')) return refused(at);
    if (!text.substr(at + 1).starts_with('u')) return refused(at + 1);
    unsigned unit = 0;
    Part low = hexEscape(text, at, unit);
    if (low.error || (unit >= 0xDC00 && unit <= 0xDFFF)) return low;
    return refused(at + 5);
}

Part escape(std::string_view text, std::size_t at) {
    constexpr std::string_view allowed = "\"\\/bfnrtu";
    if (at + 1 == text.size() || !allowed.contains(text[at + 1])) {
        return {.length = 0,
                .error = TokenError{at + 1, "invalid string: forbidden character after backslash"}};
    }
    if (text[at + 1] != 'u') return {.length = 2, .error = {}};
    unsigned unit = 0;
    Part first = hexEscape(text, at, unit);
    if (first.error || unit < 0xD800 || unit > 0xDFFF) return first;
    if (unit >= 0xDC00) {
        constexpr std::string_view reason =
            "invalid string: surrogate U+DC00..U+DFFF must follow U+D800..U+DBFF";
        return {.length = 0, .error = TokenError{at + 5, std::string(reason)}};
    }
    Part second = lowSurrogate(text, at + first.length);
    second.length += first.length;
    return second;
}

Part unescaped(std::string_view text, std::size_t at) {
    const auto byte = static_cast<unsigned char>(text[at]);
    if (byte < 0x20) return {.length = 0, .error = unescapedControl(at, byte)};
    const Character character = firstCharacter(text.substr(at));
    if (character.isWellFormed) return {.length = character.length, .error = {}};
    return {.length = 0,
            .error = TokenError{at + character.length, "invalid string: ill-formed UTF-8 byte"}};
}

std::optional<TokenError> errorInString(std::string_view text, std::size_t start) {
    for (std::size_t at = start + 1; at < text.size();) {
        if (text[at] == '"') return std::nullopt;
        Part part = text[at] == '\\' ? escape(text, at) : unescaped(text, at);
        if (part.error) return std::move(part.error);
        at += part.length;
    }
    return TokenError{text.size(), "invalid string: missing closing quote"};
}

std::optional<TokenError> errorInNumber(std::string_view text, std::size_t start) {
    const WrittenNumber number = firstNumber(text.substr(start));
    if (number.reason.empty()) return std::nullopt;
    return TokenError{start + number.length, std::string(number.reason)};
}

std::optional<TokenError> errorInWord(std::string_view text, std::size_t start) {
    const std::string_view word = wordWith(text[start]);
    const std::string_view found = text.substr(start);
    const auto common = std::ranges::mismatch(word, found).in1 - word.begin();
    const auto length = static_cast<std::size_t>(common);
    if (length > 0 && length == word.size()) return std::nullopt;
    return TokenError{start + length, "invalid literal"};
}

}  // namespace

std::optional<TokenError> errorInToken(std::string_view text, std::size_t start) {
    if (start == text.size() || punctuation.contains(text[start])) return std::nullopt;
    if (text[start] == '"') return errorInString(text, start);
    if (isDigitOrMinus(text[start])) return errorInNumber(text, start);
    return errorInWord(text, start);
}

std::string nameOfToken(std::string_view text, std::size_t start) {
    if (start == text.size()) return "end of input";
    const char first = text[start];
    if (punctuation.contains(first)) return fmt::format("'{}'", first);
    if (first == '"') return "string literal";
    if (isDigitOrMinus(first)) return "number literal";
    return fmt::format("{} literal", wordWith(first));
}

std::size_t startOfString(std::string_view text, std::size_t offset) {
    std::size_t start = 0;
    bool quoted = false;
    for (std::size_t at = 0; at < offset; ++at) {
        if (text[at] == '\\') {
            ++at;  // what is escaped ends no string
        } else if (text[at] == '"') {
            if (!quoted) start = at;
            quoted = !quoted;
        }
    }
    return start;
}

std::size_t startOfValue(std::string_view text, std::size_t offset) {
    return text.substr(0, offset).find_last_of(" \t\r\n[{:,") + 1;  // npos + 1 is 0
}

}  // namespace airflow::json
