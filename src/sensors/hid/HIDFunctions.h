// HIDFunctions: the six functions of the HID event system that reading temperatures needs. They are
// not part of the public interface of the system, so they are looked up by name and may be missing.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "sensors/hid/DynamicLibrary.h"
#include "sensors/hid/HIDObjects.h"

namespace airflow::sensors {

/// Looked up lazily and independently of each other. Any thread may ask what is available; the
/// functions themselves are called on one thread at a time.
///
/// A function named Create or Copy returns a reference that the caller releases, or nothing.
class HIDFunctions {
public:
    static constexpr const char* frameworkPath = "/System/Library/Frameworks/IOKit.framework/IOKit";

    explicit HIDFunctions(std::string libraryPath = frameworkPath);

    /// Functions of a HID event system that is not the system's own; empty ones are missing.
    struct Table {
        std::function<HIDObject(HIDObject)> clientCreate;
        std::function<void(HIDObject, HIDObject)> clientSetMatching;
        std::function<HIDObject(HIDObject)> clientCopyServices;
        std::function<HIDObject(HIDObject, HIDObject)> serviceCopyProperty;
        std::function<HIDObject(HIDObject, std::int64_t, std::int32_t, std::int64_t)>
            serviceCopyEvent;
        std::function<double(HIDObject, std::int32_t)> eventGetFloatValue;
    };
    explicit HIDFunctions(Table table);
    HIDFunctions(const HIDFunctions&) = delete;
    HIDFunctions& operator=(const HIDFunctions&) = delete;

    /// Whether all six are there. Looks them up in the order below, up to the first missing one.
    [[nodiscard]] bool isAvailable() const;

private:
    DynamicLibrary library;

public:
    /// (allocator, nothing for the default one)
    DynamicFunction<HIDObject(HIDObject)> clientCreate;
    /// (client, matching dictionary)
    DynamicFunction<void(HIDObject, HIDObject)> clientSetMatching;
    /// (client): an array of services
    DynamicFunction<HIDObject(HIDObject)> clientCopyServices;
    /// (service, property name)
    DynamicFunction<HIDObject(HIDObject, HIDObject)> serviceCopyProperty;
    /// (service, event type, options, time stamp)
    DynamicFunction<HIDObject(HIDObject, std::int64_t, std::int32_t, std::int64_t)>
        serviceCopyEvent;
    /// (event, field)
    DynamicFunction<double(HIDObject, std::int32_t)> eventGetFloatValue;
};

}  // namespace airflow::sensors
