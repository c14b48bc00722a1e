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
    std::shared_ptr<Attendance::Visit> visit;
    if (Attendance* const clients = service.clients()) {
        visit = std::make_shared<Attendance::Visit>(*clients);
    }
    const auto restoreAuto = [&runtime = service.taskRuntime(),
                              controller = service.fanController()] {
        runtime.detach("end of a connection", restore(controller));
    };
    connection.exportService(service);
    connection.setCodeSigningRequirement(codeSigningRequirement);
    // The visit ends first, so that nothing forces a fan between the end of the last connection and
    // the release.
    connection.setInvalidationHandler([visit, restoreAuto] {
        if (visit) visit->end();
        restoreAuto();
    });
    connection.setInterruptionHandler([visit, restoreAuto] {
        if (visit) visit->interrupt();
        restoreAuto();
    });
    connection.resume();
    return true;
}

}  // namespace airflow::daemon
