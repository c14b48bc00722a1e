// A simulated Mac that a test asks over the wire.
#pragma once

#include <gmock/gmock.h>

#include <array>
#include <bit>
#include <memory>
#include <string>

#include "Wire.h"
#include "simulation/machine/SimulatedMac.h"

namespace airflow::simulation {

class SimulatedMacTest : public testing::Test {
protected:
    /// A machine at `celsius` whose fans the firmware therefore lets stand where they are.
    void use(MachineDescription machine, double celsius = 40) {
        for (std::size_t i = machine.fans.size(); i < 2; ++i) {
            machine.fans.push_back({.modeKey = upperModeKey(i)});
        }
        machine.hid = Temperatures{{"PMU tdie1", celsius}};
        switchOn(std::move(machine));
    }
    void usePreset(const std::string& name) { switchOn(*machinePreset(name)); }
    void switchOn(MachineDescription machine) {
        wire.reset();
        mac = std::make_unique<SimulatedMac>(std::move(machine), [this] { return now; });
        wire = std::make_unique<Wire>(mac->smc());
    }

    std::uint8_t writeByte(const std::string& key, std::uint8_t value) {
        return wire->write(key, {value}).result();
    }
    std::uint8_t readByte(const std::string& key) { return wire->read(key, 1).bytes(1)[0]; }
    void writeFloat(const std::string& key, float value) {
        const auto bytes = std::bit_cast<std::array<std::uint8_t, 4>>(value);
        EXPECT_EQ(wire->write(key, {bytes.begin(), bytes.end()}).result(), 0);
    }
    float readFloat(const std::string& key) { return floatIn(wire->read(key, 4)); }
    /// Forces fan 0 to this speed.
    void force(float rpm) {
        EXPECT_EQ(writeByte("F0Md", 1), 0);
        writeFloat("F0Tg", rpm);
    }

    concurrency::Duration now{};
    std::unique_ptr<SimulatedMac> mac;
    std::unique_ptr<Wire> wire;
};

}  // namespace airflow::simulation
