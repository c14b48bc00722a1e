#include "plan/UUID.h"

#include <cstddef>

namespace airflow::plan {

namespace {

constexpr std::size_t textLength = 36;

constexpr bool isHyphenPosition(std::size_t position) {
    return position == 8 || position == 13 || position == 18 || position == 23;
}

std::optional<std::uint8_t> hexDigit(char character) {
    if (character >= '0' && character <= '9') return static_cast<std::uint8_t>(character - '0');
    if (character >= 'a' && character <= 'f') {
        return static_cast<std::uint8_t>(character - 'a' + 10);
    }
    if (character >= 'A' && character <= 'F') {
        return static_cast<std::uint8_t>(character - 'A' + 10);
    }
    return std::nullopt;
}

}  // namespace

std::optional<UUID> UUID::parse(std::string_view text) {
    if (text.size() != textLength) return std::nullopt;
    UUID uuid;
    std::size_t digits = 0;
    for (std::size_t position = 0; position < textLength; ++position) {
        if (isHyphenPosition(position)) {
            if (text[position] != '-') return std::nullopt;
            continue;
        }
        const auto digit = hexDigit(text[position]);
        if (!digit) return std::nullopt;
        auto& byte = uuid.bytes[digits++ / 2];
        byte = static_cast<std::uint8_t>(byte << 4 | *digit);
    }
    return uuid;
}

std::string UUID::text() const {
    constexpr std::string_view hex = "0123456789ABCDEF";
    std::string result;
    result.reserve(textLength);
    for (const std::uint8_t byte : bytes) {
        if (isHyphenPosition(result.size())) result += '-';
        result += hex[byte >> 4];
        result += hex[byte & 0xF];
    }
    return result;
}

UUID UUID::decode(const json::Decoder& decoder) {
    const auto uuid = parse(decoder.text());
    if (!uuid) decoder.fail("Expected a UUID of 36 characters.");
    return uuid.value_or(UUID{});
}

void UUID::encode(json::Writer& writer) const {
    writer.write(text());
}

}  // namespace airflow::plan
