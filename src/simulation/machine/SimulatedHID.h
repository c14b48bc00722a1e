// SimulatedHID: a HID event system whose temperature services a test can set.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "sensors/hid/HIDFunctions.h"
#include "sensors/hid/HIDObjects.h"
#include "simulation/machine/MachineDescription.h"
#include "simulation/runtime/Random.h"

namespace airflow::simulation {

/// Stands below the six functions and the object system.
///
/// Counts its objects, so that a test can see whether every one was given back. An object is a
/// number that is never used again, so a use after the last release is counted and answered with
/// nothing instead of being undefined. Called by one thread at a time, and outlives whoever holds
/// one of its objects.
class SimulatedHID final : public sensors::HIDObjects {
public:
    /// `jitter` in °C is the most by which a sample differs from the sensor's temperature; two
    /// samples of one sensor differ then, as those of real sensors do.
    SimulatedHID(std::optional<Temperatures> temperatures, double jitter, std::uint64_t seed);

    /// The functions, for a sensors::HIDFunctions; none of them when `areThere` is false.
    [[nodiscard]] sensors::HIDFunctions::Table functions(bool areThere = true);

    /// From now on these services exist; nothing: the hub lists none. Services that were found
    /// before answer no more when their label is gone.
    void setTemperatures(std::optional<Temperatures> temperatures);
    /// Sets one sensor; adds it when there is none of that label.
    void setTemperature(const std::string& label, double celsius);
    [[nodiscard]] const std::optional<Temperatures>& temperatures() const { return current; }
    [[nodiscard]] std::optional<Temperatures>& temperatures() { return current; }

    /// Called before each function that asks the hub, so that it can take its time.
    std::function<void()> beforeCall;
    /// Called before a temperature is sampled, so that it can be brought up to date.
    std::function<void()> beforeSample;

    [[nodiscard]] std::size_t liveObjects() const { return objects.size() - unused.size(); }
    [[nodiscard]] int overReleases() const { return wrongReleases; }
    /// Uses of an object that is gone, or of a kind that the function does not take, and of a
    /// service whose client is gone.
    [[nodiscard]] int wrongUses() const { return uses; }
    [[nodiscard]] int clientsCreated() const { return clients; }

    sensors::HIDObject makeDictionary(const std::vector<Entry>& entries) override;
    sensors::HIDObject makeText(std::string_view utf8) override;
    std::vector<sensors::HIDObject> elements(sensors::HIDObject array) override;
    std::optional<std::string> text(sensors::HIDObject object) override;
    void retain(sensors::HIDObject object) override;
    void release(sensors::HIDObject object) override;

private:
    enum class Kind : std::uint8_t { client, dictionary, text, array, service, event };
    using Entries = std::vector<std::pair<std::string, std::int64_t>>;

    /// A place that objects use one after the other; at most one of them is alive.
    struct Object {
        Kind kind = Kind::text;
        int references = 0;                          ///< 0: nobody holds it
        std::uint32_t life = 0;                      ///< the count of objects that were here before
        std::string text{};                          ///< of a text; a service's label
        Entries entries{};                           ///< of a dictionary; a client's matching one
        double celsius = 0;                          ///< of an event
        std::vector<sensors::HIDObject> elements{};  ///< of an array, which owns a reference each
        sensors::HIDObject client = nullptr;         ///< of a service
        std::size_t sensor = 0;                      ///< of a service: where its label last stood
    };

    void ask() const {
        if (beforeCall) beforeCall();
    }
    /// Finds room for an object of the kind; its other fields are left over from an earlier one.
    std::pair<sensors::HIDObject, Object&> make(Kind kind);
    /// The living object; nothing when it is gone.
    [[nodiscard]] Object* find(sensors::HIDObject object);
    /// The same, for one who needs that kind: counts a wrong use when there is none.
    [[nodiscard]] Object* use(sensors::HIDObject object, Kind kind);
    void setMatching(sensors::HIDObject client, sensors::HIDObject dictionary);
    sensors::HIDObject copyServices(sensors::HIDObject client);
    sensors::HIDObject copyProperty(sensors::HIDObject service, sensors::HIDObject property);
    sensors::HIDObject copyEvent(sensors::HIDObject service, std::int64_t type);
    [[nodiscard]] double level(sensors::HIDObject event, std::int32_t field);
    [[nodiscard]] std::optional<double> temperatureOf(Object& service) const;
    double nextJitter();

    std::optional<Temperatures> current;
    double jitter;
    Random random;
    std::deque<Object> objects;
    std::vector<std::size_t> unused;  ///< indices of objects that nobody holds
    int wrongReleases = 0;
    int uses = 0;
    int clients = 0;
};

}  // namespace airflow::simulation
