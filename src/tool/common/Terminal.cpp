#include "tool/common/Terminal.h"

#include <unistd.h>

#include <cstdlib>
#include <string_view>

namespace airflow::tool {

namespace {

std::string_view environment(const char* name) {
    const char* const value = std::getenv(name);
    return value ? value : "";
}

}  // namespace

bool mayUseEscapes() {
    return environment("TERM") != "dumb" && environment("NO_COLOR").empty();
}

bool canDrawInPlace(int descriptor) {
    return isatty(descriptor) == 1 && mayUseEscapes();
}

}  // namespace airflow::tool
