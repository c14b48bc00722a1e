#include "json/Unicode.h"

namespace airflow::json {

namespace {

struct Range {
    unsigned char first = 0x80;
    unsigned char last = 0xBF;

    bool contains(char byte) const {
        const auto value = static_cast<unsigned char>(byte);
        return value >= first && value <= last;
    }
};

std::size_t lengthBehind(unsigned char lead) {
    if (lead < 0x80) return 1;
    if (lead < 0xC2) return 0;  // inside a character, or the start of a form that is too long
    if (lead < 0xE0) return 2;
    if (lead < 0xF0) return 3;
    return lead < 0xF5 ? 4 : 0;
}

/// What the second byte may be: here overlong forms, surrogates and what is beyond U+10FFFF differ.
Range secondBehind(unsigned char lead) {
    switch (lead) {
        case 0xE0: return {.first = 0xA0};
        case 0xED: return {.last = 0x9F};
        case 0xF0: return {.first = 0x90};
        case 0xF4: return {.last = 0x8F};
        default: return {};
    }
}

}  // namespace

Character firstCharacter(std::string_view text) {
    const auto lead = static_cast<unsigned char>(text.front());
    const std::size_t length = lengthBehind(lead);
    for (std::size_t at = 1; at < length; ++at) {
        const Range allowed = at == 1 ? secondBehind(lead) : Range{};
        if (at == text.size() || !allowed.contains(text[at])) return {.length = at};
    }
    return {.isWellFormed = length > 0, .length = length};
}

bool isUTF8(std::string_view text) {
    while (!text.empty()) {
        const Character character = firstCharacter(text);
        if (!character.isWellFormed) return false;
        text.remove_prefix(character.length);
    }
    return true;
}

}  // namespace airflow::json
