// FanWatch: what the guard knows, and when it is time to act. Reads no clock, does no input or
// output.
//
// It believes nothing of the controller. What the SMC was last told of each fan passes the gate;
// that the hold loop checks and that a client is heard is told as it happens; everything else is
// counting.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "concurrency/Clock.h"
#include "control/ControlError.h"
#include "guard/SMCGate.h"

namespace airflow::guard {

class FanWatch {
public:
    using Fan = std::int64_t;
    using Duration = concurrency::Duration;

    /// How often elapsed() is to be called. Time counts for twice as much at most, so that a
    /// machine that slept wakes to a hold loop that has its turn first.
    static constexpr Duration period = std::chrono::seconds(1);

    void wrote(const ModeWrite& write);
    /// A mode key says that the fan is forced: that is looked at when nobody has told it so.
    void sawForced(Fan fan, const std::string& key);
    /// A snapshot has asked the SMC for a temperature, and pauses for the next one.
    void readTemperature() { ++temperatures; }
    /// The hold loop has made its safety checks and goes on.
    void checked();
    /// A client sent a heartbeat, a speed, full blast, Auto or a plan that can be decoded; or one
    /// of these commands was answered. The state, the version, restoreAuto and an upgrade do not
    /// count, nor does what was sent before the last client went.
    void heard() { silent = Duration::zero(); }
    /// Watching begins again, so long after a client was heard.
    void resume(Duration sinceHeard) { silent = sinceHeard; }
    /// So much time went by, for so much of which the driver was busy. What claims explain, which
    /// pause 100 ms after each refusal and end after 10 s for each fan, is left out, too; and
    /// what the snapshot of a machine with very many SMC temperatures takes, 20 s at most.
    void elapsed(Duration time, Duration driverBusy);

    /// Why all fans are to be given back now; nothing in every run in which the controller watches.
    [[nodiscard]] std::optional<control::ControlError> overdue() const;
    /// All fans are being given back; counting begins anew.
    void acted();

    /// A fan whose true mode is to be read now.
    struct Look {
        Fan fan = 0;
        std::vector<std::string> keys{};  ///< that may be its mode key
        std::uint64_t writes = 0;         ///< up to now
    };
    enum class Finding : std::uint8_t { notForced, forced, unreadable, absent };

    /// Every fan that keys can name and that was never written to is to be looked at soon: an
    /// earlier process may have left it forced. A release asks for the same.
    void lookAtUnknown();
    [[nodiscard]] std::vector<Look> dueLooks() const;
    /// What a look has found. Returns whether the fan is to be given back: it is forced, and nobody
    /// has written to it since the look began.
    [[nodiscard]] bool note(const Look& look, Finding finding);
    /// The guard itself has asked this fan to go back: it looks again soon whether it did.
    void noteOwn(Fan fan);

    /// The fans that may be forced, with their mode keys.
    [[nodiscard]] std::map<Fan, std::string> mayBeForced() const;
    /// Whether there is anything to wait for.
    [[nodiscard]] bool isNeeded() const;

private:
    /// What the fan was last told with effect, as far as the SMC's answers say.
    enum class Last : std::uint8_t { none, givenBack, refusedToGoBack, forced };

    struct Record {
        std::string key{};  ///< as it was last written; empty while that is unknown
        Last last = Last::none;
        Duration unattended{};                ///< since the last write
        std::optional<Duration> untilLook{};  ///< at its mode key
        bool waitsForBusyDriver = false;      ///< the look waits for claims and the driver, too
        std::uint64_t writes = 0;
    };

    [[nodiscard]] bool isAnyForced() const;
    [[nodiscard]] Duration explainedByClaims(Duration time);
    [[nodiscard]] Duration explainedBySamples(Duration time);

    std::map<Fan, Record> fans;
    Duration unchecked{};         ///< since the last check, or since the first fan was forced
    Duration silent{};            ///< since a client was heard
    std::int64_t refusals{};      ///< of forced mode, since elapsed() was last called
    Duration claiming{};          ///< since the last check
    std::int64_t temperatures{};  ///< read since elapsed() was last called
    Duration sampling{};          ///< since the last check
};

}  // namespace airflow::guard
