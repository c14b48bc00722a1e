#include "daemon/Daemon.h"

#include <fmt/format.h>

#include <string>
#include <utility>

#include "daemon/BuildIdentity.h"
#include "daemon/LogLines.h"

namespace airflow::daemon {

using concurrency::Task;

Daemon::Daemon(Platform given)
    : platform(std::move(given)),
      safetyHandlers(platform.runtime, platform.process, platform.standardError) {}

Task<void> Daemon::startUp() {
    const auto opened = co_await platform.hardware.open();
    if (!opened) {
        co_await fail("failed to open AppleSMC: " + opened.error().description());
        co_return;
    }
    buildController();
    safetyHandlers.arm(controller, &platform.hardware.smc());
    safetyHandlers.installSafetyHandlers();
    const auto failure = co_await controller->restoreAllFansToAutomatic();
    if (safetyHandlers.isExiting()) co_return;  // a signal has come, which ends the process
    if (failure) {
        co_await fail("startup Auto recovery failed: " + *failure);
        co_return;
    }
    listen();
}

/// Does not return to what called it: the process ends.
Task<void> Daemon::fail(std::string reason) {
    platform.standardError.write(logLine(reason));
    co_await platform.process.exit(1);
}

void Daemon::buildController() {
    controller = std::make_shared<control::LocalFanController>(
        platform.runtime, platform.hardware.smc(), platform.hardware.sensors(),
        platform.effectiveUserID);
    guard.emplace(
        platform.runtime, platform.hardware.smc(),
        [this](control::ControlError cause,
               std::vector<control::ControlledFans::Request> givenBack) {
            platform.runtime.detach(
                "release of the guard",
                controller->releaseForSafety(std::move(cause), std::move(givenBack)));
        },
        [this](control::ControlledFans::Request after) {
            platform.runtime.detach("fan of the guard", controller->noteGivenBack(after));
        },
        [this] { return controller->lastRequest(); });
    guard->acting = platform.guarded;
    controller->checked = [this] { guard->checked(); };
    controller->evaluating = platform.evaluating;
    // A stream keeps what nobody reads, so one that nobody is told of is closed, which ends the
    // task.
    if (!platform.published) controller->stateStream().close();
    platform.runtime.detach("states", tellStates(controller, platform.published));
}

Task<void> Daemon::tellStates(std::shared_ptr<control::LocalFanController> controller,
                              std::function<void(const control::ControlState&)> published) {
    for (;;) {
        const auto state = co_await controller->stateStream().next();
        if (!state) co_return;
        published(*state);
    }
}

void Daemon::listen() {
    safetyHandlers.noteServing();
    attendance.emplace(platform.hardware.smc(), *guard);
    service.emplace(platform.runtime, platform.process, controller, &*attendance);
    delegate.emplace(*service);
    platform.listener.resume(*delegate);
    guard->begin();
    platform.standardError.write(
        logLine(fmt::format("listening on {} (build {})", machServiceName, BuildIdentity::text)));
}

}  // namespace airflow::daemon
