#include "tool/Text.h"

#include <fmt/format.h>

namespace airflow::tool {

namespace {

bool startsCodePoint(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80;
}

/// C0 controls and DEL, and the C1 controls, whose UTF-8 form is C2 80 to C2 9F.
bool isControl(std::string_view text, std::size_t at) {
    const auto byte = static_cast<unsigned char>(text[at]);
    if (byte < 0x20 || byte == 0x7F) return true;
    if (byte != 0xC2 || at + 1 == text.size()) return false;
    const auto next = static_cast<unsigned char>(text[at + 1]);
    return next >= 0x80 && next < 0xA0;
}

}  // namespace

std::string plain(double number) {
    return fmt::format("{}", number);
}

std::string printable(std::string_view text) {
    std::string result;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (!isControl(text, at)) {
            result += text[at];
            continue;
        }
        result += "\xEF\xBF\xBD";
        if (text[at] == '\xC2') ++at;
    }
    return result;
}

std::string padded(std::string_view text, std::size_t columns) {
    std::size_t count = 0;
    std::size_t cut = text.size();  // where the last column begins
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (!startsCodePoint(text[at])) continue;
        if (++count == columns) cut = at;
    }
    if (count > columns) return std::string(text.substr(0, cut)) + "…";
    return std::string(text) + std::string(columns - count, ' ');
}

}  // namespace airflow::tool
