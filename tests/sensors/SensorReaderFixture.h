// A sensor reader in virtual time, over an SMC that tests fill and the stand-in HID library.
#pragma once

#include <gmock/gmock.h>

#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "sensors/NamedSensors.h"
#include "sensors/SensorReader.h"
#include "sensors/hidlibrary/HIDSystem.h"

namespace airflow::sensors {

/// An SMC that answers each key with its values in turn, and with the last one from then on.
class FakeSMC final : public SMCReading, public concurrency::Actor {
public:
    explicit FakeSMC(concurrency::Runtime& ownRuntime)
        : concurrency::Actor(ownRuntime.makeExecutor("SMC")), runtime(ownRuntime) {}

    void set(const std::string& key, std::vector<double> numbers) {
        auto& answers = values[key];
        answers.clear();
        for (const double number : numbers) answers.emplace_back(smc::SMCValue::floating(number));
    }
    /// A fan that turns at `rpm`, between 1000 and 6000.
    void setFan(const std::string& prefix, double rpm) {
        set(prefix + "Ac", {rpm});
        set(prefix + "Mn", {1000});
        set(prefix + "Mx", {6000});
    }
    std::ptrdiff_t readsOf(const std::string& key) const { return std::ranges::count(reads, key); }

    concurrency::Task<std::optional<smc::SMCValue>> tryReadValue(std::string key) override {
        reads.push_back(key);
        auto& answers = values[key];
        if (answers.empty()) co_return std::nullopt;
        const auto answer = answers.front();
        if (answers.size() > 1) answers.erase(answers.begin());
        co_return answer;
    }
    concurrency::Task<std::vector<std::string>> discoverTempKeys() override {
        ++discoveries;
        co_await runtime.sleepFor(discoveryTime);
        co_return tempKeys;
    }

    std::map<std::string, std::vector<std::optional<smc::SMCValue>>> values;
    std::vector<std::string> tempKeys;
    concurrency::Duration discoveryTime{0};
    std::vector<std::string> reads;
    int discoveries = 0;

private:
    concurrency::Runtime& runtime;
};

struct RecordedLog final : LogSink {
    void write(std::string_view line) override { text += line; }

    std::string text;
};

inline concurrency::Task<void> take(std::vector<SensorSnapshot>& results, SensorReader& reader) {
    SensorSnapshot snapshot = co_await reader.snapshot();
    results.push_back(std::move(snapshot));
}

class SensorReaderTest : public testing::TestWithParam<std::uint64_t> {
protected:
    /// Goes on with a machine whose HID system has these services.
    void useHID(tests::HIDLibrary::Machine machine) { build(std::move(machine), {}); }

    SensorSnapshot snapshot() { return runtime.run(reader->snapshot()); }

    /// One snapshot's readings of the SMC key `key`, which gives the two values in turn.
    std::vector<TempSensor> readCurated(const std::string& key, double first, double second) {
        smc.tempKeys = {key};
        smc.set(key, {first, second});
        return snapshot().temps;
    }

    simulation::SimulatedRuntime runtime{GetParam()};
    FakeSMC smc{runtime};
    RecordedLog log;
    std::optional<tests::HIDSystem> system;
    std::optional<SensorReader> reader;

private:
    void build(tests::HIDLibrary::Machine machine, const std::string& missing) {
        reader.reset();
        system.reset();
        system.emplace(runtime, std::move(machine), missing);
        reader.emplace(runtime, smc, *system->bridge, log);
    }
    void SetUp() override { build({}, "IOHIDEventSystemClientCreate"); }
    void TearDown() override {
        runtime.abandon();
        reader.reset();
        system.reset();
    }
};

}  // namespace airflow::sensors
