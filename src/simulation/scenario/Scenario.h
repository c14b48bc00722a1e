// Scenario: a machine, what happens to it, and what clients ask of the controller, as JSON.
#pragma once

#include <cstdint>
#include <expected>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "concurrency/Clock.h"
#include "daemon/Command.h"
#include "json/Decoder.h"
#include "json/Writer.h"
#include "plan/FanControlPlan.h"
#include "simulation/machine/Fault.h"
#include "simulation/machine/HIDHang.h"
#include "simulation/machine/MachineDescription.h"
#include "simulation/machine/ThermalModel.h"

namespace airflow::simulation {

/// From a moment on, sensors read this. A sensor without a value has vanished.
struct TemperatureChange {
    using Values = std::vector<std::pair<std::string, std::optional<double>>>;

    concurrency::Duration at{};
    bool hidesHID = false;  ///< no HID services at all, until the next change names some
    Values hid{};
    Temperatures smc{};
};

struct Thermal {
    ThermalModel::Load load{};
    double ambient = 24;  ///< °C
};

/// The machine itself changes a key.
struct FirmwareChange {
    concurrency::Duration at{};
    std::string key{};
    double value = 0;
};

/// The client of events that name none.
inline constexpr const char* onlyClient = "app";

/// One command, by the name that the command surface gives it. A client that is not connected
/// connects first.
struct Call {
    using Method = daemon::Method;

    concurrency::Duration at{};
    std::string client = onlyClient;
    Method method = Method::heartbeat;
    std::int64_t fan = 0;
    std::int64_t rpm = 0;
    double percent = 0;
    plan::FanControlPlan plan{};
    std::uint64_t id = 0;                   ///< given by the run, to tell answers apart
    std::optional<std::string> document{};  ///< instead of the plan: what is sent, whatever it is
};

/// What applyConfig sends: JSON, unless the call has a document of another kind.
[[nodiscard]] std::string planDocument(const Call& call);

/// Heartbeats at `at`, `at` + `every`, and so on, up to and with `until`.
struct Heartbeats {
    concurrency::Duration at{};
    std::string client = onlyClient;
    concurrency::Duration every{};
    concurrency::Duration until{};
};

struct WallClockJump {
    concurrency::Duration at{};
    double seconds = 0;
};

/// A client opens its connection, or ends it, as it does when it is killed.
struct ConnectionChange {
    enum class Kind : std::uint8_t { connect, disconnect };

    concurrency::Duration at{};
    Kind kind = Kind::connect;
    std::string client = onlyClient;
    bool isUntrusted = false;  ///< not who the daemon asks for
};

/// Something happens to the daemon's process: a signal, a start while none runs, or a stop, by
/// which it ends itself as when it meets a bug.
struct ProcessEvent {
    enum class Kind : std::uint8_t { terminate, interrupt, kill, start, stop };

    concurrency::Duration at{};
    Kind kind = Kind::terminate;
    /// So many steps of the process later, wherever it is then: in the middle of what else begins
    /// at this moment. Not of a start.
    std::uint64_t afterSteps = 0;
};

using Event = std::variant<Call, Heartbeats, WallClockJump, ConnectionChange, ProcessEvent>;

struct Scenario {
    MachineDescription machine{};
    std::vector<TemperatureChange> temperatures{};
    std::optional<Thermal> thermal{};
    std::vector<Fault> faults{};
    std::vector<HIDHang> hidHangs{};
    std::vector<FirmwareChange> firmware{};
    std::vector<Event> events{};
    double jitter = 0.05;
    std::uint32_t effectiveUserID = 0;
    std::optional<concurrency::Duration> duration{};
    /// Whenever the daemon's process has ended, it is started again so much later; absent: never.
    std::optional<concurrency::Duration> restartAfter{};

    /// The JSON that it can be read from again.
    void encode(json::Writer& writer) const;
    static Scenario decode(const json::Decoder& decoder);

    /// Reads the text of the file of that name beside the scenario, or says why it cannot.
    using ReadFile = std::function<std::expected<std::string, std::string>(const std::string&)>;
    /// The scenario in `text`; plans that are given by a file's name are read by `readFile`. An
    /// unknown key is an error, since a misspelt fault would make a scenario harmless.
    [[nodiscard]] static std::expected<Scenario, json::DecodingError> parse(
        std::string_view text, const ReadFile& readFile);

    /// Brings temperatures and changes of the firmware into the order of their times, in which a
    /// document lists them. Those of one moment keep their order.
    void sortChanges();

    /// As long as it says; otherwise until 30 s after the last thing that happens.
    [[nodiscard]] concurrency::Duration length() const;

    /// Names of plan files, with the events that want them; empty once they are read.
    std::vector<std::pair<std::size_t, std::string>> planFiles{};
};

}  // namespace airflow::simulation
