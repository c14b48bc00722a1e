// ScenarioReleases: how often fans went back to Auto in a scenario, and why.
//
// The authority on whether is the machine; why is gathered from what happened around it, and from
// the cause that a published state gives. Texts for people are not read.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "simulation/scenario/ScenarioObserver.h"

namespace airflow::tool {

/// Is told what an observer of the scenario is told, in the same order.
class ScenarioReleases {
public:
    void access(const simulation::SMCAccess& access);
    void modeChanged(concurrency::Duration time, std::size_t fan, simulation::FanMode mode);
    void published(concurrency::Duration time, const control::ControlState& state);
    void called(concurrency::Duration time, simulation::Call::Method method);
    void replied(concurrency::Duration time, simulation::Call::Method method);

    /// Something besides a command gives all fans back: the end of a connection, a signal. The
    /// release that it causes ends with a state that is published.
    void ending(concurrency::Duration time, std::string cause);
    /// A new process, which knows of no commands.
    void started(concurrency::Duration time);

    /// Every change of a fan from forced to Auto so far, by cause.
    [[nodiscard]] std::map<std::string, int> finish();

private:
    using Method = simulation::Call::Method;

    struct Fan {
        bool isForced = false;
        bool hasRefused = false;       ///< to go back, since it was forced
        std::int64_t forcedAfter = 0;  ///< commands
    };
    struct Command {
        Method method;
        std::int64_t number;
    };
    struct Release {
        std::string cause;
        /// The safety check that is published later on explains it better.
        bool mayBeSafety = false;
    };

    [[nodiscard]] Release explain(const Fan& fan) const;
    void settle(concurrency::Duration now);
    void countAll();

    std::map<std::size_t, Fan> fans;
    std::optional<std::string> underWay;  ///< besides the commands
    std::vector<Command> inFlight;        ///< those that can give fans back
    std::int64_t commands = 0;
    std::optional<std::size_t> changed;  ///< this fan, just now, by whom the next access tells
    std::vector<Release> open;           ///< not counted yet
    /// Since the last of them. A safety check is published right after the state that its release
    /// left.
    std::optional<concurrency::Duration> publishedAt;
    std::map<std::string, int> counts;
};

}  // namespace airflow::tool
