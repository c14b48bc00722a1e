// LocalListener: the stand-in for the Mach service: a Unix-domain socket and one thread for all of
// its clients.
#pragma once

#include <map>
#include <memory>

#include "daemon/Connection.h"
#include "platform/linux/EventLoop.h"
#include "platform/linux/LocalSocket.h"

namespace airflow::platform {

class Acceptor;
class LocalConnection;

/// The loop's thread sleeps while nothing arrives. It carries out no command: the service's
/// operations start tasks and return, so that one thread delivers the messages of every client at
/// once. Connections that cannot be accepted because no descriptor is left wait until one is.
class LocalListener final : public daemon::Listener {
public:
    /// `listening` is bound and listens. A peer that `isWelcome` denies is untrusted: none of its
    /// messages is carried out, and its connection ends at once.
    LocalListener(EventLoop eventLoop, FileDescriptor listening,
                  PeerCheck isWelcome = isOwnUserOrRoot);
    /// Ends all connections, and tells their invalidation handlers.
    ~LocalListener() override;

    /// At most once.
    void resume(daemon::HelperListenerDelegate& delegate) override;

private:
    void add(FileDescriptor socket);
    void remove(const LocalConnection& connection);

    EventLoop loop;
    const PeerCheck welcome;
    daemon::HelperListenerDelegate* delegate = nullptr;
    const std::unique_ptr<Acceptor> acceptor;
    /// Of the loop's thread alone.
    std::map<const LocalConnection*, std::shared_ptr<LocalConnection>> clients;
};

}  // namespace airflow::platform
