// LoadedHIDLibrary: finds the variants of the stand-in HID library and their control side.
#pragma once

#include <dlfcn.h>

#include <string>

#include "concurrency/Require.h"
#include "sensors/hidlibrary/HIDLibrary.h"

namespace airflow::tests {

/// The path of the variant that lacks `function`; of the complete library without an argument.
inline std::string hidLibraryPath(const std::string& function = {}) {
    const std::string name = function.empty() ? "hidlibrary" : "hidlibrary_without_" + function;
    return std::string(AIRFLOW_HID_LIBRARIES) + "/" + name + ".so";
}

/// The control side of the library at `path`, which has just started with `machine`.
inline HIDLibrary& loadHIDLibrary(const std::string& path, HIDLibrary::Machine machine) {
    void* const handle = dlopen(path.c_str(), RTLD_NOW);
    concurrency::require(handle != nullptr, "the stand-in HID library loads");
    void* const symbol = dlsym(handle, hidLibrarySymbol);
    concurrency::require(symbol != nullptr, "the stand-in HID library has its control side");
    HIDLibrary& library = *reinterpret_cast<HIDLibraryFunction*>(symbol)();
    library.install(std::move(machine));
    return library;
}

}  // namespace airflow::tests
