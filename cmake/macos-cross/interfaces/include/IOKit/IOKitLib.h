// What the daemon uses of IOKit: finding a driver, opening it, and calling it.
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/IOReturn.h>
#include <mach/mach.h>
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef mach_port_t io_object_t;
typedef io_object_t io_connect_t;
typedef io_object_t io_service_t;

/// Consumed by the look-up that it is given to.
CFMutableDictionaryRef IOServiceMatching(const char* className);
io_service_t IOServiceGetMatchingService(mach_port_t mainPort, CFDictionaryRef matching);
kern_return_t IOServiceOpen(io_service_t service, task_port_t owner, uint32_t type,
                            io_connect_t* connection);
kern_return_t IOServiceClose(io_connect_t connection);
kern_return_t IOObjectRelease(io_object_t object);
kern_return_t IOConnectCallStructMethod(mach_port_t connection, uint32_t method, const void* input,
                                        size_t inputSize, void* output, size_t* outputSize);

#ifdef __cplusplus
}
#endif
