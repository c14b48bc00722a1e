// StandardOutput: where the preview's lines go when nobody wants them elsewhere.
#pragma once

#include <cstdio>

#include "sensors/LogSink.h"

namespace airflow::control {

class StandardOutput final : public sensors::LogSink {
public:
    void write(std::string_view line) override {
        (void)std::fwrite(line.data(), 1, line.size(), stdout);  // a lost line harms nothing
        (void)std::fflush(stdout);
    }
};

}  // namespace airflow::control
