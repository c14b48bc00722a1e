// SimulatedMac: a machine below the platform calls, and the truth about it.
//
// The code under test sees it as the driver's records and the HID functions do. What each fan
// really is stands here for tests to read; the code under test never does.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "concurrency/Clock.h"
#include "simulation/machine/HIDHang.h"
#include "simulation/machine/MachineDescription.h"
#include "simulation/machine/SimulatedHID.h"
#include "simulation/machine/SimulatedSMC.h"
#include "simulation/machine/ThermalModel.h"

namespace airflow::simulation {

/// Who drives a fan, as its mode key says.
enum class FanMode : std::uint8_t { automatic = 0, forced = 1, reclaimed = 3 };

/// Fan speeds and heat move in fixed steps of 0.1 s, up to the present moment, whenever somebody
/// looks: the same, however often that is. Called by one thread at a time.
class SimulatedMac {
public:
    static constexpr concurrency::Duration stepLength = std::chrono::milliseconds(100);
    static constexpr std::uint8_t busy = 0x82;
    static constexpr std::uint8_t refused = 0x86;

    struct Options {
        double jitter = 0.05;    ///< °C, of HID samples
        std::uint64_t seed = 0;  ///< of the jitter
    };

    struct FanState {
        FanMode mode = FanMode::automatic;
        double speed = 0;  ///< RPM, right now
        /// RPM, as last written, whatever that is; followed in forced mode only, as far as the fan
        /// can.
        double target = 0;

        bool operator==(const FanState&) const = default;
    };

    /// `clock` gives the time since the machine was switched on. More than ten fans do not fit into
    /// four-character keys and stop the process.
    SimulatedMac(MachineDescription description, std::function<concurrency::Duration()> clock,
                 Options options);
    SimulatedMac(MachineDescription description, std::function<concurrency::Duration()> clock)
        : SimulatedMac(std::move(description), std::move(clock), Options{}) {}
    SimulatedMac(const SimulatedMac&) = delete;
    SimulatedMac& operator=(const SimulatedMac&) = delete;

    /// The seams that the code under test is given.
    [[nodiscard]] SimulatedSMC& smc() { return controller; }
    [[nodiscard]] SimulatedHID& hid() { return hub; }
    [[nodiscard]] sensors::HIDFunctions::Table hidFunctions() {
        return hub.functions(description.hasHIDSymbols);
    }

    /// The truth.
    [[nodiscard]] std::size_t fanCount() const { return fans.size(); }
    [[nodiscard]] FanState fan(std::size_t index);
    [[nodiscard]] const FanDescription& describedFan(std::size_t index) const {
        return fans[index].description;
    }
    [[nodiscard]] bool forceTest() const { return forceTestSince.has_value(); }
    /// The hottest of all temperatures, °C; nothing where none is a number. The firmware's own
    /// control follows it, and without any leaves its fans at their lowest speed, as if all were
    /// cool.
    [[nodiscard]] std::optional<double> hottest();
    /// Of the SMC's keys, °C, at this moment. Those of the HID services are in hid().
    [[nodiscard]] const Temperatures& smcTemperatures();

    /// Told whenever the true mode of a fan changes, whoever changed it.
    std::function<void(std::size_t fan, FanMode mode)> modeObserver;

    /// What the machine does by itself.
    void setMode(std::size_t fan, FanMode mode);
    /// Replaces the HID services; nothing: there are none.
    void setHID(std::optional<Temperatures> temperatures);
    void setHIDTemperature(const std::string& label, double celsius);
    void setSMCTemperature(const std::string& key, double celsius);
    /// Nobody waits for the hub unless `hidWaiter` is set.
    void add(const HIDHang& hang);
    /// Makes whoever is asking the hub wait until then, since the machine was switched on.
    std::function<void(concurrency::Duration until)> hidWaiter;
    /// From now on all sensors follow a load, and with them the fans: those of the dies are as hot
    /// as the model's die, the others as its heat sink. What is set by hand lasts for a step.
    void follow(ThermalModel thermal);
    /// From now on temperatures stay where they are, until they are set.
    void standStill();

private:
    struct Fan {
        FanDescription description;
        FanState state;
        concurrency::Duration forcedSince{};
        std::optional<concurrency::Duration> firstAsked{};  ///< for forced mode; while that is busy
    };

    void addFanKeys(std::size_t index);
    void hang() const;
    void catchUp();
    [[nodiscard]] std::optional<double> hottestShown() const;
    void moveFans(std::optional<double> hot);
    double moveHeat();
    void showHeat();
    void changeMode(Fan& fan, FanMode mode);
    std::uint8_t writeMode(Fan& fan, double value);
    std::uint8_t force(Fan& fan);

    MachineDescription description;
    std::function<concurrency::Duration()> clock;
    SimulatedSMC controller;
    SimulatedHID hub;
    std::vector<HIDHang> hangs;
    Temperatures smcTemps;
    std::vector<Fan> fans;
    std::optional<concurrency::Duration> forceTestSince;  ///< since when "Ftst" is on
    std::optional<ThermalModel> thermal;
    concurrency::Duration reached{};  ///< up to here everything has moved
};

}  // namespace airflow::simulation
