#include "remote/MachineServer.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <system_error>
#include <utility>

#include "concurrency/Require.h"

namespace airflow::remote {

namespace {

using concurrency::Duration;

bool canBeRead(const platform::FileDescriptor& descriptor, int milliseconds) {
    pollfd asked{.fd = descriptor.get(), .events = POLLIN, .revents = 0};
    return poll(&asked, 1, milliseconds) > 0;
}

bool isWelcome(const platform::FileDescriptor& connection) {
    const auto peer = platform::peerOf(connection);
    return peer && (peer->user == geteuid() || peer->user == 0);
}

}  // namespace

MachineServer::MachineServer(ServedMachine& served)
    : machine(served), ending(eventfd(0, EFD_CLOEXEC)) {
    concurrency::require(static_cast<bool>(ending), "the system has event descriptors");
}

MachineServer::~MachineServer() {
    eventfd_write(ending.get(), 1);
    for (Client& client : clients) shutdown(client.connection.get(), SHUT_RDWR);
    for (Client& client : clients) client.thread.join();
}

void MachineServer::attend(platform::FileDescriptor connection) {
    forgetEnded();
    Client& client = clients.emplace_back(std::move(connection));
    try {
        client.thread = std::thread([this, &client] { serve(client); });
    } catch (const std::system_error&) {
        clients.pop_back();
    }
}

void MachineServer::acceptUntil(const platform::FileDescriptor& stop,
                                const platform::FileDescriptor& listening) {
    constexpr int pauseMilliseconds = 100;
    platform::makeNonBlocking(listening);  // who was to be accepted may be gone by then
    for (;;) {
        std::array<pollfd, 2> asked{{{.fd = stop.get(), .events = POLLIN, .revents = 0},
                                     {.fd = listening.get(), .events = POLLIN, .revents = 0}}};
        if (poll(asked.data(), asked.size(), -1) < 0) continue;  // interrupted
        if (asked[0].revents != 0) return;
        platform::FileDescriptor connection = platform::acceptFrom(listening);
        // Out of descriptors: the connection stays in the queue, and asking at once would not help.
        if (!connection && errno != EAGAIN && canBeRead(stop, pauseMilliseconds)) return;
        if (connection && isWelcome(connection)) attend(std::move(connection));
    }
}

void MachineServer::serve(Client& client) {
    {
        MachineSession session(machine);
        while (const auto request = receiveMessage(client.connection)) {
            auto answer = session.perform(*request);
            if (!answer) break;
            const bool isLate = answer->latency > Duration::zero();
            if (isLate && !holdBack(client.connection, answer->latency)) break;
            if (answer->message.isEmpty()) continue;
            if (!sendMessage(client.connection, answer->message)) break;
        }
    }
    // The descriptor is closed when the next one connects; the peer is told now.
    shutdown(client.connection.get(), SHUT_RDWR);
    client.hasEnded = true;
}

/// False when the peer or the server goes before the time is up: nobody is answered too early.
bool MachineServer::holdBack(const platform::FileDescriptor& connection, Duration latency) {
    const auto seconds = std::chrono::floor<std::chrono::seconds>(latency);
    const timespec time{.tv_sec = seconds.count(), .tv_nsec = (latency - seconds).count()};
    // No event need be named for a peer that hung up.
    std::array<pollfd, 2> asked{{{.fd = ending.get(), .events = POLLIN, .revents = 0},
                                 {.fd = connection.get(), .events = 0, .revents = 0}}};
    return ppoll(asked.data(), asked.size(), &time, nullptr) == 0;
}

void MachineServer::forgetEnded() {
    std::erase_if(clients, [](Client& client) {
        if (!client.hasEnded) return false;
        client.thread.join();
        return true;
    });
}

}  // namespace airflow::remote
