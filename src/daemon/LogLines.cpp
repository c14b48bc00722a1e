#include "daemon/LogLines.h"

namespace airflow::daemon {

constinit const std::string_view machServiceName = "com.brisquell.helper";

std::string logLine(std::string_view text) {
    std::string line = "[";
    line += machServiceName;
    line += "] ";
    line += text;
    line += '\n';
    return line;
}

}  // namespace airflow::daemon
