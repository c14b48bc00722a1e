// A simulated Mac that is served to the test over pairs of sockets, in a time that stands still
// unless the test moves it.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <array>
#include <chrono>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "remote/MachineServer.h"
#include "remote/MachineSession.h"
#include "remote/RemoteMachine.h"
#include "simulation/machine/SimulatedMac.h"

namespace airflow::remote {

using Ends = std::pair<platform::FileDescriptor, platform::FileDescriptor>;

inline Ends socketPair() {
    std::array<int, 2> ends{-1, -1};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
    return {platform::FileDescriptor(ends[0]), platform::FileDescriptor(ends[1])};
}

inline smc::SMCParamStruct recordOf(std::uint32_t key, std::uint8_t selector = 0) {
    smc::SMCParamStruct record;
    record.key = key;
    record.data8 = selector;
    return record;
}

/// Waits for what other threads do; gives up after ten seconds.
template <typename Condition>
bool eventually(Condition holds) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!holds()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::yield();
    }
    return true;
}

struct MachineHarness {
    explicit MachineHarness(const std::string& preset = "laptop")
        : mac(*simulation::machinePreset(preset), [this] { return now; }),
          served{.smc = mac.smc(),
                 .hid = mac.hidFunctions(),
                 .objects = mac.hid(),
                 .takeLatency = [this] { return mac.smc().takeLatency(); },
                 .control = [](std::string_view text) { return "heard " + std::string(text); },
                 .mutex = {}} {}

    /// Looks at the machine while nobody else uses it.
    template <typename Look>
    auto locked(Look look) {
        const std::lock_guard lock(served.mutex);
        return look();
    }
    int openServices() {
        return locked([this] { return mac.smc().openServices(); });
    }
    int openConnections() {
        return locked([this] { return mac.smc().openConnections(); });
    }
    std::size_t liveObjects() {
        return locked([this] { return mac.hid().liveObjects(); });
    }
    simulation::SimulatedMac::FanState fan(std::size_t index) {
        return locked([this, index] { return mac.fan(index); });
    }
    bool holdsNothing() {
        return openServices() == 0 && openConnections() == 0 && liveObjects() == 0;
    }
    void add(const simulation::Fault& fault) {
        locked([this, &fault] { mac.smc().add(fault); });
    }

    /// A connection that is served.
    platform::FileDescriptor connect() {
        auto [theirs, ours] = socketPair();
        server->attend(std::move(theirs));
        return std::move(ours);
    }
    RemoteMachine remote() { return RemoteMachine(connect(), connect()); }

    concurrency::Duration now{};
    simulation::SimulatedMac mac;
    ServedMachine served;
    std::optional<MachineServer> server{std::in_place, served,
                                        platform::EventLoop::start().value()};
};

}  // namespace airflow::remote
