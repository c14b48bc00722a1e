// LocalListener: the stand-in for the Mach service: a Unix-domain socket and one thread for all of
// its clients.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <thread>

#include "daemon/Connection.h"
#include "platform/linux/AnswerBox.h"
#include "platform/linux/LocalConnection.h"
#include "platform/linux/LocalSocket.h"

namespace airflow::platform {

/// True for the user that this process runs as, and for root.
[[nodiscard]] bool isOwnUserOrRoot(const Peer& peer);

/// The thread sleeps while nothing arrives. It carries out no command: the service's operations
/// start tasks and return, so that one thread delivers the messages of every client at once.
/// Connections that cannot be accepted because no descriptor is left wait until one is.
class LocalListener final : public daemon::Listener {
public:
    /// `listening` is bound and listens. A peer that `isWelcome` denies is untrusted: none of its
    /// messages is carried out, and its connection ends at once.
    explicit LocalListener(FileDescriptor listening, PeerCheck isWelcome = isOwnUserOrRoot);
    /// Ends all connections, and tells their invalidation handlers.
    ~LocalListener() override;

    void resume(daemon::HelperListenerDelegate& delegate) override;

private:
    void run();
    void accept();
    void pauseAccepting(bool isPaused);
    void add(FileDescriptor socket);
    void distributeAnswers();
    void settle(LocalConnection& connection, std::uint64_t id);
    [[nodiscard]] bool watch(int operation, int descriptor, std::uint64_t id, std::uint32_t events);

    const FileDescriptor listening;
    const PeerCheck welcome;
    const FileDescriptor epoll;
    const std::shared_ptr<AnswerBox> answers = std::make_shared<AnswerBox>();
    daemon::HelperListenerDelegate* delegate = nullptr;
    std::thread thread;

    struct Client {
        std::unique_ptr<LocalConnection> connection;
        std::uint32_t watched = 0;  ///< the events that epoll was last asked for
    };
    std::map<std::uint64_t, Client> clients;  ///< and what follows: of the thread alone
    std::uint64_t lastID;
    bool isAcceptingPaused = false;
    std::chrono::steady_clock::time_point pauseEnd;
};

}  // namespace airflow::platform
