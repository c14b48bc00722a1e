#include "text/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace airflow::text {

namespace {

bool startsCodePoint(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80;
}

/// How many bytes the control character has that stands at the beginning of `text`; 0 for anything
/// else. Controls are C0, DEL, C1 (C2 80 to C2 9F in UTF-8), the line and paragraph separators, and
/// the marks that turn the direction of writing (D8 9C, E2 80 8E to 8F and A8 to AE, E2 81 A6 to
/// A9).
std::size_t controlLength(std::string_view text) {
    const auto byte = [text](std::size_t at) {
        return at < text.size() ? static_cast<unsigned char>(text[at]) : 0U;
    };
    const auto isWithin = [](unsigned value, unsigned low, unsigned high) {
        return value >= low && value <= high;
    };
    if (byte(0) < 0x20 || byte(0) == 0x7F) return 1;
    if (byte(0) == 0xC2 && isWithin(byte(1), 0x80, 0x9F)) return 2;
    if (byte(0) == 0xD8 && byte(1) == 0x9C) return 2;
    if (byte(0) != 0xE2) return 0;
    const bool turns =
        (byte(1) == 0x80 && (isWithin(byte(2), 0x8E, 0x8F) || isWithin(byte(2), 0xA8, 0xAE))) ||
        (byte(1) == 0x81 && isWithin(byte(2), 0xA6, 0xA9));
    return turns ? 3 : 0;
}

}  // namespace

std::string plain(double number) {
    return fmt::format("{}", number);
}

std::string counted(std::uint64_t count, std::string_view noun) {
    return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

std::string roundedRPM(double rpm) {
    const bool isUsual = std::abs(rpm) < 1e5;
    return isUsual ? fmt::format("{:.0f} RPM", rpm) : fmt::format("{:.0e} RPM", rpm);
}

std::string fanModeText(std::int64_t mode) {
    const auto word = [mode] {
        switch (mode) {
            case 0: return "automatic";
            case 1: return "forced";
            case 3: return "taken back";
            default: return "unknown";
        }
    };
    return fmt::format("{} ({})", word(), mode);
}

std::string printable(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const std::size_t length = controlLength(text);
        if (length == 0)
            result += text.front();
        else
            result += "\xEF\xBF\xBD";
        text.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return result;
}

std::size_t columnsOf(std::string_view text) {
    return static_cast<std::size_t>(std::ranges::count_if(text, startsCodePoint));
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

}  // namespace airflow::text
