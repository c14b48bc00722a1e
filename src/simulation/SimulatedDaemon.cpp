#include "simulation/SimulatedDaemon.h"

namespace airflow::simulation {

SimulatedDaemon::SimulatedDaemon(SimulatedMac& mac, sensors::LogSink& standardError,
                                 const Options& options)
    : runtime(options.chooser ? options.chooser : SimulatedRuntime::chooserFor(options.seed)),
      process(runtime),
      listener(runtime),
      hardware(runtime, mac, standardError),
      daemon({.runtime = runtime,
              .hardware = hardware,
              .process = process,
              .listener = listener,
              .standardError = standardError,
              .effectiveUserID = [userID = options.effectiveUserID] { return userID; },
              .published = options.published}) {
    runtime.leap(options.time);
    runtime.jumpDate(options.dateOffset);
    (void)mac.smc().takeLatency();  // nobody waits any more for what an earlier life asked
}

SimulatedDaemon::~SimulatedDaemon() {
    runtime.abandon();
}

void SimulatedDaemon::start() {
    runtime.detach("start-up", daemon.startUp());
}

}  // namespace airflow::simulation
