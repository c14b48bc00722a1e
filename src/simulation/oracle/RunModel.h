// RunModel: one run of the whole daemon, as far as it can be seen from outside: the machine's
// truth, connections, commands, the lives of the process, the driver's time, silence and heat.
// The oracle alone changes it; its monitors read it, and judge.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "simulation/machine/DriverClock.h"
#include "simulation/oracle/HeldFans.h"
#include "simulation/scenario/ScenarioObserver.h"

namespace airflow::simulation {

struct RunModel {
    using Duration = concurrency::Duration;
    using Mark = DriverClock::Mark;

    struct Fan {
        std::string modeKey{};  ///< empty: the fan is the firmware's alone
        bool isForced = false;
        bool isMachinesOwn = false;  ///< the machine forced it by itself, and nobody asked for that
        Mark forcedSince{};
        std::optional<Mark> lastForced{};  ///< when it last was; absent: never
        /// Since when nobody wants it forced; absent: a client may.
        std::optional<Mark> unwantedSince{};
        std::optional<Mark> lastForceRequest{};
        std::optional<Mark> refusedForce{};  ///< its last 1, which the SMC refused
        std::optional<Mark> lastRelease{};   ///< when it was last asked to go back
        std::optional<Mark> givenBack{};     ///< the SMC said so, and took no 1 since
        int refusals = 0;                    ///< to go back, in a row
        bool isFalselyReleased = false;      ///< the SMC said that it went back, and it did not
        bool isForcedInSecret = false;       ///< the SMC refused that, and did it all the same

        // What this life of the daemon can know
        bool isKnown = false;  ///< its mode key was read before it listened, or written
        /// Its mode key was read before it listened, or it took a 1: releases and plans ask it.
        /// Others are the guard's to find.
        bool isInReleases = false;
        bool hasFailedProbe = false;  ///< of its mode key
        bool isDenied = false;        ///< the SMC said last that its mode key does not exist
        bool wasDenied = false;       ///< in this life of the daemon, at any time
        Mark readableSince{};         ///< after what prevented its mode key from being read
        Mark truthfulSince{};         ///< after false answers about its mode key
    };

    struct Command {
        Call::Method method = Call::Method::heartbeat;
        bool isGarbage = false;
        std::set<std::size_t> manages{};       ///< the fans that it may want forced
        std::set<std::size_t> fixes{};         ///< those that it wants at a speed above 0
        std::optional<std::size_t> counted{};  ///< the fewest fans that the SMC told of meanwhile
        bool wasCountRefused = false;
        std::string client{};
        Mark called{};
        bool wasDisturbed = false;        ///< by another command that controls fans
        bool wasControlUnderWay = false;  ///< at any time since
        /// Since when nobody wanted its fans, before it did.
        std::map<std::size_t, Mark> unwantedBefore{};

        [[nodiscard]] bool isControl() const;
    };

    /// The scenario outlives the model.
    explicit RunModel(const Scenario& scenario);

    [[nodiscard]] Mark mark(Duration time) const { return clock.mark(time); }
    [[nodiscard]] Duration since(const Mark& mark, Duration now) const {
        return clock.since(mark, now);
    }
    [[nodiscard]] bool isAnyForced() const;
    [[nodiscard]] bool isControlUnderWay() const;
    /// A command that gives every fan back is not answered yet.
    [[nodiscard]] bool isReleaseUnderWay() const;
    /// No command is being worked on, and no release.
    [[nodiscard]] bool isUndisturbed(Duration now) const;
    /// No client wants any fan forced.
    [[nodiscard]] bool isUnwanted() const;
    /// A command that gives every fan back: only root may ask for Auto by its own command.
    [[nodiscard]] bool isReason(Call::Method method) const;
    /// Longer than 15 s, by the wall clock or by the monotonic one.
    [[nodiscard]] bool isSilent(Duration now) const;
    /// Forced by this daemon's doing, as far as it can know, and not lied about.
    [[nodiscard]] static bool isJudged(const Fan& fan) {
        return fan.isForced && !fan.isFalselyReleased && !fan.isMachinesOwn && fan.isKnown;
    }
    /// It refuses, and was asked within the period of retries.
    [[nodiscard]] bool isPending(const Fan& fan, Duration now) const;
    /// What claims may have put off since then: the order of a plan's work is that they come before
    /// its first step and its first check, and a tick waits for its own. None where nothing
    /// refused.
    [[nodiscard]] Duration claims(const Mark& from) const;

