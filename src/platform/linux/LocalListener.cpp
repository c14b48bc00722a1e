#include "platform/linux/LocalListener.h"

#include <utility>

#include "daemon/HelperListenerDelegate.h"
#include "platform/linux/Acceptor.h"
#include "platform/linux/LocalConnection.h"

namespace airflow::platform {

LocalListener::LocalListener(EventLoop eventLoop, FileDescriptor listening, PeerCheck isWelcome)
    : loop(std::move(eventLoop)),
      welcome(std::move(isWelcome)),
      acceptor(
          std::make_unique<Acceptor>(*loop.context(), std::move(listening),
                                     [this](FileDescriptor socket) { add(std::move(socket)); })) {}

LocalListener::~LocalListener() {
    loop.stop();
}

void LocalListener::resume(daemon::HelperListenerDelegate& asked) {
    delegate = &asked;
    acceptor->start();
}

void LocalListener::add(FileDescriptor socket) {
    const auto connection =
        std::make_shared<LocalConnection>(loop.context(), std::move(socket), welcome,
                                          [this](const LocalConnection& ended) { remove(ended); });
    clients.emplace(connection.get(), connection);
    if (!delegate->shouldAccept(*connection)) remove(*connection);
}

void LocalListener::remove(const LocalConnection& connection) {
    clients.erase(&connection);
    acceptor->retry();
}

}  // namespace airflow::platform
