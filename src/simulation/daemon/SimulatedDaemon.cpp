#include "simulation/daemon/SimulatedDaemon.h"

#include "daemon/LogLines.h"

namespace airflow::simulation {

SimulatedDaemon::SimulatedDaemon(SimulatedMac& mac, sensors::LogSink& standardError,
                                 const Options& options)
    : runtime(options.chooser ? options.chooser : SimulatedRuntime::chooserFor(options.seed)),
      process(runtime),
      listener(runtime),
      log(standardError),
      metBug(options.metBug),
      machine(mac),
      hardware(runtime, mac, standardError, options.snapshotTaken),
      daemon({.runtime = runtime,
              .hardware = hardware,
              .process = process,
              .listener = listener,
              .standardError = standardError,
              .effectiveUserID = [userID = options.effectiveUserID] { return userID; },
              .published = options.published,
              .guarded = options.guarded,
              .evaluating = options.evaluating}) {
    if (metBug) runtime.reportStops(*this);
    runtime.leap(options.time);
    runtime.jumpDate(options.dateOffset);
    mac.hidWaiter = [this](concurrency::Duration until) {
        runtime.holdJobUntil(concurrency::Instant(until));
    };
    (void)mac.smc().takeLatency();  // nobody waits any more for what an earlier life asked
}

SimulatedDaemon::~SimulatedDaemon() {
    machine.hidWaiter = {};
    runtime.abandon();
}

void SimulatedDaemon::start() {
    runtime.detach("start-up", daemon.startUp());
}

void SimulatedDaemon::stop(std::string_view violation) {
    log.write(daemon::logLine(violation));
    process.abort();
}

void SimulatedDaemon::processStops(std::string_view violation) noexcept {
    if (process.end()) return;  // a destructor, or whoever caught the first one
    stop(violation);
    metBug(violation);
}

}  // namespace airflow::simulation
