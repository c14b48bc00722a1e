#include "platform/macos/AppleSMCUserClient.h"

#include <IOKit/IOKitLib.h>
#include <IOKit/IOReturn.h>
#include <mach/mach.h>

#include <cstddef>
#include <type_traits>

namespace airflow::platform {

// The seam's own types and constants are the kernel's.
static_assert(std::is_same_v<std::uint32_t, io_service_t>);
static_assert(std::is_same_v<std::uint32_t, io_connect_t>);
static_assert(std::is_same_v<smc::KernelReturn, kern_return_t>);
static_assert(smc::kernelSuccess == KERN_SUCCESS);
static_assert(smc::kernelNotPrivileged == kIOReturnNotPrivileged);

std::uint32_t AppleSMCUserClient::findService(const std::string& className) {
    // The look-up consumes the dictionary. MACH_PORT_NULL is the main port, whatever the name that
    // a version of the system has for it.
    return IOServiceGetMatchingService(MACH_PORT_NULL, IOServiceMatching(className.c_str()));
}

smc::KernelReturn AppleSMCUserClient::open(std::uint32_t service, std::uint32_t type,
                                           std::uint32_t& connection) {
    return IOServiceOpen(service, mach_task_self(), type, &connection);
}

void AppleSMCUserClient::release(std::uint32_t service) {
    (void)IOObjectRelease(service);  // fails only for what is no object, which we were given as one
}

smc::KernelReturn AppleSMCUserClient::call(std::uint32_t connection, std::uint32_t method,
                                           const smc::SMCParamStruct& request,
                                           smc::SMCParamStruct& reply) {
    std::size_t replySize = sizeof reply;
    return IOConnectCallStructMethod(connection, method, &request, sizeof request, &reply,
                                     &replySize);
}

void AppleSMCUserClient::close(std::uint32_t connection) {
    (void)IOServiceClose(connection);  // the handle is gone either way
}

}  // namespace airflow::platform
