// FanGuard: the second line of defence. It gives fans back that nobody watches, whatever the
// controller believes, and whatever the controller, the sensors or a client wait for.
//
// In an ordinary run it writes nothing; it reads mode keys once after the start and after a
// release.
#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "concurrency/Actor.h"
#include "concurrency/Runtime.h"
#include "control/ControlledFans.h"
#include "guard/FanWatch.h"
#include "guard/SMCGate.h"

namespace airflow::guard {

/// Sleeps while no fan may be forced. Otherwise it looks at its watch once a second, on an executor
/// of its own, and when the watch says so gives everything back and says why. The SMC is all that
/// it waits for.
class FanGuard final : public concurrency::Actor, public GateObserver {
public:
    /// Asks the controller to end what it holds. These fans were given back already, each after its
    /// request of this number. Must not block.
    using Release = std::function<void(control::ControlError cause,
                                       std::vector<control::ControlledFans::Request> givenBack)>;
    /// Tells the controller that the fan was given back after its request of this number. Must not
    /// block.
    using GivenBack = std::function<void(control::ControlledFans::Request after)>;
    /// The number of the controller's latest request. Called on the guard's executor.
    using LastRequest = std::function<std::uint64_t()>;

    /// Called, on the guard's executor, before it gives fans back. Set before the first request.
    std::function<void()> acting;

    /// Observes the gate from now on. Both outlive the guard.
    FanGuard(concurrency::Runtime& runtime, SMCGate& gate, Release release, GivenBack givenBack,
             LastRequest lastRequest);

    // Any thread may call these.
    void checked();
    void heard();
    /// Clients are served from now on: looks whether any fan was left forced.
    void begin();

    void wrote(const ModeWrite& write) override;
    void wroteForceTest(bool isRaised) override;
    void sawForced(std::int64_t fan, const std::string& key) override;
    void readTemperature() override;
    void driverBegins() override;
    void driverEnds() override;

private:
    using Duration = concurrency::Duration;

    void watchIfNeeded();
    static concurrency::Task<void> watchFans(FanGuard& guard);
    /// What is to be done now; counts the time since it was last called.
    struct Due {
        std::optional<control::ControlError> cause{};
        std::vector<FanWatch::Look> looks{};
        bool isOver = false;  ///< the watching
    };
    [[nodiscard]] Due lookAtWatch();
    concurrency::Task<void> look(FanWatch::Look look);
    struct Found {
        FanWatch::Finding finding = FanWatch::Finding::absent;
        std::string key{};  ///< the mode key that told
    };
    concurrency::Task<Found> find(FanWatch::Look look);
    /// Of each fan that the SMC took the controller's latest request before it.
    using Taken = std::vector<control::ControlledFans::Request>;
    concurrency::Task<Taken> giveBack(std::map<FanWatch::Fan, std::string> fans);
    [[nodiscard]] Duration busyUpTo(concurrency::Instant now) const;

    concurrency::Runtime& runtime;
    SMCGate& gate;
    const Release release;
    const GivenBack givenBack;
    const LastRequest lastRequest;
    mutable std::mutex mutex;  ///< of what follows
    FanWatch watch;
    bool isWatching = false;
    bool isForceTestRaised = false;
    bool hasBegun = false;  ///< before, start-up recovery deals with what an earlier process left
    Duration busy{};        ///< the driver, with requests that it has answered
    std::optional<concurrency::Instant> busySince;
    concurrency::Instant lastLook{};
    concurrency::Instant lastHeard{};
    Duration lastBusy{};
};

}  // namespace airflow::guard
