// WatchView: what a watcher of the daemon and its machine gets to see. No input or output.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "control/ControlState.h"

namespace airflow::tool {

/// What can be seen of the machine itself.
struct MachineSight {
    struct Fan {
        std::int64_t id = 0;
        double rpm = 0;
        std::optional<double> maxRPM{};
        std::string mode{};
    };

    std::vector<Fan> fans{};
    std::vector<std::pair<std::string, double>> temperatures{};  ///< names and °C
};

/// All that one look gives.
struct Sight {
    double seconds = 0;  ///< since the watch began
    std::optional<control::ControlState> state{};
    std::string trouble{};  ///< why there is no state
    std::optional<MachineSight> machine{};
};

class WatchView {
public:
    void add(Sight sight);

    /// The last sight, a line for each fan and temperature: at most `rows` lines, none longer than
    /// `columns` characters.
    [[nodiscard]] std::vector<std::string> frame(std::size_t columns, std::size_t rows) const;
    /// The last sight in one line.
    [[nodiscard]] std::string line() const;

private:
    Sight last;
    /// By temperature: the newest readings, the oldest first.
    std::map<std::string, std::vector<double>> readings;
};

/// A bar of 20 characters, filled as far as `share`, from 0 to 1, says.
[[nodiscard]] std::string barText(double share);
/// A character for each temperature: one step is 10 °C, the lowest everything below 40 °C, the
/// highest 100 °C and more.
[[nodiscard]] std::string sparkline(const std::vector<double>& celsius);

}  // namespace airflow::tool
