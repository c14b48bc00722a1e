// ControlledFans: what the controller knows of each fan, and the only functions that change it.
//
// A fan is put under control by forced() and given up by givenBack(). The controller tells both by
// its own request that the SMC has just answered: of a 1 and a 0 that it took for one fan the one
// that was queued later decides, because it answers in the order in which it is asked.
//
// The guard tells a 0 of its own by the number of the controller's latest request before it. Where
// the two run on threads of their own, one request of the controller may be queued on the other
// side of that 0 than its number says: a fan counts as held that is not, or the other way round.
// Then the hold loop claims the fan again, or the guard gives it back again, which looks at it
// 2 s later and leaves no forced fan to which nobody writes.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <utility>

#include "control/ControlMode.h"

namespace airflow::control {

class ControlledFans {
public:
    using Fan = std::int64_t;
    /// A write to a fan's mode key. The numbers of the controller's own ascend in the order in
    /// which they are queued; the guard's carry that of the controller's latest.
    struct Request {
        Fan fan = 0;
        std::uint64_t number = 0;
    };

    /// A 0 for the fan's mode key, which is queued before anything else can be.
    [[nodiscard]] Request beginRelease(Fan fan);
    /// The same for a 1: a 0 before it says nothing any more.
    [[nodiscard]] Request beginForcing(Fan fan);
    /// The number of the latest request. Any thread may call this.
    [[nodiscard]] std::uint64_t lastRequest() const { return lastNumber; }
    /// The SMC took the 1 of this request: the fan is under control, unless it has taken a later 0.
    /// What is refused afterwards, a 1 or a 0, takes nothing back.
    void forced(const Request& request);
    /// The SMC did not take the 1 of this request. A fan that was given back before it is not under
    /// control.
    void refusedToForce(const Request& request);
    /// The SMC took the 0 of this request, or one of the guard's after it: the fan is not under
    /// control any more, unless a later request forces it. Whether it was pending, and whether the
    /// plan held it stopped, stays.
    void givenBack(const Request& request);
    /// The same for the 0 of a release: the fan need not be given back any more.
    void released(const Request& request);
    /// The SMC did not take the 0 of this request: the fan has still to be given back, unless a
    /// later request has decided.
    void refusedToGoBack(const Request& request);

    /// A plan no longer manages this fan: it has to be given back.
    void handBack(Fan fan) { pendingAutoReleaseFans.insert(fan); }
    /// A plan manages this fan: it need not be given back any more.
    void keep(Fan fan) { pendingAutoReleaseFans.erase(fan); }
    /// How a fan that is under control is published. Does nothing for others.
    void setMode(Fan fan, ControlMode mode);
    /// The speed last written, in RPM, for a fan that is under control. Does nothing for others.
    void setTarget(Fan fan, double rpm);
    /// The fans that the plan holds stopped now.
    void setStopped(std::set<Fan> fans) { stoppedFans = std::move(fans); }
    void forgetStopped(Fan fan) { stoppedFans.erase(fan); }

    /// Forced, as far as the SMC's answers tell, and not given back since.
    [[nodiscard]] const std::set<Fan>& claimed() const { return claimedFans; }
    /// Still to be given back, whether claimed or not.
    [[nodiscard]] const std::set<Fan>& pending() const { return pendingAutoReleaseFans; }
    [[nodiscard]] const std::map<Fan, double>& targetsRPM() const { return targets; }
    [[nodiscard]] const std::map<Fan, ControlMode>& modes() const { return perFanMode; }
    [[nodiscard]] const std::set<Fan>& stopped() const { return stoppedFans; }
    /// Whether some fan is claimed that no retry gives back.
    [[nodiscard]] bool isAnyHeld() const;

private:
    void forget(Fan fan);
    [[nodiscard]] bool isLatest(const Request& request) const;

    std::set<Fan> claimedFans;
    std::set<Fan> pendingAutoReleaseFans;
    std::map<Fan, double> targets;
    std::map<Fan, ControlMode> perFanMode;
    std::set<Fan> stoppedFans;
    std::map<Fan, std::uint64_t> latestForcings;
    std::map<Fan, std::uint64_t> latestReleases;
    std::map<Fan, std::uint64_t> takenForcings;  ///< the latest 1 that the SMC took
    std::map<Fan, std::uint64_t> takenReleases;  ///< the latest 0 that it took
    std::atomic<std::uint64_t> lastNumber = 0;
};

}  // namespace airflow::control
