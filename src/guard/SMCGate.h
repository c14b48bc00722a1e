// SMCGate: the one way to the SMC, which closes when nobody may force fans any more.
//
// Authority: what the gate withholds never reaches the driver, whoever asked for it and however
// long ago. Writes of 0 always pass, so that fans can be given back at any time.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "concurrency/Actor.h"
#include "sensors/SMCReading.h"
#include "smc/SMCWriting.h"

namespace airflow::guard {

/// A write to a fan's mode key that the driver has answered.
struct ModeWrite {
    std::int64_t fan = 0;
    std::string key{};
    bool isForcing = false;  ///< a 1; a 0 otherwise
    bool isTaken = false;    ///< the SMC's answer was 0
};

/// Is told, on the SMC's executor, what passed the gate.
class GateObserver {
public:
    GateObserver() = default;
    GateObserver(const GateObserver&) = delete;
    GateObserver& operator=(const GateObserver&) = delete;

    virtual void wrote(const ModeWrite& write) = 0;
    /// "Ftst" was to be raised, or lowered.
    virtual void wroteForceTest(bool isRaised) = 0;
    /// Somebody has read a fan's mode key, and the fan is forced.
    virtual void sawForced(std::int64_t fan, const std::string& key) = 0;
    /// A temperature was asked for: a snapshot is under way.
    virtual void readTemperature() = 0;
    /// The driver begins to work on a request, and has answered it. One at a time.
    virtual void driverBegins() = 0;
    virtual void driverEnds() = 0;

protected:
    ~GateObserver() = default;
};

/// Stands before a connection to the SMC and runs on its executor, so that a request is judged at
/// the moment in which it would reach the driver.
///
/// Closed are forcing writes (a mode key = 1) from the beginning of an exit on, for good; and while
/// the last client that was connected is gone, until the next one comes. Before the first client
/// has come the gate is open. What was asked for before the gate closed, and is still queued then,
/// is withheld too: at an exit everything but writes of 0, when the last client has gone what
/// raises "Ftst" or forces. Withheld requests fail with SMCError::withheld(), at once.
class SMCGate final : public concurrency::Actor,
                      public smc::SMCWriting,
                      public sensors::SMCReading {
public:
    /// Which closing of the gate a request came before.
    using Epoch = std::uint64_t;

    /// `connection` and `reading` run on `executor`'s; all outlive the gate.
    SMCGate(concurrency::Executor& executor, smc::SMCWriting& connection,
            sensors::SMCReading& reading);

    /// Set before the first request; outlives the gate.
    void observe(GateObserver& told) { observer = &told; }

    /// The process ends: from now on no fan is forced. Any thread may call this and what follows.
    void closeForExit();
    /// A client's connection was accepted; it has ended. Returns whether it was the last.
    void enter();
    bool leave();
    /// A client is gone that may come back on its connection. When it is the only one, what it
    /// asked for before is withheld.
    void interrupt();
    [[nodiscard]] bool takesForcing() const override;
    /// Whether it has closed for an exit.
    [[nodiscard]] bool isEnding() const { return isExiting; }
    /// Advances whenever the gate closes: who asked for something before that is gone.
    [[nodiscard]] Epoch epoch() const { return closings; }

    concurrency::Task<WriteResult> writeUInt8(std::string key, std::uint8_t value) override;
    concurrency::Task<WriteResult> writeFloat(std::string key, double value) override;
    concurrency::Task<std::optional<smc::SMCValue>> tryReadValue(std::string key) override;
    concurrency::Task<std::expected<smc::SMCValue, smc::SMCError>> readValue(
        std::string key) override;
    concurrency::Task<std::vector<std::string>> discoverTempKeys() override;

private:
    class Busy;

    concurrency::Task<WriteResult> passUInt8(std::string key, std::uint8_t value, Epoch asked);
    concurrency::Task<WriteResult> passFloat(std::string key, double value, Epoch asked);
    concurrency::Task<std::expected<smc::SMCValue, smc::SMCError>> passRead(std::string key,
                                                                            Epoch asked);
    concurrency::Task<std::optional<smc::SMCValue>> passTryRead(std::string key, Epoch asked);
    concurrency::Task<std::vector<std::string>> passDiscovery(Epoch asked);
    [[nodiscard]] bool withholds(const std::string& key, std::uint8_t value, Epoch asked) const;
    [[nodiscard]] bool isTooLate(Epoch asked) const { return isExiting && asked != closings; }

    smc::SMCWriting& connection;
    sensors::SMCReading& reading;
    GateObserver* observer = nullptr;
    std::atomic<bool> isExiting = false;
    std::mutex visits;  ///< of changes to `clients` and `isExiting`, with what follows from them
    std::atomic<std::int64_t> clients = 0;
    std::atomic<bool> hadClients = false;
    std::atomic<Epoch> closings = 0;
};

}  // namespace airflow::guard
