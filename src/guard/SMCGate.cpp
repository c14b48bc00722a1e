#include "guard/SMCGate.h"

#include <cmath>
#include <memory>
#include <utility>

#include "smc/FanNumbers.h"

namespace airflow::guard {

namespace {

using concurrency::Task;
using smc::SMCError;

/// The fan that this is the mode key of, if it is one.
std::optional<std::int64_t> fanOfModeKey(const std::string& key) {
    const bool isModeKey = key.size() == 4 && key[0] == 'F' && key[1] >= '0' && key[1] <= '9' &&
                           (key.ends_with("Md") || key.ends_with("md"));
    if (!isModeKey) return std::nullopt;
    return key[1] - '0';
}

}  // namespace

/// A request that the driver works on.
class SMCGate::Busy {
public:
    explicit Busy(const SMCGate& gate) : observer(gate.observer) {
        if (observer) observer->driverBegins();
    }
    Busy(const Busy&) = delete;
    Busy& operator=(const Busy&) = delete;
    ~Busy() {
        if (observer) observer->driverEnds();
    }

private:
    GateObserver* observer;
};

SMCGate::SMCGate(concurrency::Executor& executor, smc::SMCWriting& gateConnection,
                 sensors::SMCReading& gateReading)
    : Actor(std::shared_ptr<concurrency::Executor>(std::shared_ptr<void>(), &executor)),
      connection(gateConnection),
      reading(gateReading) {}

void SMCGate::closeForExit() {
    const std::lock_guard lock(visits);
    isExiting = true;
    ++closings;
}

void SMCGate::enter() {
    const std::lock_guard lock(visits);
    ++clients;
    hadClients = true;
}

// An exit has closed the gate for good, and its own requests are not to be withheld.
bool SMCGate::leave() {
    const std::lock_guard lock(visits);
    const bool isLast = --clients == 0;
    if (isLast && !isExiting) ++closings;
    return isLast;
}

void SMCGate::interrupt() {
    const std::lock_guard lock(visits);
    if (clients == 1 && !isExiting) ++closings;
}

bool SMCGate::takesForcing() const {
    const bool isAnyoneThere = clients > 0 || !hadClients;
    return isAnyoneThere && !isExiting;
}

bool SMCGate::withholds(const std::string& key, std::uint8_t value, Epoch asked) const {
    if (value == 0) return false;
    const bool isEarlier = asked != closings;
    if (fanOfModeKey(key)) return isEarlier || !takesForcing();
    return isEarlier;
}

// The epoch is taken when a request is made, not when its turn comes.
Task<smc::SMCWriting::WriteResult> SMCGate::writeUInt8(std::string key, std::uint8_t value) {
    return passUInt8(std::move(key), value, closings);
}

Task<smc::SMCWriting::WriteResult> SMCGate::writeFloat(std::string key, double value) {
    return passFloat(std::move(key), value, closings);
}

Task<std::optional<smc::SMCValue>> SMCGate::tryReadValue(std::string key) {
    return passTryRead(std::move(key), closings);
}

Task<std::expected<smc::SMCValue, SMCError>> SMCGate::readValue(std::string key) {
    return passRead(std::move(key), closings);
}

Task<std::vector<std::string>> SMCGate::discoverTempKeys() {
    return passDiscovery(closings);
}

Task<smc::SMCWriting::WriteResult> SMCGate::passUInt8(std::string key, std::uint8_t value,
                                                      Epoch asked) {
    if (withholds(key, value, asked)) co_return std::unexpected(SMCError::withheld());
    const Busy busy(*this);
    const WriteResult written = co_await connection.writeUInt8(key, value);
    const auto fan = fanOfModeKey(key);
    if (observer && key == "Ftst") observer->wroteForceTest(value != 0);
    if (observer && fan) {
        observer->wrote({.fan = *fan,
                         .key = std::move(key),
                         .isForcing = value != 0,
                         .isTaken = written && *written == 0});
    }
    co_return written;
}

Task<smc::SMCWriting::WriteResult> SMCGate::passFloat(std::string key, double value, Epoch asked) {
    if (isTooLate(asked)) co_return std::unexpected(SMCError::withheld());
    const Busy busy(*this);
    co_return co_await connection.writeFloat(std::move(key), value);
}

Task<std::optional<smc::SMCValue>> SMCGate::passTryRead(std::string key, Epoch asked) {
    if (isTooLate(asked)) co_return std::nullopt;
    const Busy busy(*this);
    const auto value = co_await reading.tryReadValue(key);
    if (observer && key.starts_with('T')) observer->readTemperature();
    const auto fan = fanOfModeKey(key);
    const auto mode = value && fan ? value->numeric() : std::nullopt;
    if (observer && mode && std::trunc(*mode) == 1) observer->sawForced(*fan, key);
    co_return value;
}

Task<std::expected<smc::SMCValue, SMCError>> SMCGate::passRead(std::string key, Epoch asked) {
    if (isTooLate(asked)) co_return std::unexpected(SMCError::withheld());
    const Busy busy(*this);
    co_return co_await connection.readValue(std::move(key));
}

Task<std::vector<std::string>> SMCGate::passDiscovery(Epoch asked) {
    if (isTooLate(asked)) co_return std::vector<std::string>{};
    const Busy busy(*this);
    co_return co_await reading.discoverTempKeys();
}

}  // namespace airflow::guard
