// SimulatedDaemon: one life of the daemon's process on a simulated Mac, in virtual time.
#pragma once

#include <cstdint>
#include <functional>
#include <string_view>
#include <utility>

#include "daemon/Daemon.h"
#include "sensors/LogSink.h"
#include "sensors/SensorReader.h"
#include "sensors/hid/HIDBridge.h"
#include "simulation/daemon/SimulatedListener.h"
#include "simulation/daemon/SimulatedProcess.h"
#include "simulation/machine/DelayedSMC.h"
#include "simulation/machine/SimulatedMac.h"
#include "simulation/runtime/SimulatedRuntime.h"

namespace airflow::simulation {

/// Tells of every snapshot that is taken.
class WatchedSensors final : public sensors::SnapshotSource {
public:
    using Taken = std::function<void(const sensors::SensorSnapshot& snapshot)>;

    WatchedSensors(sensors::SnapshotSource& sensors, Taken snapshotTaken)
        : source(sensors), taken(std::move(snapshotTaken)) {}

    concurrency::Task<sensors::SensorSnapshot> snapshot() override {
        auto snapshot = co_await source.snapshot();
        if (taken) taken(snapshot);
        co_return snapshot;
    }

private:
    sensors::SnapshotSource& source;
    const Taken taken;
};

/// The hardware of a simulated Mac, whose SMC takes its time.
class SimulatedHardware final : public daemon::Hardware {
public:
    SimulatedHardware(SimulatedRuntime& runtime, SimulatedMac& mac, sensors::LogSink& standardError,
                      WatchedSensors::Taken snapshotTaken = {})
        : connection(runtime, mac.smc()),
          delayed(runtime, connection, mac.smc()),
          gate(delayed.executor(), delayed, delayed),
          hidFunctions(mac.hidFunctions()),
          bridge(hidFunctions, mac.hid(), runtime),
          reader(runtime, gate, bridge, standardError),
          watched(reader, std::move(snapshotTaken)) {}

    [[nodiscard]] concurrency::Task<std::expected<void, smc::SMCError>> open() override {
        return connection.open();
    }
    [[nodiscard]] guard::SMCGate& smc() override { return gate; }
    [[nodiscard]] sensors::SnapshotSource& sensors() override { return watched; }

private:
    smc::SMCConnection connection;
    DelayedSMC delayed;
    guard::SMCGate gate;
    sensors::HIDFunctions hidFunctions;
    sensors::HIDBridge bridge;
    sensors::SensorReader reader;
    WatchedSensors watched;
};

/// Everything that is gone when the process is, and nothing else: the machine stays. Made anew for
/// every start.
class SimulatedDaemon final : concurrency::StopObserver {
public:
    struct Options {
        std::uint64_t seed = 0;               ///< of the schedule; 0: executors take turns
        SimulatedRuntime::Chooser chooser{};  ///< of the schedule, instead of the seed
        /// Since the machine was switched on; the wall clock says that much more than at the start
        /// of time, and `dateOffset` on top of it.
        concurrency::Duration time{};
        concurrency::Seconds dateOffset{};
        std::uint32_t effectiveUserID = 0;
        std::function<void(const control::ControlState&)> published{};
        std::function<void()> guarded{};
        WatchedSensors::Taken snapshotTaken{};
        control::LocalFanController::Evaluating evaluating{};
        /// Told of a bug that the daemon meets, whose line is in the log then, and which has ended
        /// the process. Empty: a bug of the daemon ends the process that simulates it.
        std::function<void(std::string_view violation)> metBug{};
    };

    /// Starts nothing yet. Machine and log outlive the daemon.
    SimulatedDaemon(SimulatedMac& mac, sensors::LogSink& standardError, const Options& options);
    SimulatedDaemon(const SimulatedDaemon&) = delete;
    SimulatedDaemon& operator=(const SimulatedDaemon&) = delete;
    /// The end of the process, as SIGKILL brings it: nothing more is done to the machine.
    ~SimulatedDaemon();

    /// The process is started; what it does first runs with the runtime.
    void start();
    /// The process stops itself, as when it meets a bug: a line in the log, and its end.
    void stop(std::string_view violation);

    SimulatedRuntime runtime;
    SimulatedProcess process;
    SimulatedListener listener;

private:
    void processStops(std::string_view violation) noexcept override;

    sensors::LogSink& log;
    std::function<void(std::string_view)> metBug;
    SimulatedMac& machine;
    SimulatedHardware hardware;
    daemon::Daemon daemon;
};

}  // namespace airflow::simulation
