// ToolProcess: the tool as a process of its own, as a person starts it.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/LocalSocket.h"

namespace airflow::tool {

/// Killed with the test, if it still runs then. Standard output can be read; standard error goes
/// to the same place.
class ToolProcess {
public:
    explicit ToolProcess(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), AIRFLOW_TOOL);
        std::vector<char*> argv;
        for (std::string& argument : arguments) argv.push_back(argument.data());
        argv.push_back(nullptr);
        std::array<int, 2> ends{-1, -1};
        EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
        output = platform::FileDescriptor(ends[0]);
        const platform::FileDescriptor input(ends[1]);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, input.get(), STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions, input.get(), STDERR_FILENO);
        EXPECT_EQ(posix_spawn(&process, argv[0], &actions, nullptr, argv.data(), environ), 0);
        posix_spawn_file_actions_destroy(&actions);
    }
    ToolProcess(const ToolProcess&) = delete;
    ToolProcess& operator=(const ToolProcess&) = delete;
    ~ToolProcess() {
        if (process <= 0) return;
        signal(SIGKILL);
        (void)wait();
    }

    /// The next line without its end; nothing when there is none within ten seconds.
    std::optional<std::string> readLine() {
        std::string line;
        for (;;) {
            pollfd asked{.fd = output.get(), .events = POLLIN, .revents = 0};
            char byte = 0;
            if (poll(&asked, 1, 10'000) <= 0 || ::read(output.get(), &byte, 1) != 1) {
                return std::nullopt;
            }
            if (byte == '\n') return line;
            line += byte;
        }
    }

    void signal(int number) const { kill(process, number); }

    /// Waits for the end. The exit status, or 128 and the number of the signal that ended it.
    int wait() {
        int status = 0;
        EXPECT_EQ(waitpid(process, &status, 0), process);
        process = 0;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

private:
    pid_t process = 0;
    platform::FileDescriptor output;
};

}  // namespace airflow::tool
