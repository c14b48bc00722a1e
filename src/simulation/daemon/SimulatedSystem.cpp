#include "simulation/daemon/SimulatedSystem.h"

#include <utility>

namespace airflow::simulation {

SimulatedSystem::SimulatedSystem(MachineDescription machine, Options options)
    : runtime(options.seed),
      mac(std::move(machine), [this] { return elapsed(); },
          {.jitter = options.jitter, .seed = options.seed}),
      effectiveUserID(options.effectiveUserID),
      connection(runtime, mac.smc()),
      smc(runtime, connection, mac.smc()),
      hidFunctions(mac.hidFunctions()),
      bridge(hidFunctions, mac.hid(), runtime),
      sensors(runtime, smc, bridge, standardError),
      controller(std::make_shared<control::LocalFanController>(
          runtime, smc, sensors, [this] { return effectiveUserID; })) {
    mac.hidWaiter = [this](concurrency::Duration until) {
        runtime.holdJobUntil(concurrency::Instant(until));
    };
    (void)runtime.run(connection.open());  // what cannot be opened cannot be read: a scenario too
}

SimulatedSystem::~SimulatedSystem() {
    runtime.abandon();
}

}  // namespace airflow::simulation
