// HIDSensorReader: the temperatures of the HID event system.
#pragma once

#include <optional>
#include <vector>

#include "concurrency/Actor.h"
#include "concurrency/Runtime.h"
#include "concurrency/Task.h"
#include "sensors/TempSensor.h"
#include "sensors/hid/HIDBridge.h"

namespace airflow::sensors {

/// Keeps the services that it found, and so its bridge's objects, for its whole life.
class HIDSensorReader final : public concurrency::Actor {
public:
    HIDSensorReader(concurrency::Runtime& runtime, HIDBridge& bridge);

    /// Whether this system has the functions. Any thread may ask.
    [[nodiscard]] bool isAPIAvailable() const { return bridge.isAvailable(); }

    /// Possibly no temperature, never an error. Blocks its own executor for about 80 ms between the
    /// samples; nobody is served meanwhile, which a caller that asks once a tick does not notice.
    concurrency::Task<std::vector<TempSensor>> readTemperatures();

private:
    HIDBridge& bridge;
    std::optional<HIDBridge::Discovery> cachedDiscovery;  ///< absent until a discovery succeeded
};

}  // namespace airflow::sensors
