// Oracle: judges a run of the whole daemon by what can be seen from outside: the machine's truth,
// messages, connections, time and the life of the process. It knows nothing of the daemon's code.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "simulation/DriverClock.h"
#include "simulation/FanKey.h"
#include "simulation/HeldFans.h"
#include "simulation/Properties.h"
#include "simulation/ScenarioObserver.h"

namespace airflow::simulation {

struct Violation {
    Property property = Property::releaseBegins;
    concurrency::Duration time{};
    std::string what{};
};

class Oracle final : public ScenarioObserver {
public:
    /// The scenario outlives the oracle, which reads the machine and the jumps of the clock there.
    explicit Oracle(const Scenario& scenario);

    /// The first one; what follows it often follows from it.
    [[nodiscard]] const std::optional<Violation>& violation() const { return first; }
    /// How often each of `sometimes` happened.
    [[nodiscard]] const std::array<std::uint64_t, sometimes.size()>& counts() const {
        return counters;
    }
    /// Depends on everything that was told.
    [[nodiscard]] std::uint64_t hash() const { return trace; }

    void access(const SMCAccess& access) override;
    void modeChanged(concurrency::Duration time, std::size_t fan, FanMode mode) override;
    void published(concurrency::Duration time, const control::ControlState& state) override;
    void called(concurrency::Duration time, std::string_view client, const Call& call) override;
    void replied(concurrency::Duration time, const Reply& reply) override;
    void logged(concurrency::Duration time, std::string_view line) override;
    void second(concurrency::Duration time, SimulatedMac& mac) override;
    void started(concurrency::Duration time) override;
    void signalled(concurrency::Duration time, daemon::Signal signal) override;
    void ended(const ProcessEnd& end) override;
    void connected(concurrency::Duration time, std::string_view client, bool isStranger) override;
    void disconnected(concurrency::Duration time, std::string_view client) override;
    void clockJumped(concurrency::Duration time, double seconds) override;

private:
    using Duration = concurrency::Duration;
    using Mark = DriverClock::Mark;

    /// Who forced a fan after the release that should have been the last word.
    enum class Overtaken : std::uint8_t { no, byCommand, byControlStep };

    struct Fan {
        bool isForced = false;
        Mark forcedSince{};
        std::optional<Mark> lastForced;    ///< when it last was; absent: never
        std::optional<Mark> lastRequest;   ///< to go back
        int refusals = 0;                  ///< of these in a row
        std::optional<Mark> refusedForce;  ///< its last 1, which it did not take
        bool isLiedAbout = false;          ///< the SMC said that it went back
        bool isForcedInSecret = false;     ///< the SMC refused it, and did it
        Overtaken overtaken = Overtaken::no;
        bool isUnknown = true;            ///< this life of the daemon has not read its mode key
        bool hasFailedProbe = false;      ///< of its mode key, in this life
        std::set<double> limits;          ///< as read in this life, RPM
        bool hasUnwrittenTarget = false;  ///< whose write did not reach the SMC, in this life
        std::set<double> targets;         ///< accepted in this life of the process
    };
    struct Command {
        Call::Method method = Call::Method::heartbeat;
        bool isGarbage = false;
        bool managesFans = false;  ///< garbage and an empty plan do not
        std::string client{};
        Mark called{};
        bool wasDisturbed = false;  ///< by another command, or a release that was there before
        bool wasControlUnderWay = false;  ///< at any time since
    };

