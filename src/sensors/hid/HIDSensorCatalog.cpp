#include "sensors/hid/HIDSensorCatalog.h"

#include <algorithm>
#include <array>
#include <optional>
#include <set>
#include <utility>

#include "sensors/PlausibleTemperature.h"

namespace airflow::sensors {

namespace {

/// Lowers ASCII letters only. Every text that is looked for is ASCII, and no other character
/// becomes one of its letters in lower case, so nothing is missed.
std::string lowered(std::string_view text) {
    std::string result(text);
    for (char& character : result) {
        if (character >= 'A' && character <= 'Z') character = static_cast<char>(character + 32);
    }
    return result;
}

void removeAll(std::string& text, std::string_view part) {
    std::string lower = lowered(text);
    std::size_t position = 0;
    while ((position = lower.find(part, position)) != std::string::npos) {
        lower.erase(position, part.size());
        text.erase(position, part.size());
    }
}

/// The characters with the Unicode property White_Space, as UTF-8.
constexpr std::array<std::string_view, 25> whiteSpace{
    " ",      "\t",     "\n",     "\v",     "\f",     "\r",     "\u0085", "\u00A0", "\u1680",
    "\u2000", "\u2001", "\u2002", "\u2003", "\u2004", "\u2005", "\u2006", "\u2007", "\u2008",
    "\u2009", "\u200A", "\u2028", "\u2029", "\u202F", "\u205F", "\u3000"};

std::string_view trimmed(std::string_view text) {
    const auto spaceInFront = [&text] {
        return std::ranges::find_if(whiteSpace,
                                    [&](auto space) { return text.starts_with(space); });
    };
    const auto spaceBehind = [&text] {
        return std::ranges::find_if(whiteSpace, [&](auto space) { return text.ends_with(space); });
    };
    for (auto space = spaceInFront(); space != whiteSpace.end(); space = spaceInFront()) {
        text.remove_prefix(space->size());
    }
    for (auto space = spaceBehind(); space != whiteSpace.end(); space = spaceBehind()) {
        text.remove_suffix(space->size());
    }
    return text;
}

bool legitimatelySteady(const std::string& lower) {
    return lower.contains("battery") || lower.contains("nand") || lower.contains("ssd");
}

/// Nothing for a SoC die channel, which is not shown by itself.
std::optional<std::pair<std::string, SensorCategory>> nameOf(const std::string& label,
                                                             const std::string& lower) {
    using enum SensorCategory;
    using HIDSensorCatalog::cleaned;
    if (lower.contains("battery")) return std::pair("Battery", battery);
    if (lower.contains("nand") || lower.contains("ssd")) return std::pair("SSD", ssd);
    if (lower.contains("gpu")) return std::pair(cleaned(label, "GPU"), gpu);
    if (lower.contains("cpu")) return std::pair(cleaned(label, "CPU"), cpu);
    return std::nullopt;
}

}  // namespace

std::string HIDSensorCatalog::cleaned(std::string_view label, std::string_view category) {
    std::string text(label);
    removeAll(text, "temp");
    removeAll(text, "pmu");
    std::string name(category);
    const std::string_view rest = trimmed(text);
    if (!rest.empty()) name.append(" (").append(rest).append(")");
    return name;
}

std::vector<TempSensor> HIDSensorCatalog::curate(const std::vector<RawReading>& readings) {
    std::vector<TempSensor> result;
    std::set<std::string_view> accepted;
    std::optional<double> hottestDie;
    for (const RawReading& reading : readings) {
        const std::string lower = lowered(reading.label);
        const double celsius = reading.celsius();
        if (lower.contains("tcal") || accepted.contains(reading.label)) continue;
        if (reading.isConstant() && !legitimatelySteady(lower)) continue;
        if (!isPlausibleTemperature(celsius)) continue;
        accepted.insert(reading.label);
        if (auto name = nameOf(reading.label, lower)) {
            result.push_back({.key = reading.label,
                              .name = std::move(name->first),
                              .celsius = celsius,
                              .category = name->second,
                              .source = SensorSource::hid});
        } else {
            hottestDie = std::max(hottestDie.value_or(celsius), celsius);
        }
    }
    if (hottestDie) {
        result.push_back({.key = "SoC",
                          .name = "CPU",
                          .celsius = *hottestDie,
                          .category = SensorCategory::cpu,
                          .source = SensorSource::hid});
    }
    return result;
}

}  // namespace airflow::sensors
