// SMCConnectionReading: the sensors' view of the shared connection to the SMC.
#pragma once

#include <utility>

#include "sensors/SMCReading.h"
#include "smc/SMCConnection.h"

namespace airflow::sensors {

/// The connection outlives it.
class SMCConnectionReading final : public SMCReading {
public:
    explicit SMCConnectionReading(smc::SMCConnection& shared) : connection(shared) {}

    concurrency::Task<std::optional<smc::SMCValue>> tryReadValue(std::string key) override {
        return connection.tryReadValue(std::move(key));
    }
    concurrency::Task<std::vector<std::string>> discoverTempKeys() override {
        return connection.discoverTempKeys();
    }

private:
    smc::SMCConnection& connection;
};

}  // namespace airflow::sensors
