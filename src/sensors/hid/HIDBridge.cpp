#include "sensors/hid/HIDBridge.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <utility>

namespace airflow::sensors {

namespace {

constexpr std::int64_t vendorUsagePage = 0xFF00;
constexpr std::int64_t temperatureUsage = 5;
constexpr std::int64_t temperatureEvent = 15;
/// The fields of an event are numbered from its type shifted left by 16; the first is the level.
constexpr std::int32_t temperatureLevel = 0xF0000;

}  // namespace

HIDBridge::HIDBridge(const HIDFunctions& hidFunctions, HIDObjects& hidObjects,
                     concurrency::Runtime& sleepingRuntime)
    : functions(hidFunctions), objects(hidObjects), runtime(sleepingRuntime) {}

std::optional<HIDBridge::Discovery> HIDBridge::discoverLabeledTemperatureServices() {
    if (!isAvailable()) return std::nullopt;
    OwnedHIDObject client = own(functions.clientCreate(nullptr));
    if (!client) return std::nullopt;
    if (!temperatureMatching) {
        temperatureMatching = own(objects.makeDictionary(
            {{"PrimaryUsagePage", vendorUsagePage}, {"PrimaryUsage", temperatureUsage}}));
        productName = own(objects.makeText("Product"));
    }
    functions.clientSetMatching(client.get(), temperatureMatching.get());
    const OwnedHIDObject services = own(functions.clientCopyServices(client.get()));
    if (!services) return std::nullopt;

    Discovery discovery{.client = std::move(client), .services = {}};
    for (const HIDObject service : objects.elements(services.get())) {
        std::optional<std::string> label = labelOf(service);
        if (!label || label->empty()) continue;
        discovery.services.push_back(
            {std::move(*label), OwnedHIDObject::retaining(objects, service)});
    }
    return discovery;
}

concurrency::Task<std::vector<RawReading>> HIDBridge::sampleTemperatures(
    const std::vector<Service>& services, int rounds, std::uint32_t intervalMicroseconds) const {
    const std::chrono::microseconds interval(intervalMicroseconds);
    std::vector<RawReading> readings;
    if (!isAvailable()) co_return readings;
    readings.reserve(services.size());
    for (const Service& service : services) {
        readings.push_back({.label = service.label, .samples = {}});
        readings.back().samples.reserve(static_cast<std::size_t>(std::max(rounds, 0)));
    }
    for (int round = 0; round < rounds; ++round) {
        if (round > 0) co_await runtime.blockingSleep(interval);
        for (std::size_t i = 0; i < services.size(); ++i) {
            const auto celsius = currentTemperature(services[i].handle.get());
            if (celsius) readings[i].samples.push_back(*celsius);
        }
    }
    co_return readings;
}

std::optional<std::string> HIDBridge::labelOf(HIDObject service) const {
    const OwnedHIDObject value = own(functions.serviceCopyProperty(service, productName.get()));
    if (!value) return std::nullopt;
    return objects.text(value.get());
}

std::optional<double> HIDBridge::currentTemperature(HIDObject service) const {
    const OwnedHIDObject event = own(functions.serviceCopyEvent(service, temperatureEvent, 0, 0));
    if (!event) return std::nullopt;
    return functions.eventGetFloatValue(event.get(), temperatureLevel);
}

}  // namespace airflow::sensors
