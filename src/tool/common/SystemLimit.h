// SystemLimit: how it is told that the system gives this process no more of something.
#pragma once

namespace airflow::tool {

inline constexpr const char* noDescriptorLeft =
    "the system's limit of open files is reached (ulimit -n)";

}  // namespace airflow::tool
