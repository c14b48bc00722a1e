// RecordedLines: a standard error that a test can read.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "sensors/LogSink.h"

namespace airflow::simulation {

/// Keeps the lines that are written to it, and tells a listener, if there is one.
class RecordedLines final : public sensors::LogSink {
public:
    void write(std::string_view line) override {
        lines.emplace_back(line);
        if (listener) listener(line);
    }

    std::vector<std::string> lines;
    std::function<void(std::string_view)> listener;
};

}  // namespace airflow::simulation