    void access(const SMCAccess& access);
    void modeChanged(Duration time, std::size_t index, FanMode mode);
    void published(Duration time, const control::ControlState& state);
    /// Not of untrusted peers.
    void called(Duration time, std::string_view client, const Call& call);
    /// The command that this answers; nothing for none.
    std::optional<Command> replied(Duration time, const Reply& reply);
    void second(Duration time, SimulatedMac& mac);
    void started(Duration time);
    void listening(Duration time);
    void exitBegan(Duration time);
    void signalled(Duration time);
    /// The process ends now; ended() forgets it.
    void ending(Duration time) { noteFaults(time); }
    void ended();
    void connected(std::string_view client, bool isUntrusted);
    void disconnected(Duration time, std::string_view client);
    void clockJumped(double seconds);

    const Scenario& scenario;
    Duration perFan{};  ///< 10 s for each fan
    std::vector<Fan> fans;
    std::size_t countedFans = 0;         ///< how many the SMC told of when it was last asked
    std::size_t countedFansAtStart = 0;  ///< when the daemon started
    DriverClock clock;
    HeldFans heldFans;

    bool isRunning = false;
    bool isListening = false;
    Mark listeningSince{};
    std::optional<Mark> exiting;  ///< since when

    std::set<std::string> untrustedPeers;
    std::set<std::string> connections;
    std::optional<Mark> nobodyThere;  ///< since the last connection ended, and until the next
    std::map<std::uint64_t, Command> commands;  ///< not answered yet

    std::optional<Mark> lastRelease;   ///< the latest reason to give every fan back
    std::optional<Mark> lastUnwanted;  ///< when nobody wanted any fan forced
    std::optional<Mark> lastGuarded;   ///< when the guard last acted
    std::optional<Mark> lastRefusal;   ///< of any request but a read
    std::optional<Mark> lastForceRefusal;
    Mark lastCommand{};               ///< when one that controls fans was last sent
    Mark lastControl{};               ///< the same, or its answer
    Mark lastHeard{};                 ///< the same, or a heartbeat
    Duration lastHeartbeat{};         ///< or command, by when it was sent
    std::optional<Mark> longSilence;  ///< the end of the last that was too long
    double clockBack = 0;             ///< seconds, since the client was last heard
    double clockForward = 0;
    Mark lastCheck{};              ///< the hold loop tells its state after each of its checks
    std::optional<Mark> hotSince;  ///< above the ceiling, as far as the daemon can see
    std::optional<Mark> lastHot;   ///< near the ceiling

private:
    void release(const Mark& reason, bool mayBeOlder);
    void noteControl(Duration time, const Call& call, Command& command);
    void noteUncounted(const Command& command);
    void noteAnswer(Duration time, const Command& command, const Reply& reply);
    void noteCount(std::size_t told);
    void noteProbe(Fan& fan, const SMCAccess& access, bool isRefused);
    void noteForceRequest(Fan& fan, const SMCAccess& access, bool isRefused);
    void noteReleaseRequest(Fan& fan, const SMCAccess& access, bool isRefused);
    void noteFaults(Duration time);
    void noteSafetyRelease(Duration time);
    void heard(Duration time);
};

/// Of the commands that control fans, those that ask for forced mode.
[[nodiscard]] bool isControl(Call::Method method);
/// Of the commands that control fans, those that give every fan back.
[[nodiscard]] bool isRelease(Call::Method method);

}  // namespace airflow::simulation
