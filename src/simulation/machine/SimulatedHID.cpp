#include "simulation/machine/SimulatedHID.h"

#include <algorithm>
#include <utility>

namespace airflow::simulation {

using sensors::HIDObject;

namespace {

constexpr std::int64_t temperatureEvent = 15;
constexpr std::int32_t temperatureField = 0xF0000;

/// What a client has to ask for to be given the temperature services.
bool matchesTemperatures(const std::vector<std::pair<std::string, std::int64_t>>& entries) {
    const std::vector<std::pair<std::string, std::int64_t>> temperatures{
        {"PrimaryUsagePage", 0xFF00}, {"PrimaryUsage", 5}};
    return std::ranges::is_permutation(entries, temperatures);
}

// An object is the number of its place, from 1, below the count of those that were there before.
constexpr int placeBits = 32;

HIDObject identity(std::size_t place, std::uint32_t life) {
    return reinterpret_cast<HIDObject>(std::uintptr_t{life} << placeBits | (place + 1));
}

std::uintptr_t placeOf(HIDObject object) {
    constexpr std::uintptr_t mask = (std::uintptr_t{1} << placeBits) - 1;
    return (reinterpret_cast<std::uintptr_t>(object) & mask) - 1;
}

}  // namespace

SimulatedHID::SimulatedHID(std::optional<Temperatures> temperatures, double jitter,
                           std::uint64_t seed)
    : current(std::move(temperatures)), jitter(jitter), random(seed) {}

sensors::HIDFunctions::Table SimulatedHID::functions(bool areThere) {
    if (!areThere) return {};
    sensors::HIDFunctions::Table table;
    table.clientCreate = [this](HIDObject) {
        ask();
        ++clients;
        auto [client, object] = make(Kind::client);
        object.entries.clear();
        return client;
    };
    table.clientSetMatching = [this](HIDObject client, HIDObject dictionary) {
        ask();
        setMatching(client, dictionary);
    };
    table.clientCopyServices = [this](HIDObject client) {
        ask();
        return copyServices(client);
    };
    table.serviceCopyProperty = [this](HIDObject service, HIDObject property) {
        ask();
        return copyProperty(service, property);
    };
    table.serviceCopyEvent = [this](HIDObject service, std::int64_t type, std::int32_t,
                                    std::int64_t) {
        ask();
        return copyEvent(service, type);
    };
    table.eventGetFloatValue = [this](HIDObject event, std::int32_t field) {
        return level(event, field);
    };
    return table;
}

void SimulatedHID::setTemperatures(std::optional<Temperatures> temperatures) {
    current = std::move(temperatures);
}

void SimulatedHID::setTemperature(const std::string& label, double celsius) {
    if (!current) current.emplace();
    const auto found = std::ranges::find(*current, label, &Temperatures::value_type::first);
    if (found == current->end())
        current->emplace_back(label, celsius);
    else
        found->second = celsius;
}

HIDObject SimulatedHID::makeDictionary(const std::vector<Entry>& entries) {
    auto [dictionary, object] = make(Kind::dictionary);
    object.entries.clear();
    for (const Entry& entry : entries) object.entries.emplace_back(entry.name, entry.value);
    return dictionary;
}

HIDObject SimulatedHID::makeText(std::string_view utf8) {
    auto [text, object] = make(Kind::text);
    object.text = utf8;
    return text;
}

std::vector<HIDObject> SimulatedHID::elements(HIDObject array) {
    const Object* const found = use(array, Kind::array);
    return found ? found->elements : std::vector<HIDObject>{};
}

std::optional<std::string> SimulatedHID::text(HIDObject object) {
    const Object* const found = find(object);
    if (!found) ++uses;
    if (!found || found->kind != Kind::text) return std::nullopt;
    return found->text;
}

void SimulatedHID::retain(HIDObject object) {
    if (Object* const found = find(object))
        ++found->references;
    else
        ++uses;
}

void SimulatedHID::release(HIDObject object) {
    Object* const found = find(object);
    if (!found) {
        ++wrongReleases;
        return;
    }
    if (--found->references > 0) return;
    if (found->kind == Kind::array) {
        for (const HIDObject element : std::exchange(found->elements, {})) release(element);
    }
    unused.push_back(placeOf(object));
}

std::pair<HIDObject, SimulatedHID::Object&> SimulatedHID::make(Kind kind) {
    if (unused.empty()) {
        unused.push_back(objects.size());
        objects.emplace_back();
    }
    const std::size_t place = unused.back();
    unused.pop_back();
    Object& object = objects[place];
    object.kind = kind;
    object.references = 1;
    return {identity(place, ++object.life), object};
}

SimulatedHID::Object* SimulatedHID::find(HIDObject object) {
    const std::uintptr_t place = placeOf(object);
    if (place >= objects.size()) return nullptr;
    Object& found = objects[place];
    const bool isAlive = found.references > 0 && identity(place, found.life) == object;
    return isAlive ? &found : nullptr;
}

SimulatedHID::Object* SimulatedHID::use(HIDObject object, Kind kind) {
    Object* const found = find(object);
    if (found && found->kind == kind) return found;
    ++uses;
    return nullptr;
}

void SimulatedHID::setMatching(HIDObject client, HIDObject dictionary) {
    Object* const asking = use(client, Kind::client);
    const Object* const matching = use(dictionary, Kind::dictionary);
    if (asking && matching) asking->entries = matching->entries;
}

HIDObject SimulatedHID::copyServices(HIDObject client) {
    const Object* const asking = use(client, Kind::client);
    if (!asking || !current) return nullptr;
    const bool areWanted = matchesTemperatures(asking->entries);
    std::vector<HIDObject> services;
    for (std::size_t i = 0; areWanted && i < current->size(); ++i) {
        auto [service, object] = make(Kind::service);
        object.text = (*current)[i].first;
        object.client = client;
        object.sensor = i;
        services.push_back(service);
    }
    auto [array, object] = make(Kind::array);
    object.elements = std::move(services);
    return array;
}

HIDObject SimulatedHID::copyProperty(HIDObject service, HIDObject property) {
    const Object* const asked = use(service, Kind::service);
    if (!asked || text(property) != "Product") return nullptr;
    return makeText(asked->text);
}

HIDObject SimulatedHID::copyEvent(HIDObject service, std::int64_t type) {
    Object* const asked = use(service, Kind::service);
    if (!asked || !use(asked->client, Kind::client)) return nullptr;
    if (beforeSample) beforeSample();
    const auto celsius = temperatureOf(*asked);
    if (!celsius || type != temperatureEvent) return nullptr;
    auto [event, object] = make(Kind::event);
    object.celsius = *celsius + nextJitter();
    return event;
}

double SimulatedHID::level(HIDObject event, std::int32_t field) {
    const Object* const asked = use(event, Kind::event);
    return asked && field == temperatureField ? asked->celsius : 0;
}

std::optional<double> SimulatedHID::temperatureOf(Object& service) const {
    if (!current) return std::nullopt;
    const auto standsAt = [&](std::size_t index) {
        return index < current->size() && (*current)[index].first == service.text;
    };
    // Sensors hardly ever change places.
    if (!standsAt(service.sensor)) {
        const auto found =
            std::ranges::find(*current, service.text, &Temperatures::value_type::first);
        if (found == current->end()) return std::nullopt;
        service.sensor = static_cast<std::size_t>(found - current->begin());
    }
    return (*current)[service.sensor].second;
}

/// In [-jitter, jitter]; a fixed sequence for each seed.
double SimulatedHID::nextJitter() {
    if (jitter == 0) return 0;
    constexpr double largest = 9007199254740992.0;  // 2^53
    return jitter * (2 * static_cast<double>(random.next() >> 11) / largest - 1);
}

}  // namespace airflow::simulation
