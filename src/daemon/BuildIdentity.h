// BuildIdentity: which build of the daemon this is. A client compares it with its own.
#pragma once

#include <string_view>

namespace airflow::daemon::BuildIdentity {

inline constexpr std::string_view version = "1.0.3";
inline constexpr int build = 6;
/// Version and build as the daemon prints and answers them.
inline constexpr std::string_view text = "1.0.3+6";

}  // namespace airflow::daemon::BuildIdentity
