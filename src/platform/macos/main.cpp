// The daemon on a Mac.
#include <dispatch/dispatch.h>
#include <unistd.h>

#include <memory>

#include "concurrency/Roots.h"
#include "daemon/Daemon.h"
#include "platform/macos/AppleSMCUserClient.h"
#include "platform/macos/CoreFoundationObjects.h"
#include "platform/macos/DispatchProcess.h"
#include "platform/macos/DispatchRuntime.h"
#include "platform/macos/XPCListener.h"
#include "platform/posix/StandardDescriptors.h"
#include "platform/posix/StandardError.h"

namespace airflow {
namespace {

/// Everything that lives as long as the process. Never destroyed: tasks and exit handlers refer to
/// it to the very end.
struct HelperProcess {
    daemon::DaemonProcess& process = platform::dispatchProcess();
    platform::DispatchRuntime runtime;
    platform::StandardError standardError;
    platform::AppleSMCUserClient userClient;
    sensors::HIDFunctions hidFunctions;
    platform::CoreFoundationObjects hidObjects;
    daemon::MachineHardware hardware{runtime, userClient, hidFunctions, hidObjects, standardError};
    std::unique_ptr<daemon::Listener> listener = platform::makeXPCListener();
    daemon::Daemon daemon{{.runtime = runtime,
                           .hardware = hardware,
                           .process = process,
                           .listener = *listener,
                           .standardError = standardError,
                           .effectiveUserID = &geteuid}};
    concurrency::Roots startUp;
};

}  // namespace
}  // namespace airflow

int main() {
    airflow::platform::openStandardDescriptors();
    airflow::platform::beginLastLineAsTheLog();
    auto& helper = *new airflow::HelperProcess;
    helper.startUp.start(helper.runtime.makeMainExecutor(), nullptr, helper.daemon.startUp());
    dispatch_main();
}
