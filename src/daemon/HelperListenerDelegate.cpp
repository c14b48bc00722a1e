#include "daemon/HelperListenerDelegate.h"

#include <memory>
#include <utility>

namespace airflow::daemon {

namespace {

/// Holds the controller, not the connection, so that an ended connection can go.
concurrency::Task<void> restore(std::shared_ptr<control::LocalFanController> controller) {
    (void)co_await controller->restoreAuto();  // what cannot be given back is tried again by itself
}

}  // namespace

bool HelperListenerDelegate::shouldAccept(Connection& connection) {
    const auto restoreAuto = [&runtime = service.taskRuntime(),
                              controller = service.fanController()] {
        runtime.detach("end of a connection", restore(controller));
    };
    connection.exportService(service);
    connection.setCodeSigningRequirement(codeSigningRequirement);
    connection.setInvalidationHandler(restoreAuto);
    connection.setInterruptionHandler(restoreAuto);
    connection.resume();
    return true;
}

}  // namespace airflow::daemon
