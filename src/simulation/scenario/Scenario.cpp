#include "simulation/scenario/Scenario.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "json/Writer.h"
#include "simulation/machine/Decoding.h"
#include "simulation/scenario/ScenarioEvents.h"

namespace airflow::simulation {

using namespace decoding;

namespace {

constexpr double longestSilence = 30;  // seconds after the last event of a scenario

template <typename T>
void sortByTime(std::vector<T>& changes) {
    // Stable, and the same everywhere: what an unstable sort does is the library's choice.
    for (std::size_t i = 1; i < changes.size(); ++i) {
        for (std::size_t j = i; j > 0 && changes[j].at < changes[j - 1].at; --j) {
            std::swap(changes[j], changes[j - 1]);
        }
    }
}

bool isKnown(const Temperatures& known, std::string_view name) {
    return std::ranges::find(known, name, &Temperatures::value_type::first) != known.end();
}

/// Of sensors that the machine has. One that is made without any may get some of any name.
TemperatureChange::Values decodeValues(const Decoder& decoder, const MachineDescription& machine) {
    TemperatureChange::Values values;
    if (!machine.hasHIDSymbols) decoder.fail("This machine has no HID functions.");
    decoder.forEachMember([&](std::string_view name, const Decoder& value) {
        if (machine.hid && !machine.hid->empty() && !isKnown(*machine.hid, name)) {
            value.fail("This machine has no HID sensor of this name.");
        }
        values.emplace_back(name, value.isNull() ? std::nullopt : std::optional(anyNumber(value)));
    });
    return values;
}

/// Temperatures of keys that the machine has: changing any other would change nothing.
Temperatures decodeKnownKeys(const Decoder& decoder, const Temperatures& known) {
    decoder.forEachMember([&known](std::string_view name, const Decoder& member) {
        if (!isKnown(known, name)) member.fail("This machine has no such temperature key.");
    });
    return decodeTemperatures(decoder);
}

TemperatureChange decodeChange(const Decoder& decoder, const MachineDescription& machine) {
    decoder.onlyKeys({"at", "hid", "smc"});
    TemperatureChange change{.at = requiredSeconds(decoder, "at")};
    decoder.forEachMember([&](std::string_view name, const Decoder& member) {
        if (name == "hid" && member.isNull())
            change.hidesHID = true;
        else if (name == "hid")
            change.hid = decodeValues(member, machine);
        if (name == "smc") change.smc = decodeKnownKeys(member, machine.smc);
    });
    return change;
}

Thermal decodeThermal(const Decoder& decoder) {
    decoder.onlyKeys({"load", "ambient"});
    Thermal thermal;
    thermal.ambient = decoder.optional<double>("ambient").value_or(thermal.ambient);
    decoder.member("load", [&thermal](const Decoder& load) {
        load.forEachElement([&thermal](const Decoder& step) {
            step.onlyKeys({"at", "watts"});
            const Duration at = requiredSeconds(step, "at");
            if (!thermal.load.empty() && at < thermal.load.back().first) {
                step.fail("Loads are listed in order of time.");
            }
            thermal.load.emplace_back(at, step.required<double>("watts"));
        });
    });
    return thermal;
}

bool hasWritableKey(const MachineDescription& machine, const std::string& key) {
    for (std::size_t i = 0; i < machine.fans.size(); ++i) {
        if (machine.fans[i].modeKey == key || fmt::format("F{}Tg", i) == key) return true;
    }
    return key == "Ftst";
}

FirmwareChange decodeFirmwareChange(const Decoder& decoder, const MachineDescription& machine) {
    decoder.onlyKeys({"at", "key", "value"});
    FirmwareChange change{.at = requiredSeconds(decoder, "at")};
    decoder.member("key", [&](const Decoder& key) {
        change.key = fourCharacters(key);
        if (!hasWritableKey(machine, change.key)) {
            key.fail("This machine has no such key that can be written.");
        }
    });
    change.value = decoder.required<double>("value");
    return change;
}

template <typename T, typename Decode>
void decodeList(const Decoder& decoder, std::string_view key, std::vector<T>& list,
                Decode decodeElement) {
    ifPresent(decoder, key, [&](const Decoder& member) {
        member.forEachElement(
            [&](const Decoder& element) { list.push_back(decodeElement(element)); });
    });
}

/// A list of changes, which are made one after the other.
template <typename Change, typename Decode>
void decodeChanges(const Decoder& decoder, std::string_view key, std::vector<Change>& list,
                   Decode decodeElement) {
    ifPresent(decoder, key, [&](const Decoder& member) {
        member.forEachElement([&](const Decoder& element) {
            Change change = decodeElement(element);
            if (!list.empty() && change.at < list.back().at) {
                element.fail("Changes are listed in order of time.");
            }
            list.push_back(std::move(change));
        });
    });
}

}  // namespace

Scenario Scenario::decode(const Decoder& decoder) {
    decoder.onlyKeys({"machine", "temperatures", "thermal", "faults", "hidHangs", "firmware",
                      "events", "jitter", "euid", "duration", "restartAfter"});
    Scenario scenario;
    decoder.member("machine", [&](const Decoder& machine) {
        scenario.machine = MachineDescription::decode(machine);
    });
    ifPresent(decoder, "thermal",
              [&](const Decoder& thermal) { scenario.thermal = decodeThermal(thermal); });
    ifPresent(decoder, "temperatures", [&scenario](const Decoder& temperatures) {
        if (scenario.thermal) temperatures.fail("With \"thermal\", temperatures follow the load.");
    });
    decodeChanges(decoder, "temperatures", scenario.temperatures,
                  [&](const Decoder& change) { return decodeChange(change, scenario.machine); });
    decodeList(decoder, "faults", scenario.faults, Fault::decode);
    decodeList(decoder, "hidHangs", scenario.hidHangs, [&](const Decoder& hang) {
        if (!scenario.machine.hasHIDSymbols) hang.fail("This machine has no HID functions.");
        return HIDHang::decode(hang);
    });
    decodeChanges(decoder, "firmware", scenario.firmware, [&](const Decoder& change) {
        return decodeFirmwareChange(change, scenario.machine);
    });
    ifPresent(decoder, "events", [&](const Decoder& events) {
        events.forEachElement([&](const Decoder& event) { decodeEvent(event, scenario); });
    });
    scenario.jitter = decoder.optional<double>("jitter").value_or(scenario.jitter);
    ifPresent(decoder, "euid", [&](const Decoder& euid) {
        scenario.effectiveUserID = bounded<std::uint32_t>(euid, 0, UINT32_MAX);
    });
    ifPresent(decoder, "duration",
              [&](const Decoder& duration) { scenario.duration = seconds(duration); });
    ifPresent(decoder, "restartAfter",
              [&](const Decoder& delay) { scenario.restartAfter = seconds(delay); });
    return scenario;
}

std::expected<Scenario, json::DecodingError> Scenario::parse(std::string_view text,
                                                             const ReadFile& readFile) {
    auto scenario = json::decode<Scenario>(text);
    if (!scenario) return scenario;
    for (const auto& [index, name] : std::exchange(scenario->planFiles, {})) {
        const auto at = [place = fmt::format("events[{}].plan", index)](std::string why) {
            return json::DecodingError{
                .codingPath = place, .description = std::move(why), .position = {}};
        };
        const auto file = readFile(name);
        if (!file) return std::unexpected(at(fmt::format("{}: {}", name, file.error())));
        auto plan = json::decode<plan::FanControlPlan>(*file);
        if (!plan) return std::unexpected(at(plan.error().describe(name)));
        std::get<Call>(scenario->events[index]).plan = std::move(*plan);
    }
    return scenario;
}

std::string planDocument(const Call& call) {
    if (call.document) return *call.document;
    json::Writer writer;
    writer.write(call.plan);
    return writer.take().value_or("");  // numbers that have no JSON form make no plan
}

void Scenario::sortChanges() {
    sortByTime(temperatures);
    sortByTime(firmware);
}

Duration Scenario::length() const {
    if (duration) return *duration;
    Duration last{};
    const auto reaches = [&last](Duration moment) { last = std::max(last, moment); };
    for (const TemperatureChange& change : temperatures) reaches(change.at);
    for (const FirmwareChange& change : firmware) reaches(change.at);
    if (thermal && !thermal->load.empty()) reaches(thermal->load.back().first);
    const auto reachesEndOf = [&reaches](const auto& trouble) {
        reaches(trouble.until == Duration::max() ? trouble.from : trouble.until);
    };
    std::ranges::for_each(faults, reachesEndOf);
    std::ranges::for_each(hidHangs, reachesEndOf);
    for (const Event& event : events) {
        std::visit([&](const auto& each) { reaches(each.at); }, event);
        if (const auto* beats = std::get_if<Heartbeats>(&event)) reaches(beats->until);
    }
    return last + Duration(std::llround(longestSilence * 1e9));
}

}  // namespace airflow::simulation
