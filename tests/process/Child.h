// Child: a program of this project as a real process, with its three standard descriptors.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/LocalSocket.h"

namespace airflow::process {

/// The reading end of a child's output.
class Output {
public:
    Output() = default;
    explicit Output(platform::FileDescriptor end) : descriptor(std::move(end)) {}

    /// The next line without its end; nothing when none comes within ten seconds.
    [[nodiscard]] std::optional<std::string> readLine();
    /// Everything up to the end, which comes when the last process that could write is gone.
    [[nodiscard]] std::string readToEnd();

private:
    [[nodiscard]] std::optional<char> readByte();

    platform::FileDescriptor descriptor;
};

/// What a child has as its standard error.
enum class StandardError {
    read,    ///< a pipe that `err` reads
    closed,  ///< nothing: the descriptor is not open
    full,    ///< a pipe without room that nobody reads
};

/// Killed with the test, if it still runs then.
class Child {
public:
    /// Runs the tool, or another program, with these arguments.
    explicit Child(std::vector<std::string> arguments, StandardError error = StandardError::read,
                   const std::string& program = AIRFLOW_TOOL);
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    ~Child();

    [[nodiscard]] pid_t id() const { return process; }
    void signal(int number) const;
    /// Whether it has ended; it can still be waited for.
    [[nodiscard]] bool hasEnded() const;
    /// Waits for the end. The exit status, or 128 and the number of the signal that ended it.
    [[nodiscard]] int wait();
    /// Writes to its standard input.
    void type(const std::string& text) const;

    Output out;
    Output err;

private:
    pid_t process = 0;
    platform::FileDescriptor input;
    platform::FileDescriptor unread;  ///< keeps the full pipe from breaking
};

}  // namespace airflow::process
