// ControlledFans: what the controller knows of each fan, and the only functions that change it.
//
// A fan is put under control by forced() and given up by givenBack(); both are told by the request
// that the SMC has just answered. Of two requests for one fan the one that was queued later
// decides, because the SMC answers in the order in which it is asked.
#pragma once

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
    /// A write to a fan's mode key.
    using Request = std::uint64_t;

    /// A request for the fan's mode key, which is queued before anything else can be.
    [[nodiscard]] Request begin(Fan fan);
    /// The same for one that forces the fan: a 0 before it says nothing any more.
    [[nodiscard]] Request beginForcing(Fan fan);
    /// The SMC took the 1 of this request: the fan is under control, unless a later request has
    /// decided.
    void forced(Fan fan, Request request);
    /// The SMC took the 0 of this request: the fan is not under control any more, unless a later
    /// request forces it. Whether it was pending, and whether the plan held it stopped, stays.
    void givenBack(Fan fan, Request request);
    /// The same for the 0 of a release: the fan need not be given back any more.
    void released(Fan fan, Request request);
    /// The SMC did not take the 0 of this request: the fan has still to be given back, unless a
    /// later request has decided.
    void refusedToGoBack(Fan fan, Request request);

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
    [[nodiscard]] bool isLatest(Fan fan, Request request) const;

    std::set<Fan> claimedFans;
    std::set<Fan> pendingAutoReleaseFans;
    std::map<Fan, double> targets;
    std::map<Fan, ControlMode> perFanMode;
    std::set<Fan> stoppedFans;
    std::map<Fan, Request> latestRequests;
    std::map<Fan, Request> latestForcings;
    Request lastRequest = 0;
};

}  // namespace airflow::control
