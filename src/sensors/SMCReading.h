// SMCReading: what reading sensors needs of the connection to the SMC.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "concurrency/Task.h"
#include "smc/SMCValue.h"

namespace airflow::sensors {

/// Runs on the connection's executor, whoever calls.
class SMCReading {
public:
    SMCReading() = default;
    SMCReading(const SMCReading&) = delete;
    SMCReading& operator=(const SMCReading&) = delete;
    virtual ~SMCReading() = default;

    /// The key's value; nothing when it cannot be read, for whatever reason. A key that is not four
    /// bytes long is a bug and stops the process.
    virtual concurrency::Task<std::optional<smc::SMCValue>> tryReadValue(std::string key) = 0;
    /// Every key of a temperature, in the SMC's order; none when they cannot be listed. Slow: it
    /// looks at all the keys that the SMC has.
    virtual concurrency::Task<std::vector<std::string>> discoverTempKeys() = 0;
};

}  // namespace airflow::sensors
