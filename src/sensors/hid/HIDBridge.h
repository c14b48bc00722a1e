// HIDBridge: finds the temperature services of the HID event system and samples them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "concurrency/Runtime.h"
#include "concurrency/Task.h"
#include "sensors/RawReading.h"
#include "sensors/hid/HIDFunctions.h"
#include "sensors/hid/HIDObjects.h"

namespace airflow::sensors {

/// Nothing here fails loudly: whatever is missing makes the result smaller.
///
/// Any thread may ask what is available; discovery and sampling run on one thread at a time. The
/// functions, objects and runtime outlive the bridge, and the bridge's objects outlive what it
/// returned.
class HIDBridge {
public:
    struct Service {
        std::string label;  ///< the service's "Product", never empty
        OwnedHIDObject handle;
    };

    struct Discovery {
        OwnedHIDObject client;          ///< its services work only while it lives
        std::vector<Service> services;  ///< in the system's order
    };

    HIDBridge(const HIDFunctions& functions, HIDObjects& objects, concurrency::Runtime& runtime);

    /// Whether this system has all the functions.
    [[nodiscard]] bool isAvailable() const { return functions.isAvailable(); }

    /// The temperature services that have a label; nothing when the system lets us ask for none.
    [[nodiscard]] std::optional<Discovery> discoverLabeledTemperatureServices();

    /// Takes every service's temperature once in each round, and gives one reading for each service
    /// in their order. Between rounds the caller's executor is blocked. The services outlive the
    /// task: they are taken by reference because each owns its object and cannot be copied, and the
    /// caller needs them again.
    concurrency::Task<std::vector<RawReading>> sampleTemperatures(
        const std::vector<Service>& services, int rounds,
        std::uint32_t intervalMicroseconds = 40'000) const;

private:
    OwnedHIDObject own(HIDObject created) const { return {objects, created}; }
    std::optional<std::string> labelOf(HIDObject service) const;
    std::optional<double> currentTemperature(HIDObject service) const;

    const HIDFunctions& functions;
    HIDObjects& objects;
    concurrency::Runtime& runtime;
    OwnedHIDObject temperatureMatching;  ///< made at the first discovery, as is the next
    OwnedHIDObject productName;
};

}  // namespace airflow::sensors
