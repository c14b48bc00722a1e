// MachineServer: serves a machine to the processes that connect to its socket.
#pragma once

#include <atomic>
#include <list>
#include <thread>
#include <utility>

#include "platform/linux/LocalSocket.h"
#include "remote/MachineSession.h"

namespace airflow::remote {

/// A thread for each connection, which ends with it: a peer that is slow, hangs or speaks nonsense
/// concerns nobody else. Its functions are called on one thread.
class MachineServer {
public:
    /// The machine outlives the server.
    explicit MachineServer(ServedMachine& machine);
    MachineServer(const MachineServer&) = delete;
    MachineServer& operator=(const MachineServer&) = delete;
    /// Ends every connection and waits for their threads.
    ~MachineServer();

    /// Serves one connection until it ends or sends what is no request. Refuses it when the system
    /// has no thread for it.
    void attend(platform::FileDescriptor connection);

    /// Attends to those of the same user, and root's, that connect to `listening` until `stop`
    /// can be read.
    void acceptUntil(const platform::FileDescriptor& stop,
                     const platform::FileDescriptor& listening);

private:
    struct Client {
        explicit Client(platform::FileDescriptor accepted) : connection(std::move(accepted)) {}

        platform::FileDescriptor connection;
        std::atomic<bool> hasEnded = false;
        std::thread thread{};
    };

    void serve(Client& client);
    [[nodiscard]] bool holdBack(const platform::FileDescriptor& connection,
                                concurrency::Duration latency);
    void forgetEnded();

    ServedMachine& machine;
    platform::FileDescriptor ending;  ///< can be read from the destructor on
    std::list<Client> clients;
};

}  // namespace airflow::remote
