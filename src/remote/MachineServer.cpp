#include "remote/MachineServer.h"

#include <asio/post.hpp>
#include <utility>

#include "platform/linux/Acceptor.h"
#include "remote/MachineConnection.h"

namespace airflow::remote {

MachineServer::MachineServer(ServedMachine& served, platform::EventLoop eventLoop)
    : machine(served), loop(std::move(eventLoop)) {}

MachineServer::~MachineServer() {
    loop.stop();
}

void MachineServer::attend(platform::FileDescriptor connection) {
    asio::post(*loop.context(),
               [this, socket = std::move(connection)]() mutable { add(std::move(socket)); });
}

void MachineServer::accept(platform::FileDescriptor listening) {
    acceptor = std::make_unique<platform::Acceptor>(
        *loop.context(), std::move(listening), [this](platform::FileDescriptor socket) {
            const auto peer = platform::peerOf(socket);
            if (peer && platform::isOwnUserOrRoot(*peer)) add(std::move(socket));
        });
    acceptor->start();
}

void MachineServer::add(platform::FileDescriptor socket) {
    const auto connection = std::make_shared<MachineConnection>(
        loop.context(), std::move(socket), machine,
        [this](const MachineConnection& ended) { remove(ended); });
    clients.emplace(connection.get(), connection);
    connection->start();
}

void MachineServer::remove(const MachineConnection& connection) {
    clients.erase(&connection);
    if (acceptor) acceptor->retry();
}

}  // namespace airflow::remote
