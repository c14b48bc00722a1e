// ScenarioDecoding: what the parts of a scenario have in common when they are read.
#pragma once

#include <fmt/format.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

#include "concurrency/Clock.h"
#include "json/Decoder.h"
#include "simulation/machine/MachineDescription.h"

namespace airflow::simulation::decoding {

using concurrency::Duration;
using json::Decoder;

inline constexpr double longestSeconds = 1e8;  // three years: any more is a slip of the pen

inline Duration seconds(const Decoder& decoder) {
    const double value = decoder.number();
    if (!(value >= 0 && value <= longestSeconds)) {
        decoder.fail(fmt::format("Expected seconds from 0 to {}.", longestSeconds));
        return {};
    }
    return Duration(std::llround(value * 1e9));
}

inline Duration requiredSeconds(const Decoder& decoder, std::string_view key) {
    Duration result{};
    decoder.member(key, [&result](const Decoder& member) { result = seconds(member); });
    return result;
}

/// Calls `visit` when the key is there and not null.
template <typename Visit>
void ifPresent(const Decoder& decoder, std::string_view key, Visit visit) {
    decoder.forEachMember([&](std::string_view name, const Decoder& member) {
        if (name == key && !member.isNull()) visit(member);
    });
}

inline Duration optionalSeconds(const Decoder& decoder, std::string_view key, Duration otherwise) {
    ifPresent(decoder, key, [&otherwise](const Decoder& member) { otherwise = seconds(member); });
    return otherwise;
}

template <typename T>
T bounded(const Decoder& decoder, std::int64_t low, std::int64_t high) {
    const std::int64_t value = decoder.integer();
    if (value < low || value > high) {
        decoder.fail(fmt::format("Expected a whole number from {} to {}.", low, high));
    }
    return static_cast<T>(value);
}

/// A number, or "nan", "inf" or "-inf", which JSON has no numbers for.
inline double anyNumber(const Decoder& decoder) {
    if (decoder.kind() != json::Document::Kind::text) return decoder.number();
    const std::string name = decoder.text();
    if (name == "nan") return std::numeric_limits<double>::quiet_NaN();
    if (name == "inf") return std::numeric_limits<double>::infinity();
    if (name != "-inf") decoder.fail("Expected a number, \"nan\", \"inf\" or \"-inf\".");
    return -std::numeric_limits<double>::infinity();
}

inline std::string fourCharacters(const Decoder& decoder) {
    std::string text = decoder.text();
    if (text.size() != 4) decoder.fail("Expected four characters.");
    return text;
}

/// Temperatures by name, in the text's order.
inline Temperatures decodeTemperatures(const Decoder& decoder) {
    Temperatures temperatures;
    decoder.forEachMember([&temperatures](std::string_view name, const Decoder& value) {
        temperatures.emplace_back(name, value.number());
    });
    return temperatures;
}

}  // namespace airflow::simulation::decoding
