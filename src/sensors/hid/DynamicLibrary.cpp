#include "sensors/hid/DynamicLibrary.h"

#include <dlfcn.h>

namespace airflow::sensors {

void* DynamicLibrary::find(const char* symbol) const {
    std::call_once(opened, [this] { handle = dlopen(path.c_str(), RTLD_NOW); });
    return handle ? dlsym(handle, symbol) : nullptr;
}

}  // namespace airflow::sensors
