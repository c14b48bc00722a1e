// Monitor: judges one property of a run, or a few that belong together.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <utility>

#include "simulation/oracle/Properties.h"
#include "simulation/oracle/RunModel.h"

namespace airflow::simulation {

/// Is told what happens when the model has heard of it; of the end of a process before.
class Monitor {
public:
    using Duration = concurrency::Duration;
    using Mark = DriverClock::Mark;
    using Fail = std::function<void(Property, Duration, std::string)>;

    /// The model outlives the monitor.
    Monitor(const RunModel& judged, Fail told) : run(judged), tell(std::move(told)) {}
    Monitor(const Monitor&) = delete;
    Monitor& operator=(const Monitor&) = delete;
    virtual ~Monitor() = default;

    virtual void requested(const SMCAccess&) {}
    /// A mode key of a fan was to be written 1.
    virtual void askedToForce(std::size_t /*fan*/, Duration) {}
    /// A mode key of a fan was to be written 0.
    virtual void askedToRelease(std::size_t /*fan*/, Duration) {}
    /// A state is published; the model hears of it next.
    virtual void telling(Duration, const control::ControlState&) {}
    virtual void published(Duration, const control::ControlState&) {}
    /// A command came, or a question.
    virtual void called(Duration, const Call&) {}
    virtual void answered(Duration, const RunModel::Command&, const Reply&) {}
    /// An answer to no command, or a second one.
    virtual void answeredInVain(Duration, const Reply&) {}
    /// Something is a reason to give every fan back: a command, the end of a connection, a signal.
    virtual void reasonArose(Duration) {}
    virtual void looked(Duration, SimulatedMac&) {}
    virtual void started(Duration) {}
    virtual void listening(Duration) {}
    virtual void exitBegan(Duration) {}
    virtual void guarded(Duration) {}
    virtual void signalled(Duration, daemon::Signal) {}
    virtual void ended(const ProcessEnd&) {}

protected:
    void fail(Property property, Duration time, std::string what) const {
        tell(property, time, std::move(what));
    }

    const RunModel& run;

private:
    Fail tell;
};

}  // namespace airflow::simulation
