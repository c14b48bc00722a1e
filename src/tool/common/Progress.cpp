#include "tool/common/Progress.h"

#include <fmt/format.h>

#include <algorithm>
#include <ostream>
#include <utility>

#include "text/Text.h"

namespace airflow::tool {

namespace {

using namespace std::chrono_literals;

constexpr auto delay = 2s;
constexpr auto interval = 1s;

}  // namespace

Progress::Progress(std::ostream& to, bool isShown, std::function<Clock::time_point()> clock)
    : terminal(to), isShown(isShown), now(std::move(clock)), start(now()), next(start + delay) {}

Progress::~Progress() {
    hide();
}

bool Progress::isDue() const {
    return isShown && now() >= next;
}

void Progress::tell(double share, std::string_view what) {
    if (!isDue()) return;
    const auto moment = now();
    next = moment + interval;
    const std::chrono::duration<double> taken = moment - start;
    std::string line(what);
    if (share > 0) line += ", " + roughly(taken * ((1 - std::min(share, 1.0)) / share)) + " left";
    hide();
    drawn = text::columnsOf(line);
    terminal << line << std::flush;
}

void Progress::hide() {
    if (drawn == 0) return;
    terminal << '\r' << std::string(std::exchange(drawn, 0), ' ') << '\r' << std::flush;
}

std::string roughly(std::chrono::duration<double> duration) {
    const double seconds = duration.count();
    if (seconds < 90) return fmt::format("{:.0f} s", seconds);
    if (seconds < 90 * 60) return fmt::format("{:.0f} min", seconds / 60);
    return fmt::format("{:.1f} h", seconds / 3600);
}

}  // namespace airflow::tool
