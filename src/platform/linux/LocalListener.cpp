#include "platform/linux/LocalListener.h"

#include <sys/epoll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <span>
#include <utility>

#include "concurrency/Require.h"
#include "daemon/HelperListenerDelegate.h"

namespace airflow::platform {

namespace {

/// What an event is about; clients are numbered from above these.
constexpr std::uint64_t listeningID = 0;
constexpr std::uint64_t answersID = 1;

constexpr int forEver = -1;
/// Until the next attempt to accept when no descriptor is left, if none of ours is closed before.
constexpr int pauseMilliseconds = 200;

}  // namespace

bool isOwnUserOrRoot(const Peer& peer) {
    return peer.user == geteuid() || peer.user == 0;
}

LocalListener::LocalListener(FileDescriptor socket, PeerCheck isWelcome)
    : listening(std::move(socket)),
      welcome(std::move(isWelcome)),
      epoll(epoll_create1(EPOLL_CLOEXEC)),
      lastID(answersID) {
    concurrency::require(static_cast<bool>(epoll), "the system has epoll descriptors");
    makeNonBlocking(listening);
    concurrency::require(watch(EPOLL_CTL_ADD, listening.get(), listeningID, EPOLLIN) &&
                             watch(EPOLL_CTL_ADD, answers->descriptor().get(), answersID, EPOLLIN),
                         "the first descriptors can be watched");
}

LocalListener::~LocalListener() {
    answers->close();
    if (thread.joinable()) thread.join();
}

void LocalListener::resume(daemon::HelperListenerDelegate& asked) {
    delegate = &asked;
    thread = std::thread([this] { run(); });
}

void LocalListener::run() {
    while (!answers->isClosed()) {
        std::array<epoll_event, 64> ready{};
        const int count = epoll_wait(epoll.get(), ready.data(), static_cast<int>(ready.size()),
                                     isAcceptingPaused ? pauseMilliseconds : forEver);
        if (isAcceptingPaused && std::chrono::steady_clock::now() >= pauseEnd)
            pauseAccepting(false);
        const std::size_t found = count > 0 ? static_cast<std::size_t>(count) : 0;
        for (const epoll_event& event : std::span(ready).first(found)) {
            const std::uint64_t id = event.data.u64;
            if (id == listeningID) {
                accept();
            } else if (id == answersID) {
                distributeAnswers();
            } else if (const auto client = clients.find(id); client != clients.end()) {
                LocalConnection& connection = *client->second.connection;
                connection.handle(event.events);
                settle(connection, id);
            }
        }
    }
    clients.clear();
}

/// One at a time: epoll reports the next one.
void LocalListener::accept() {
    if (FileDescriptor socket = acceptFrom(listening))
        add(std::move(socket));
    else if (errno != EAGAIN)
        pauseAccepting(true);  // the descriptors have run out; epoll would report it without end
}

void LocalListener::pauseAccepting(bool isPaused) {
    if (isAcceptingPaused == isPaused) return;
    isAcceptingPaused = isPaused;
    pauseEnd = std::chrono::steady_clock::now() + std::chrono::milliseconds(pauseMilliseconds);
    (void)watch(EPOLL_CTL_MOD, listening.get(), listeningID, isPaused ? 0 : EPOLLIN);
}

void LocalListener::add(FileDescriptor socket) {
    const std::uint64_t id = ++lastID;
    auto connection = std::make_unique<LocalConnection>(id, std::move(socket), answers, welcome);
    if (!watch(EPOLL_CTL_ADD, connection->descriptor(), id, 0)) return;
    if (!delegate->shouldAccept(*connection)) return;
    LocalConnection& added = *connection;
    clients.emplace(id, Client{.connection = std::move(connection)});
    settle(added, id);
}

void LocalListener::distributeAnswers() {
    for (const AnswerBox::Answer& answer : answers->take()) {
        const auto client = clients.find(answer.connection);
        if (client == clients.end()) continue;  // it has ended; nobody waits for this any more
        LocalConnection& connection = *client->second.connection;
        connection.take(answer);
        settle(connection, answer.connection);
    }
}

/// After anything that happened to a connection: watches what it now waits for, or lets it go.
void LocalListener::settle(LocalConnection& connection, std::uint64_t id) {
    const auto client = clients.find(id);
    if (connection.hasEnded()) {
        clients.erase(client);
        pauseAccepting(false);  // there is a descriptor again
        return;
    }
    const std::uint32_t wanted = connection.interest();
    if (std::exchange(client->second.watched, wanted) == wanted) return;
    (void)watch(EPOLL_CTL_MOD, connection.descriptor(), id, wanted);
}

bool LocalListener::watch(int operation, int descriptor, std::uint64_t id, std::uint32_t events) {
    epoll_event event{};
    event.events = events;
    event.data.u64 = id;
    return epoll_ctl(epoll.get(), operation, descriptor, &event) == 0;
}

}  // namespace airflow::platform
