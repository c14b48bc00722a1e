#include "sensors/SensorReader.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <numeric>
#include <tuple>
#include <utility>

#include "numbers/Int64.h"
#include "sensors/PlausibleTemperature.h"
#include "smc/FanNumbers.h"

namespace airflow::sensors {

using concurrency::Task;

namespace {

/// Lets a channel move between the two readings of it.
constexpr std::chrono::milliseconds pauseBetweenReadings{40};

/// The number without its fraction; nothing when it is not finite or too large for the type.
std::optional<std::int64_t> truncated(double number) {
    if (!numbers::fitsInt64(number)) return std::nullopt;
    return static_cast<std::int64_t>(number);
}

/// By category in the order for people, then by name; equals keep their order. Names compare as
/// UTF-8 bytes, which is the order of their Unicode scalars.
std::vector<TempSensor> sorted(std::vector<TempSensor> temps) {
    const auto rank = [&temps](std::size_t index) {
        const TempSensor& temp = temps[index];
        return std::tuple(sortOrder(temp.category), std::string_view(temp.name), index);
    };
    std::vector<std::size_t> order(temps.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::ranges::sort(order, {}, rank);
    std::vector<TempSensor> result;
    for (const std::size_t index : order) result.push_back(std::move(temps[index]));
    return result;
}

}  // namespace

SensorReader::SensorReader(concurrency::Runtime& ownRuntime, SMCReading& connection,
                           HIDBridge& bridge, LogSink& log)
    : Actor(ownRuntime.makeExecutor("sensor reader")),
      runtime(ownRuntime),
      smc(connection),
      standardError(log),
      hid(ownRuntime, bridge) {}

Task<SensorSnapshot> SensorReader::snapshot() {
    std::vector<Fan> fans = co_await readFans();
    std::vector<TempSensor> temps = co_await readTemps();
    co_return SensorSnapshot{
        .fans = std::move(fans), .temps = std::move(temps), .timestamp = runtime.date()};
}

Task<std::vector<Fan>> SensorReader::readFans() {
    std::vector<Fan> fans;
    const auto number = co_await readNumber("FNum");
    if (!number) co_return fans;
    const std::int64_t count = smc::believableFanCount(*number).value_or(0);
    for (std::int64_t index = 0; index < count; ++index) {
        Fan fan = co_await readFan(index);
        fans.push_back(std::move(fan));
    }
    co_return fans;
}

Task<Fan> SensorReader::readFan(std::int64_t index) {
    Fan fan{.id = index, .name = fmt::format("Fan {}", index), .mode = {}};
    fan.currentRPM = co_await readSpeed(smc::fanKey(index, "Ac"));
    fan.minRPM = co_await readSpeed(smc::fanKey(index, "Mn"));
    fan.maxRPM = co_await readSpeed(smc::fanKey(index, "Mx"));
    fan.mode = co_await readMode(smc::fanKey(index, "Md"));
    // Some machines name the key so.
    if (!fan.mode) fan.mode = co_await readMode(smc::fanKey(index, "md"));
    co_return fan;
}

Task<std::int64_t> SensorReader::readSpeed(std::string key) {
    const auto number = co_await readNumber(std::move(key));
    if (!number) co_return 0;
    co_return truncated(std::round(*number)).value_or(0);
}

Task<std::optional<std::int64_t>> SensorReader::readMode(std::string key) {
    const auto number = co_await readNumber(std::move(key));
    if (!number) co_return std::nullopt;
    co_return truncated(*number);
}

Task<std::vector<TempSensor>> SensorReader::readTemps() {
    std::vector<TempSensor> temps = co_await hid.readTemperatures();
    if (!temps.empty()) co_return sorted(std::move(temps));
    noteHIDFallback();
    co_return co_await readCuratedSMCTemps();
}

void SensorReader::noteHIDFallback() {
    if (std::exchange(loggedHIDFallback, true)) return;
    standardError.write(fmt::format(
        "[AirflowLib] HID sensor hub unavailable ({}) — falling back to curated SMC temp keys.\n",
        hid.isAPIAvailable() ? "private API resolved but returned no plausible sensors"
                             : "private HID symbols did not resolve on this OS build"));
}

Task<std::vector<TempSensor>> SensorReader::readCuratedSMCTemps() {
    const std::vector<CuratedKey> keys = co_await curatedSMCTempKeys();
    std::vector<TempSensor> temps;
    for (std::size_t i = 0; i < keys.size(); ++i) {
        auto temp = co_await readCuratedSMCTemp(keys[i]);
        if (temp) temps.push_back(std::move(*temp));
    }
    co_return sorted(std::move(temps));
}

Task<std::optional<TempSensor>> SensorReader::readCuratedSMCTemp(CuratedKey curated) {
    const auto first = co_await readNumber(curated.key);
    if (!first) co_return std::nullopt;
    co_await runtime.sleepFor(pauseBetweenReadings);
    const auto second = co_await readNumber(curated.key);
    if (!second) co_return std::nullopt;
    if (*first == 0 && *second == 0) co_return std::nullopt;
    const double mean = (*first + *second) / 2;
    if (!isPlausibleTemperature(mean)) co_return std::nullopt;
    co_return TempSensor{.key = std::move(curated.key),
                         .name = std::string(curated.friendly.name),
                         .celsius = mean,
                         .category = curated.friendly.category,
                         .source = SensorSource::smc};
}

Task<std::vector<SensorReader::CuratedKey>> SensorReader::curatedSMCTempKeys() {
    if (isDiscovering) {
        co_await concurrency::Suspend([this](concurrency::Suspended awaiter) {
            keysAwaiters.push_back(awaiter);
            return true;
        });
    }
    if (cachedCuratedSMCTempKeys) co_return *cachedCuratedSMCTempKeys;
    isDiscovering = true;
    std::vector<std::string> discovered = co_await smc.discoverTempKeys();
    std::vector<CuratedKey> keys;
    for (std::string& key : discovered) {
        const auto friendly = SensorNaming::friendlyName(key);
        if (friendly) keys.push_back({std::move(key), *friendly});
    }
    cachedCuratedSMCTempKeys = keys;
    isDiscovering = false;
    for (const concurrency::Suspended awaiter : std::exchange(keysAwaiters, {})) awaiter.resume();
    co_return keys;
}

Task<std::optional<double>> SensorReader::readNumber(std::string key) {
    const auto value = co_await smc.tryReadValue(std::move(key));
    if (!value) co_return std::nullopt;
    co_return value->numeric();
}

}  // namespace airflow::sensors
