// The whole daemon in this process, in real time: a simulated Mac, the service over it, a listener
// in front of it; and clients to try it with.
#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "concurrency/TaskScope.h"
#include "daemon/Daemon.h"
#include "platform/linux/LocalListener.h"
#include "platform/linux/LocalSocket.h"
#include "platform/linux/ThreadRuntime.h"
#include "simulation/machine/SimulatedMac.h"

namespace airflow::platform {

using namespace std::chrono_literals;

/// Asks again and again, for ten seconds at most.
inline bool eventually(const std::function<bool()>& holds) {
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (!holds()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(1ms);
    }
    return true;
}

/// Two fans, and temperatures that the SMC has. The daemon and the test ask it, one at a time.
class ServedMac final : public smc::SMCUserClient {
public:
    using Mode = simulation::FanMode;

    explicit ServedMac(simulation::Temperatures temperatures)
        : mac(description(std::move(temperatures)),
              [this] { return std::chrono::steady_clock::now() - start; }) {}

    Mode mode(std::size_t fan) {
        const std::lock_guard lock(mutex);
        return mac.fan(fan).mode;
    }
    double target(std::size_t fan) {
        const std::lock_guard lock(mutex);
        return mac.fan(fan).target;
    }
    bool isAllAutomatic() { return mode(0) == Mode::automatic && mode(1) == Mode::automatic; }
    /// While the lock is held, whoever asks the machine waits.
    [[nodiscard]] std::unique_lock<std::mutex> stuck() { return std::unique_lock(mutex); }

    std::uint32_t findService(const std::string& className) override {
        const std::lock_guard lock(mutex);
        return mac.smc().findService(className);
    }
    smc::KernelReturn open(std::uint32_t service, std::uint32_t type,
                           std::uint32_t& connection) override {
        const std::lock_guard lock(mutex);
        return mac.smc().open(service, type, connection);
    }
    void release(std::uint32_t service) override {
        const std::lock_guard lock(mutex);
        mac.smc().release(service);
    }
    smc::KernelReturn call(std::uint32_t connection, std::uint32_t method,
                           const smc::SMCParamStruct& request,
                           smc::SMCParamStruct& reply) override {
        const std::lock_guard lock(mutex);
        return mac.smc().call(connection, method, request, reply);
    }
    void close(std::uint32_t connection) override {
        const std::lock_guard lock(mutex);
        mac.smc().close(connection);
    }

    simulation::SimulatedMac& unguarded() { return mac; }

private:
    static simulation::MachineDescription description(simulation::Temperatures temperatures) {
        auto machine = *simulation::machinePreset("no-hid-symbols");
        machine.smc = std::move(temperatures);
        return machine;
    }

    std::mutex mutex;
    const std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
    simulation::SimulatedMac mac;
};

/// A process that remembers with what it was to end, and goes on.
class EndlessProcess final : public daemon::DaemonProcess {
public:
    void atExit(Handler) override {}
    void handle(daemon::Signal, Handler) override {}
    void announceExit(int) override {}
    concurrency::Task<void> exit(int asked) override {
        const std::lock_guard lock(mutex);
        status = asked;
        co_return;
    }
    std::optional<int> exitStatus() {
        const std::lock_guard lock(mutex);
        return status;
    }

private:
    std::mutex mutex;
    std::optional<int> status;
};

class NoLog final : public sensors::LogSink {
public:
    void write(std::string_view) override {}
};

class ServedDaemon {
public:
    /// Reading a temperature takes 40 ms; without any, fans are held for two ticks at most.
    explicit ServedDaemon(PeerCheck isWelcome = isOwnUserOrRoot,
                          simulation::Temperatures temperatures = {{"TCMz", 45.0}})
        : path((std::filesystem::path(testing::TempDir()) /
                ("airflow-" + std::to_string(getpid()) + ".sock"))
                   .string()),
          mac(std::move(temperatures)),
          listener(std::in_place, EventLoop::start().value(), listenOn(path).value(),
                   std::move(isWelcome)),
          daemon({.runtime = *runtime,
                  .hardware = hardware,
                  .process = process,
                  .listener = *listener,
                  .standardError = log,
                  .effectiveUserID = [] { return 0U; }}) {}
    ServedDaemon(const ServedDaemon&) = delete;
    ServedDaemon& operator=(const ServedDaemon&) = delete;
    ~ServedDaemon() {
        listener.reset();
        runtime->abandon();
        std::filesystem::remove(path);
    }

    /// Starts up; returns when the daemon listens.
    void start() {
        concurrency::TaskScope scope(*runtime);
        scope.spawn("start-up", daemon.startUp());
        scope.joinBlocking();
    }

    const std::string path;
    ServedMac mac;
    EndlessProcess process;
    const std::unique_ptr<concurrency::Runtime> runtime = makeThreadRuntime(4);

private:
    NoLog log;
    sensors::HIDFunctions hidFunctions{mac.unguarded().hidFunctions()};
    daemon::MachineHardware hardware{*runtime, mac, hidFunctions, mac.unguarded().hid(), log};

public:
    std::optional<LocalListener> listener;

private:
    daemon::Daemon daemon;
};

/// A client that writes and reads lines, and waits for none longer than ten seconds.
class LineClient {
public:
    explicit LineClient(const std::string& path) : socket(connectTo(path).value()) {}

    bool send(std::string_view text) { return sendAll(socket, text); }
    /// Nothing sent will follow; answers can still be read.
    void finishSending() { ::shutdown(socket.get(), SHUT_WR); }

    /// The next line, with its newline; empty when the connection has ended (or nothing came).
    std::string receive() {
        for (;;) {
            const auto newline = received.find('\n');
            if (newline != std::string::npos) {
                std::string line = received.substr(0, newline + 1);
                received.erase(0, newline + 1);
                return line;
            }
            if (!receiveMore()) return {};
        }
    }
    /// Whether nothing follows what was received.
    bool hasEnded() { return receive().empty() && sawEnd; }
    /// Sends a line and returns the next one.
    std::string ask(std::string_view line) {
        return send(std::string(line) + '\n') ? receive() : std::string();
    }

    FileDescriptor socket;

private:
    bool receiveMore() {
        pollfd readable{.fd = socket.get(), .events = POLLIN, .revents = 0};
        if (poll(&readable, 1, 10'000) != 1) return false;
        char chunk[4096];
        const ssize_t count = recv(socket.get(), chunk, sizeof chunk, 0);
        sawEnd = count <= 0;
        if (sawEnd) return false;
        received.append(chunk, static_cast<std::size_t>(count));
        return true;
    }

    std::string received;
    bool sawEnd = false;
};

/// Descriptors that this process has open.
inline std::size_t openDescriptors() {
    const std::filesystem::directory_iterator entries("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

}  // namespace airflow::platform
