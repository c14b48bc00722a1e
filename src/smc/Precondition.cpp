#include "smc/Precondition.h"

#include <fmt/format.h>

#include <cstdio>
#include <cstdlib>

namespace airflow::smc {

void stopProcess(std::string_view violation) {
    fmt::print(stderr, "{}\n", violation);
    std::abort();
}

}  // namespace airflow::smc
