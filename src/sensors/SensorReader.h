// SensorReader: reads the machine's fans and temperatures.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "concurrency/Actor.h"
#include "concurrency/Runtime.h"
#include "concurrency/Task.h"
#include "sensors/LogSink.h"
#include "sensors/SMCReading.h"
#include "sensors/SensorNaming.h"
#include "sensors/SnapshotSource.h"
#include "sensors/hid/HIDSensorReader.h"

namespace airflow::sensors {

/// What it is handed outlives it.
class SensorReader final : public concurrency::Actor, public SnapshotSource {
public:
    SensorReader(concurrency::Runtime& runtime, SMCReading& smc, HIDBridge& bridge,
                 LogSink& standardError);

    /// A fresh reading of everything, stamped with the wall clock once it is complete.
    ///
    /// Never fails: what cannot be read is 0 for a speed and absent for a mode or a temperature.
    /// Takes the temperatures from the SMC, 40 ms for each, where the HID event system has none,
    /// and says so on standard error, once. Of the SMC's count of fans no more is believed than
    /// keys can name (smc::believableFanCount). Other operations may run meanwhile, further
    /// snapshots too.
    concurrency::Task<SensorSnapshot> snapshot() override;

private:
    /// An SMC key that people are shown when the SMC gives the temperatures.
    struct CuratedKey {
        std::string key;
        FriendlyName friendly;
    };

    concurrency::Task<std::vector<Fan>> readFans();
    concurrency::Task<Fan> readFan(std::int64_t index);
    concurrency::Task<std::int64_t> readSpeed(std::string key);
    concurrency::Task<std::optional<std::int64_t>> readMode(std::string key);
    concurrency::Task<std::vector<TempSensor>> readTemps();
    concurrency::Task<std::vector<TempSensor>> readCuratedSMCTemps();
    concurrency::Task<std::optional<TempSensor>> readCuratedSMCTemp(CuratedKey curated);
    concurrency::Task<std::vector<CuratedKey>> curatedSMCTempKeys();
    concurrency::Task<std::optional<double>> readNumber(std::string key);
    void noteHIDFallback();

    concurrency::Runtime& runtime;
    SMCReading& smc;
    LogSink& standardError;
    HIDSensorReader hid;
    std::optional<std::vector<CuratedKey>> cachedCuratedSMCTempKeys;
    bool isDiscovering = false;                        ///< the keys, for the first time
    std::vector<concurrency::Suspended> keysAwaiters;  ///< until they are found
    bool loggedHIDFallback = false;
};

}  // namespace airflow::sensors
