// UUID: the identity of curve points, rules and presets.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "json/Decoder.h"
#include "json/Writer.h"

namespace airflow::plan {

struct UUID {
    std::array<std::uint8_t, 16> bytes{};

    auto operator<=>(const UUID&) const = default;

    /// Reads the 36-character hyphenated form, in upper or lower case. Nothing for any other text.
    [[nodiscard]] static std::optional<UUID> parse(std::string_view text);
    /// The 36-character form in upper case.
    [[nodiscard]] std::string text() const;

    static UUID decode(const json::Decoder& decoder);
    void encode(json::Writer& writer) const;
};

}  // namespace airflow::plan
