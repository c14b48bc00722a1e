#include "json/Writer.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iterator>

#include "json/Unicode.h"
#include "numbers/Int64.h"

namespace airflow::json {

namespace {

/// Printable ASCII without the characters that JSON escapes: the text of nearly every key and name.
bool needsNoEscape(std::string_view text) {
    return std::ranges::all_of(text, [](char character) {
        return character >= ' ' && character <= '~' && character != '"' && character != '\\';
    });
}

void appendEscaped(std::string& text, char character) {
    switch (character) {
        case '"': text += "\\\""; return;
        case '\\': text += "\\\\"; return;
        case '\b': text += "\\b"; return;
        case '\f': text += "\\f"; return;
        case '\n': text += "\\n"; return;
        case '\r': text += "\\r"; return;
        case '\t': text += "\\t"; return;
        default: break;
    }
    const auto byte = static_cast<unsigned char>(character);
    if (byte < ' ') {
        fmt::format_to(std::back_inserter(text), "\\u{:04x}", byte);
    } else {
        text += character;
    }
}

}  // namespace

void Writer::write(double number) {
    if (!std::isfinite(number)) {
        fail("A number that is not finite has no JSON form.");
        return;
    }
    if (std::trunc(number) == number && numbers::fitsInt64(std::abs(number))) {
        if (std::signbit(number) && number == 0) text += '-';
        write(static_cast<std::int64_t>(number));
        return;
    }
    fmt::format_to(std::back_inserter(text), "{}", number);  // the shortest that reads back
}

void Writer::write(std::int64_t number) {
    char digits[20];  // a sign and 19 digits
    const auto end = std::to_chars(std::begin(digits), std::end(digits), number).ptr;
    text.append(std::begin(digits), end);
}

void Writer::write(bool boolean) {
    text += boolean ? "true" : "false";
}

void Writer::write(std::string_view value) {
    if (needsNoEscape(value)) {
        text.append("\"").append(value).append("\"");
        return;
    }
    if (!isUTF8(value)) {
        fail("A text that is not UTF-8 has no JSON form.");
        return;
    }
    text += '"';
    for (const char character : value) appendEscaped(text, character);
    text += '"';
}

void Writer::emptyCase(std::string_view name) {
    object([&] { objectMember(name, [] {}); });
}

std::expected<std::string, EncodingError> Writer::take() {
    std::expected<std::string, EncodingError> result = std::move(text);
    if (error) result = std::unexpected(std::move(*error));
    clear();
    return result;
}

std::expected<std::string_view, EncodingError> Writer::view() const {
    if (error) return std::unexpected(*error);
    return text;
}

void Writer::clear() {
    text.clear();
    error.reset();
}

void Writer::key(std::string_view name) {
    separate();
    levels.back().key = name;
    write(name);
    text += ':';
}

void Writer::separate() {
    if (levels.back().count++ > 0) text += ',';
}

void Writer::fail(std::string description) {
    if (error) return;
    std::string path;
    for (const Level& level : levels) {
        if (level.isArray) {
            path += fmt::format("[{}]", level.count - 1);
        } else {
            if (!path.empty()) path += '.';
            path.append(level.key);
        }
    }
    error = EncodingError{.codingPath = std::move(path), .description = std::move(description)};
}

}  // namespace airflow::json
