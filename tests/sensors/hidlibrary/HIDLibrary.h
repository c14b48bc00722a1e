// HIDLibrary: the control side of a shared library that stands in for the HID event system.
//
// The library exports the six functions under their real names and counts references as the real
// system does. Nothing is freed while it is in use, so that a use after the last release is counted
// instead of being undefined.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "sensors/hid/HIDObjects.h"

namespace airflow::tests {

/// What the machine has, and what was done to it. Also the objects of this system.
class HIDLibrary : public sensors::HIDObjects {
public:
    using Product = std::variant<std::monostate, std::string, std::int64_t>;

    struct Service {
        Product product;
        /// What the service answers in turn, from the start again after the last; nothing is a
        /// moment without an event.
        std::vector<std::optional<double>> events;
    };

    struct Machine {
        std::vector<Service> services;
        bool givesClient = true;
        bool givesServices = true;
    };

    struct Record {
        std::vector<std::string> lookUps;  ///< the functions that were found, in order
        std::vector<std::string> calls;    ///< of the six functions, with their plain arguments
        std::map<std::string, std::int64_t> matching;  ///< of the last client
        int makes = 0;                                 ///< calls of makeDictionary and makeText
        int overReleases = 0;                          ///< references given back that were not held
        int usesAfterRelease = 0;  ///< of any object, and of services whose client is gone
    };

    /// Starts over with another machine and an empty record.
    virtual void install(Machine machine) = 0;
    [[nodiscard]] virtual const Record& record() const = 0;
    /// Objects that somebody still holds.
    [[nodiscard]] virtual int liveObjects() const = 0;
};

/// The library's one C function beside the six.
inline constexpr const char* hidLibrarySymbol = "airflowTestsHIDLibrary";
using HIDLibraryFunction = HIDLibrary*();

}  // namespace airflow::tests
