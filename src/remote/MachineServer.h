// MachineServer: serves a machine to the processes that connect to its socket.
#pragma once

#include <map>
#include <memory>

#include "platform/linux/EventLoop.h"
#include "platform/linux/LocalSocket.h"
#include "remote/MachineSession.h"

namespace airflow::platform {
class Acceptor;
}

namespace airflow::remote {

class MachineConnection;

/// One thread for all connections, which nothing holds up: a peer that is slow, hangs or speaks
/// nonsense concerns nobody else.
class MachineServer {
public:
    /// The machine outlives the server.
    MachineServer(ServedMachine& machine, platform::EventLoop eventLoop);
    MachineServer(const MachineServer&) = delete;
    MachineServer& operator=(const MachineServer&) = delete;
    /// Ends every connection.
    ~MachineServer();

    /// Serves one connection until it ends or sends what is no request. From any thread.
    void attend(platform::FileDescriptor connection);

    /// Attends to those of the same user, and root's, that connect to `listening`, which is bound
    /// and listens. At most once.
    void accept(platform::FileDescriptor listening);

private:
    void add(platform::FileDescriptor socket);
    void remove(const MachineConnection& connection);

    ServedMachine& machine;
    platform::EventLoop loop;
    std::unique_ptr<platform::Acceptor> acceptor;
    /// Of the loop's thread alone.
    std::map<const MachineConnection*, std::shared_ptr<MachineConnection>> clients;
};

}  // namespace airflow::remote
