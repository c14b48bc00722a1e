// Progress: how far something long has come, for a person who waits for it.
#pragma once

#include <chrono>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>

namespace airflow::tool {

/// One line on a terminal, drawn over itself about once a second, from two seconds on. It is gone
/// when `hide` is called or the progress ends. For one thread at a time.
class Progress {
public:
    using Clock = std::chrono::steady_clock;

    /// Nothing is ever written unless `isShown`.
    Progress(std::ostream& terminal, bool isShown,
             std::function<Clock::time_point()> now = &Clock::now);
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    ~Progress();

    /// Whether the line would be drawn now, if there were something to say.
    [[nodiscard]] bool isDue() const;
    /// Draws the line if it is due: `what`, and the time left for the rest of the work, of which
    /// `share`, from 0 to 1, is done.
    void tell(double share, std::string_view what);
    /// Removes the line, so that something else can be written.
    void hide();

private:
    std::ostream& terminal;
    const bool isShown;
    const std::function<Clock::time_point()> now;
    const Clock::time_point start;
    Clock::time_point next;
    std::size_t drawn = 0;  ///< columns
};

/// A duration as people say it: "40 s", "5 min", "3.5 h".
[[nodiscard]] std::string roughly(std::chrono::duration<double> duration);

}  // namespace airflow::tool
