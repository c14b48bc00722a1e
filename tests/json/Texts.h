// Texts for tests of the JSON module, and how its errors are shown.
#pragma once

#include <cstddef>
#include <ostream>
#include <string>
#include <string_view>

#include "json/DecodingError.h"

namespace airflow::json {

inline void PrintTo(const DecodingError& error, std::ostream* stream) {
    *stream << error.describe("\"" + error.codingPath + "\"");
}

inline void PrintTo(const EncodingError& error, std::ostream* stream) {
    *stream << '"' << error.codingPath << "\": " << error.description;
}

}  // namespace airflow::json

namespace airflow::json::tests {

inline std::string repeat(std::string_view text, std::size_t count) {
    std::string result;
    for (std::size_t i = 0; i < count; ++i) result += text;
    return result;
}

/// Whether `text` is well-formed UTF-8: shortest forms only, no surrogates, up to U+10FFFF.
inline bool isUTF8(std::string_view text) {
    std::size_t at = 0;
    while (at < text.size()) {
        const auto lead = static_cast<unsigned char>(text[at++]);
        if (lead < 0x80) continue;
        const std::size_t more = lead < 0xC2   ? 0
                                 : lead < 0xE0 ? 1
                                 : lead < 0xF0 ? 2
                                 : lead < 0xF5 ? 3
                                               : 0;
        if (more == 0 || at + more > text.size()) return false;
        const auto second = static_cast<unsigned char>(text[at]);
        if (lead == 0xE0 && second < 0xA0) return false;
        if (lead == 0xED && second > 0x9F) return false;
        if (lead == 0xF0 && second < 0x90) return false;
        if (lead == 0xF4 && second > 0x8F) return false;
        for (std::size_t i = 0; i < more; ++i, ++at) {
            if ((static_cast<unsigned char>(text[at]) & 0xC0) != 0x80) return false;
        }
    }
    return true;
}

}  // namespace airflow::json::tests
