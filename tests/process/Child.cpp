#include "Child.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <utility>

namespace airflow::process {

namespace {

using platform::FileDescriptor;

struct Pipe {
    Pipe() {
        std::array<int, 2> ends{-1, -1};
        EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
        reading = FileDescriptor(ends[0]);
        writing = FileDescriptor(ends[1]);
    }
    /// Leaves no room for a single byte.
    void fill() const {
        platform::makeNonBlocking(writing);
        const std::string block(4096, 'x');
        while (write(writing.get(), block.data(), block.size()) > 0) {
        }
        (void)fcntl(writing.get(), F_SETFL, 0);  // the writer is to see an ordinary pipe
    }
    FileDescriptor reading;
    FileDescriptor writing;
};

}  // namespace

std::optional<char> Output::readByte() {
    pollfd asked{.fd = descriptor.get(), .events = POLLIN, .revents = 0};
    char byte = 0;
    if (poll(&asked, 1, 10'000) <= 0 || read(descriptor.get(), &byte, 1) != 1) return std::nullopt;
    return byte;
}

std::optional<std::string> Output::readLine() {
    std::string line;
    while (const auto byte = readByte()) {
        if (*byte == '\n') return line;
        line += *byte;
    }
    return std::nullopt;
}

std::string Output::readToEnd() {
    std::string text;
    while (const auto byte = readByte()) text += *byte;
    return text;
}

Child::Child(std::vector<std::string> arguments, StandardError error, const std::string& program) {
    arguments.insert(arguments.begin(), program);
    std::vector<char*> argv;
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    Pipe in;
    Pipe output;
    Pipe errors;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in.reading.get(), STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output.writing.get(), STDOUT_FILENO);
    if (error == StandardError::full) errors.fill();
    if (error == StandardError::closed)
        posix_spawn_file_actions_addclose(&actions, STDERR_FILENO);
    else
        posix_spawn_file_actions_adddup2(&actions, errors.writing.get(), STDERR_FILENO);
    EXPECT_EQ(posix_spawn(&process, argv[0], &actions, nullptr, argv.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    input = std::move(in.writing);
    out = Output(std::move(output.reading));
    if (error == StandardError::read)
        err = Output(std::move(errors.reading));
    else
        unread = std::move(errors.reading);
}

Child::~Child() {
    if (process <= 0) return;
    signal(SIGKILL);
    (void)wait();
}

void Child::signal(int number) const {
    EXPECT_EQ(kill(process, number), 0);
}

bool Child::hasEnded() const {
    siginfo_t ended{};
    waitid(P_PID, static_cast<id_t>(process), &ended, WEXITED | WNOHANG | WNOWAIT);
    return ended.si_pid == process;
}

int Child::wait() {
    int status = 0;
    EXPECT_EQ(waitpid(process, &status, 0), process);
    process = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void Child::type(const std::string& text) const {
    EXPECT_EQ(write(input.get(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

}  // namespace airflow::process
