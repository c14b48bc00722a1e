#include "simulation/Scenario.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>

#include "json/Writer.h"
#include "simulation/ScenarioDecoding.h"

namespace airflow::simulation {

using namespace decoding;

namespace {

constexpr double longestSilence = 30;  // seconds after the last event of a scenario

TemperatureChange::Values decodeValues(const Decoder& decoder) {
    TemperatureChange::Values values;
    decoder.forEachMember([&values](std::string_view name, const Decoder& value) {
        values.emplace_back(name, value.isNull() ? std::nullopt : std::optional(anyNumber(value)));
    });
    return values;
}

/// Temperatures of keys that the machine has: changing any other would change nothing.
Temperatures decodeKnownKeys(const Decoder& decoder, const Temperatures& known) {
    decoder.forEachMember([&known](std::string_view name, const Decoder& member) {
        if (std::ranges::find(known, name, &Temperatures::value_type::first) == known.end()) {
            member.fail("This machine has no such temperature key.");
        }
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
            change.hid = decodeValues(member);
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

Call::Method decodeMethod(const Decoder& decoder) {
    const auto method = daemon::helperMethodNamed(decoder.text());
    if (method) return *method;
    decoder.fail("There is no command of this name.");
    return {};
}

}  // namespace

std::string planDocument(const Call& call) {
    if (call.document) return *call.document;
    json::Writer writer;
    writer.write(call.plan);
    return writer.take().value_or("");  // numbers that have no JSON form make no plan
}

namespace {

std::string clientOf(const Decoder& decoder) {
    return decoder.optional<std::string>("client").value_or(onlyClient);
}

/// Returns the name of the file that the plan is in, if it is in one.
std::string decodePlan(const Decoder& decoder, plan::FanControlPlan& plan) {
    std::string file;
    decoder.member("plan", [&](const Decoder& member) {
        const bool isFile = member.kind() == json::Document::Kind::text;
        if (isFile)
            file = member.text();
        else
            plan = member.value<plan::FanControlPlan>();
    });
    return file;
}

ProcessEvent::Kind decodeSignal(const Decoder& decoder) {
    const std::string name = decoder.text();
    if (name == "SIGTERM") return ProcessEvent::Kind::terminate;
    if (name != "SIGINT") decoder.fail("Expected \"SIGTERM\" or \"SIGINT\".");
    return ProcessEvent::Kind::interrupt;
}

void requireTrue(const Decoder& decoder) {
    if (!decoder.boolean()) decoder.fail("Expected true.");
}

/// A call, and the name of the file that its plan is in, if it is in one.
std::pair<Call, std::string> decodeCall(const Decoder& decoder) {
    std::pair<Call, std::string> result{{.at = requiredSeconds(decoder, "at")}, {}};
    Call& call = result.first;
    decoder.member("call", [&](const Decoder& name) { call.method = decodeMethod(name); });
    call.client = clientOf(decoder);
    switch (call.method) {
        case Call::Method::setManualRPM:
            decoder.onlyKeys({"at", "client", "call", "fan", "rpm"});
            call.fan = decoder.required<std::int64_t>("fan");
            call.rpm = decoder.required<std::int64_t>("rpm");
            break;
        case Call::Method::setPercent:
            decoder.onlyKeys({"at", "client", "call", "fan", "percent"});
            call.fan = decoder.required<std::int64_t>("fan");
            call.percent = decoder.required<double>("percent");
            break;
        case Call::Method::applyConfig:
            decoder.onlyKeys({"at", "client", "call", "plan", "document"});
            call.document = decoder.optional<std::string>("document");
            if (!call.document) result.second = decodePlan(decoder, call.plan);
            break;
        default: decoder.onlyKeys({"at", "client", "call"});
    }
    return result;
}

ConnectionChange decodeConnectionChange(const Decoder& decoder, ConnectionChange::Kind kind) {
    const bool isOpened = kind == ConnectionChange::Kind::connect;
    if (isOpened)
        decoder.onlyKeys({"at", "connect", "stranger"});
    else
        decoder.onlyKeys({"at", "disconnect"});
    ConnectionChange change{.at = requiredSeconds(decoder, "at"), .kind = kind};
    change.client = decoder.required<std::string>(isOpened ? "connect" : "disconnect");
    if (isOpened) change.isStranger = decoder.optional<bool>("stranger").value_or(false);
    return change;
}

ProcessEvent decodeProcessEvent(const Decoder& decoder, std::string_view key) {
    ProcessEvent event{.at = requiredSeconds(decoder, "at"), .kind = ProcessEvent::Kind::start};
    if (key == "start") {
        decoder.onlyKeys({"at", "start"});
        decoder.member(key, [](const Decoder& start) { requireTrue(start); });
        return event;
    }
    decoder.onlyKeys({"at", key, "afterSteps"});
    decoder.member(key, [&](const Decoder& member) {
        event.kind = key == "kill" ? ProcessEvent::Kind::kill : decodeSignal(member);
        if (key == "kill") requireTrue(member);
    });
    ifPresent(decoder, "afterSteps", [&](const Decoder& steps) {
        event.afterSteps = bounded<std::uint64_t>(steps, 0, 1'000'000'000);
    });
    return event;
}

bool has(const Decoder& decoder, std::string_view key) {
    bool isThere = false;
    ifPresent(decoder, key, [&isThere](const Decoder&) { isThere = true; });
    return isThere;
}

Event decodeOtherEvent(const Decoder& decoder) {
    using Kind = ConnectionChange::Kind;
    if (has(decoder, "connect")) return decodeConnectionChange(decoder, Kind::connect);
    if (has(decoder, "disconnect")) return decodeConnectionChange(decoder, Kind::disconnect);
    for (const std::string_view key : {"signal", "kill", "start"}) {
        if (has(decoder, key)) return decodeProcessEvent(decoder, key);
    }
    const Duration at = requiredSeconds(decoder, "at");
    if (has(decoder, "wallClockJump")) {
        decoder.onlyKeys({"at", "wallClockJump"});
        return WallClockJump{.at = at, .seconds = decoder.required<double>("wallClockJump")};
    }
    decoder.onlyKeys({"at", "client", "heartbeatEvery", "until"});
    Heartbeats beats{.at = at, .client = clientOf(decoder)};
    decoder.member("heartbeatEvery", [&beats](const Decoder& every) {
        beats.every = seconds(every);
        if (beats.every == Duration::zero()) every.fail("Expected more than 0 seconds.");
    });
    beats.until = requiredSeconds(decoder, "until");
    return beats;
}

void decodeEvent(const Decoder& decoder, Scenario& scenario) {
    if (!has(decoder, "call")) {
        scenario.events.push_back(decodeOtherEvent(decoder));
        return;
    }
    auto [call, file] = decodeCall(decoder);
    if (!file.empty()) scenario.planFiles.emplace_back(scenario.events.size(), std::move(file));
    scenario.events.emplace_back(std::move(call));
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
    decoder.onlyKeys({"machine", "temperatures", "thermal", "faults", "firmware", "events",
                      "jitter", "euid", "duration", "restartAfter"});
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

Duration Scenario::length() const {
    if (duration) return *duration;
    Duration last{};
    const auto reaches = [&last](Duration moment) { last = std::max(last, moment); };
    for (const TemperatureChange& change : temperatures) reaches(change.at);
    for (const FirmwareChange& change : firmware) reaches(change.at);
    if (thermal && !thermal->load.empty()) reaches(thermal->load.back().first);
    for (const Fault& fault : faults) {
        reaches(fault.until == Duration::max() ? fault.from : fault.until);
    }
    for (const Event& event : events) {
        std::visit([&](const auto& each) { reaches(each.at); }, event);
        if (const auto* beats = std::get_if<Heartbeats>(&event)) reaches(beats->until);
    }
    return last + Duration(std::llround(longestSilence * 1e9));
}

}  // namespace airflow::simulation
