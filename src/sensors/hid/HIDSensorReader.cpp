#include "sensors/hid/HIDSensorReader.h"

#include "sensors/hid/HIDSensorCatalog.h"

namespace airflow::sensors {

namespace {

/// Enough to tell a channel that is wired to nothing from one whose value moves.
constexpr int rounds = 3;

}  // namespace

HIDSensorReader::HIDSensorReader(concurrency::Runtime& runtime, HIDBridge& hidBridge)
    : Actor(runtime.makeExecutor("HID sensor reader")), bridge(hidBridge) {}

concurrency::Task<std::vector<TempSensor>> HIDSensorReader::readTemperatures() {
    if (!cachedDiscovery) cachedDiscovery = bridge.discoverLabeledTemperatureServices();
    if (!cachedDiscovery) co_return std::vector<TempSensor>{};
    const std::vector<RawReading> readings =
        co_await bridge.sampleTemperatures(cachedDiscovery->services, rounds);
    co_return HIDSensorCatalog::curate(readings);
}

}  // namespace airflow::sensors
