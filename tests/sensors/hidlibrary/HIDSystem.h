// HIDSystem: a bridge over the stand-in HID library, and the demand that it left nothing behind.
#pragma once

#include <gtest/gtest.h>

#include <optional>

#include "sensors/hid/HIDBridge.h"
#include "sensors/hidlibrary/LoadedHIDLibrary.h"
#include "simulation/runtime/SimulatedRuntime.h"

namespace airflow::tests {

/// Declared before whatever keeps a discovery.
class HIDSystem {
public:
    /// A machine whose library lacks the function `missing`, if one is named.
    HIDSystem(concurrency::Runtime& runtime, HIDLibrary::Machine machine,
              const std::string& missing = {})
        : library(loadHIDLibrary(hidLibraryPath(missing), std::move(machine))),
          functions(hidLibraryPath(missing)),
          bridge(std::in_place, functions, library, runtime) {}
    ~HIDSystem() {
        bridge.reset();
        EXPECT_EQ(library.liveObjects(), 0);
        EXPECT_EQ(library.record().overReleases, 0);
        EXPECT_EQ(library.record().usesAfterRelease, 0);
    }

    HIDLibrary& library;
    sensors::HIDFunctions functions;
    std::optional<sensors::HIDBridge> bridge;
};

}  // namespace airflow::tests