    void fail(Property property, Duration time, std::string what);
    void count(std::string_view happening);
    void mix(std::uint64_t value) { trace = (trace ^ value) * 1099511628211U; }
    void mix(std::string_view text);
    [[nodiscard]] Mark mark(Duration time) const { return clock.mark(time); }
    [[nodiscard]] Duration since(const Mark& mark, Duration now) const {
        return clock.since(mark, now);
    }
    [[nodiscard]] bool isJudged(const Fan& fan) const {
        return fan.isForced && !fan.isLiedAbout && fan.overtaken == Overtaken::no && !fan.isUnknown;
    }
    [[nodiscard]] bool isAnyForced() const;
    [[nodiscard]] bool isControlUnderWay() const;
    [[nodiscard]] bool isUndisturbed(Duration now) const;
    [[nodiscard]] bool isAskedBack(Duration now) const;
    [[nodiscard]] bool isReleasedMeanwhile() const;
    [[nodiscard]] bool isSilent(Duration now) const;
    [[nodiscard]] const Command* undisturbedCommand() const;
    [[nodiscard]] bool isCommandsOwn(const Fan& fan) const;
    [[nodiscard]] bool isBeingClaimed(const Fan& fan, Duration now) const;
    void endWatch(Duration time);
    void noteControl(Duration time, const Call& call);
    void noteWatch(Duration time, const Call& call);
    void noteOvertaken(Duration time, std::size_t index);
    void noteForceRequest(std::size_t index, const SMCAccess& access, bool isRefused);
    void noteReleaseRequest(std::size_t index, const SMCAccess& access, bool isRefused);
    void noteReading(Fan& fan, std::string_view kind, const SMCAccess& access);
    void noteAnswer(const Command& command, const Reply& reply, Duration time);
    void loseOvertaken();

    void judgeWrite(const SMCAccess& access);
    void judgeTarget(Fan& fan, const SMCAccess& access);
    void judgeFan(std::size_t index, const Fan& fan, Duration now);
    void judgeHeat(std::size_t index, const Fan& fan, Duration now);
    void judgeSilence(std::size_t index, const Fan& fan, Duration now);
    void judgeReason(std::size_t index, const SMCAccess& access);
    void judgeApplied(const Command& command, const Reply& reply, Duration now);
    void judgeTargets(const Reply& reply, Duration now);
    void judgeState(const Command& question, const Reply& reply, Duration now);
    void judgeListening(Duration time);
    void judgeForceTest(Duration now, const SimulatedMac& mac);

    const Scenario& scenario;
    Duration perFan{};         ///< 10 s for each fan
    bool canBeHot = false;     ///< any temperature reaches the ceiling
    bool isReadWhole = false;  ///< every temperature and fan, at all times
    bool isHeatShown = false;  ///< the daemon can read every temperature
    bool isHonest = false;     ///< the machine does what it says, and nothing by itself
    std::vector<Fan> fans;
    std::size_t countedFans = 0;  ///< how many the SMC told of when the daemon started
    DriverClock clock;
    HeldFans heldFans;
    bool isRunning = false;
    bool isListening = false;
    std::optional<Mark> exiting;  ///< since when
    /// Since when nobody watches: no command has come since.
    std::optional<Mark> watchEnded;
    bool isPlanless = true;            ///< since a release, or a plan without fans
    std::optional<Mark> lastRelease;   ///< as watchEnded, whatever came since
    std::set<std::size_t> latecomers;  ///< asked to be forced after it, without a command
    std::size_t claimsUnderWay = 0;    ///< when it came, as far as can be seen
    bool hasBegunRelease = false;      ///< a fan was asked to go back since
    bool wasOvertaken = false;         ///< by any claim
    bool isUndone = false;             ///< the plan, by a release that no one asked for
    bool wasReleasedUnderWay = false;  ///< by a safety check, during a command
    std::optional<Mark> hotSince;      ///< above the ceiling, as the machine knows it
    std::optional<Mark> lastRefusal;
    std::optional<Mark> lastForceRefusal;  ///< of a 1 for a mode key
    bool hasLoweredForceTest = false;      ///< by the last write of "Ftst"
    Mark lastWrite{};
    Mark lastWatch{};                 ///< heartbeat or command
    Mark lastCommand{};               ///< that controls fans, or its answer
    Duration lastHeartbeat{};         ///< or command, by when it was sent
    std::optional<Mark> longSilence;  ///< the end of the last that was too long
    double clockBack = 0;             ///< seconds, since lastWatch
    double clockForward = 0;
    std::map<std::uint64_t, Command> commands;  ///< not answered yet
    std::set<std::string> strangers;
    std::optional<Violation> first;
    std::array<std::uint64_t, sometimes.size()> counters{};
    std::uint64_t trace = 14695981039346656037U;
};

}  // namespace airflow::simulation
