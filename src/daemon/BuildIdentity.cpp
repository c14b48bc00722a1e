#include "daemon/BuildIdentity.h"

namespace airflow::daemon {

constinit const std::string_view BuildIdentity::text = "1.0.3+6";

}  // namespace airflow::daemon
