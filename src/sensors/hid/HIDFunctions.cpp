#include "sensors/hid/HIDFunctions.h"

#include <utility>

namespace airflow::sensors {

HIDFunctions::HIDFunctions(std::string libraryPath)
    : library(std::move(libraryPath)),
      clientCreate(library, "IOHIDEventSystemClientCreate"),
      clientSetMatching(library, "IOHIDEventSystemClientSetMatching"),
      clientCopyServices(library, "IOHIDEventSystemClientCopyServices"),
      serviceCopyProperty(library, "IOHIDServiceClientCopyProperty"),
      serviceCopyEvent(library, "IOHIDServiceClientCopyEvent"),
      eventGetFloatValue(library, "IOHIDEventGetFloatValue") {}

HIDFunctions::HIDFunctions(Table table)
    : library(std::string()),
      clientCreate(std::move(table.clientCreate)),
      clientSetMatching(std::move(table.clientSetMatching)),
      clientCopyServices(std::move(table.clientCopyServices)),
      serviceCopyProperty(std::move(table.serviceCopyProperty)),
      serviceCopyEvent(std::move(table.serviceCopyEvent)),
      eventGetFloatValue(std::move(table.eventGetFloatValue)) {}

bool HIDFunctions::isAvailable() const {
    return clientCreate.isResolved() && clientSetMatching.isResolved() &&
           clientCopyServices.isResolved() && serviceCopyProperty.isResolved() &&
           serviceCopyEvent.isResolved() && eventGetFloatValue.isResolved();
}

}  // namespace airflow::sensors
