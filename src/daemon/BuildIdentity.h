// BuildIdentity: which build of the daemon this is. Clients compare the text byte for byte.
#pragma once

#include <cstdint>
#include <string_view>

namespace airflow::daemon::BuildIdentity {

inline constexpr std::string_view version = "1.0.3";
inline constexpr std::int64_t build = 6;
/// Version, plus sign, build.
extern const std::string_view text;

}  // namespace airflow::daemon::BuildIdentity
