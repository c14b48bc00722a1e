#include "concurrency/Require.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <exception>

#include "concurrency/StopGuard.h"

namespace airflow::concurrency {

namespace {

/// Text of bounded length in one piece, since a process that is wrong should not need memory.
template <std::size_t capacity>
class Text {
public:
    /// What does not fit is left out, a character of several bytes as a whole.
    void add(std::string_view more) noexcept {
        std::size_t fitting = std::min(more.size(), capacity - size);
        while (fitting < more.size() && fitting > 0 && (more[fitting] & 0xC0) == 0x80) --fitting;
        for (const char byte : more.substr(0, fitting)) {
            const bool isControl = static_cast<unsigned char>(byte) < 0x20 || byte == 0x7F;
            bytes[size++] = isControl ? '?' : byte;
        }
    }
    [[nodiscard]] std::string_view view() const noexcept { return {bytes.data(), size}; }

private:
    std::array<char, capacity> bytes{};
    std::size_t size = 0;
};

/// What a pipe of every system takes as a whole or not at all.
constexpr std::size_t longestLine = 512;
constexpr std::size_t longestPrefix = 64;
using Line = Text<longestLine - 1>;  // without its end

constinit Text<longestPrefix> prefix;

// Reached only through out-of-line functions, like the executor that is current.
constinit thread_local StopObserver* observing = nullptr;

Line unmet(const char* expectation) noexcept {
    Line line;
    line.add("A bug: expected that ");
    line.add(expectation);
    line.add(".");
    return line;
}

/// Of the exception that is being handled.
Line uncaught() noexcept {
    Line line;
    line.add("A bug: nobody caught an exception");
    try {
        throw;
    } catch (const std::exception& exception) {
        line.add(": ");
        line.add(exception.what());
    } catch (...) {
        line.add(" that does not say what it is");
    }
    return line;
}

[[noreturn]] void terminateProcess() noexcept {
    const bool isForException = std::current_exception() != nullptr;
    abortProcess(isForException ? uncaught().view() : "A bug: the process was terminated.");
}

/// Whoever else writes through the same description of the file sees it as it was, a moment later.
void writeWithoutWaiting(std::string_view line) noexcept {
    // A reader that is gone, or a log that may not grow, is not the reason of this end.
    (void)signal(SIGPIPE, SIG_IGN);
    (void)signal(SIGXFSZ, SIG_IGN);
    const int flags = fcntl(STDERR_FILENO, F_GETFL);
    if (flags < 0) return;
    if (fcntl(STDERR_FILENO, F_SETFL, flags | O_NONBLOCK) < 0) return;
    (void)!write(STDERR_FILENO, line.data(), line.size());
    (void)fcntl(STDERR_FILENO, F_SETFL, flags);
}

}  // namespace

void abortProcess(std::string_view violation) noexcept {
    // Two threads would restore each other's flags of the descriptor, and one line is enough.
    static constinit std::atomic_flag isStopping;
    while (isStopping.test_and_set()) (void)pause();
    Line line;
    line.add(prefix.view());
    line.add(violation);
    std::array<char, longestLine> bytes{};
    *std::ranges::copy(line.view(), bytes.begin()).out = '\n';
    writeWithoutWaiting({bytes.data(), line.view().size() + 1});
    std::abort();
}

void stopProcess(std::string_view violation) {
    if (!observing) abortProcess(violation);
    Line line;
    line.add(violation);
    observing->processStops(line.view());
    throw ProcessStop();
}

void detail::stopForUnmet(const char* expectation) {
    stopProcess(unmet(expectation).view());
}

void detail::abortForUnmet(const char* expectation) noexcept {
    abortProcess(unmet(expectation).view());
}

void beginLastLineWith(std::string_view beginning) noexcept {
    prefix = {};
    prefix.add(beginning);
    (void)std::set_terminate(&terminateProcess);
}

StopGuard::StopGuard(StopObserver* observer) noexcept : outer(observing) {
    if (observer) observing = observer;
}

StopGuard::~StopGuard() {
    observing = outer;
}

void detail::stopForException() noexcept {
    try {
        throw;
    } catch (const ProcessStop&) {
        return;
    } catch (...) {
        const Line line = uncaught();
        if (!observing) abortProcess(line.view());
        observing->processStops(line.view());
    }
}

}  // namespace airflow::concurrency
