// Unix-domain stream sockets: named, private to a user, never a source of signals.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <expected>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

namespace airflow::platform {

/// Owns an open descriptor, or none.
class FileDescriptor {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int open) : number(open) {}
    FileDescriptor(FileDescriptor&& other) noexcept
        : number(std::exchange(other.number, -1)), companion(std::exchange(other.companion, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        std::swap(number, other.number);
        std::swap(companion, other.companion);
        return *this;
    }
    ~FileDescriptor();

    /// From now on `other` is closed together with this one.
    void keep(FileDescriptor other) { companion = std::exchange(other.number, -1); }

    explicit operator bool() const noexcept { return number >= 0; }
    [[nodiscard]] int get() const noexcept { return number; }

private:
    int number = -1;
    int companion = -1;
};

/// The process at the other end, as the kernel knew it when the connection was made.
struct Peer {
    uid_t user = 0;
    pid_t process = 0;
};

/// Whether a peer is one that commands are taken from.
using PeerCheck = std::function<bool(const Peer& peer)>;

/// True for the user that this process runs as, and for root.
[[nodiscard]] bool isOwnUserOrRoot(const Peer& peer);

/// Either what was asked for, or a text for people that names the path and the reason.
template <typename T>
using SocketResult = std::expected<T, std::string>;

/// Creates a socket of mode 0600 at `path` and lets connections queue there. Replaces one that
/// nobody listens on any more, as a process that was killed leaves it; fails when somebody does, or
/// when something else than a socket lies there. A daemon is known by a lock on a file beside the
/// socket (".lock"), never by a connection, whose end means something to it. Closed on exec, as are
/// all of these.
[[nodiscard]] SocketResult<FileDescriptor> listenOn(const std::string& path);
/// Claims the server at `path` for one client process, until this descriptor is closed; whoever
/// claims it is known by a lock on a file beside the socket (".client.lock"). Fails when the claim
/// is not free after a grace period, which a process that ends needs. Holds nothing when there is
/// no socket.
[[nodiscard]] SocketResult<FileDescriptor> claimServer(const std::string& path,
                                                       std::chrono::milliseconds gracePeriod);
/// The next connection that was queued; nothing when there is none (any more) or no descriptor is
/// left for it, with the reason in errno. Waits for one unless the listening socket is
/// non-blocking.
[[nodiscard]] FileDescriptor acceptFrom(const FileDescriptor& listening);
[[nodiscard]] SocketResult<FileDescriptor> connectTo(const std::string& path);
[[nodiscard]] std::optional<Peer> peerOf(const FileDescriptor& connection);
/// Reads and writes of the descriptor no longer wait.
void makeNonBlocking(const FileDescriptor& descriptor);

/// Waits until everything is sent; false when the other end is gone. Raises no SIGPIPE.
[[nodiscard]] bool sendAll(const FileDescriptor& connection, std::string_view bytes);
/// Waits until `bytes` is full; false when the connection ends before.
[[nodiscard]] bool receiveExactly(const FileDescriptor& connection, std::span<std::byte> bytes);

/// The user's own folder for sockets, of mode 0700: "airflow" in $XDG_RUNTIME_DIR, or
/// "/tmp/airflow-<user id>" where that is not set. Creates it; fails when it belongs to somebody
/// else or lets others in.
[[nodiscard]] SocketResult<std::string> runtimeFolder();

}  // namespace airflow::platform
