#include "platform/linux/LocalSocket.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "platform/linux/Waiting.h"

namespace airflow::platform {

namespace {

std::unexpected<std::string> failure(const std::string& path, const std::string& reason) {
    return std::unexpected(path + ": " + reason);
}

std::string reasonOf(int error) {
    return std::generic_category().message(error);
}

SocketResult<sockaddr_un> addressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.empty()) return failure("a socket", "has no name");
    if (path.size() >= sizeof address.sun_path) {
        return failure(path, "is too long for the name of a socket (" +
                                 std::to_string(sizeof address.sun_path - 1) + " bytes at most)");
    }
    std::memcpy(address.sun_path, path.data(), path.size());
    return address;
}

FileDescriptor makeSocket() {
    return FileDescriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
}

int connectSocket(const FileDescriptor& own, const sockaddr_un& address) {
    while (connect(own.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        if (errno != EINTR) return errno;
    }
    return 0;
}

FileDescriptor openLock(const std::string& name) {
    return FileDescriptor(open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
}

/// Whether the lock could be taken.
bool isLocked(const FileDescriptor& file) {
    return flock(file.get(), LOCK_EX | LOCK_NB) == 0;
}

int bindSocket(const FileDescriptor& own, const sockaddr_un& address) {
    // The mode is right from the first moment on: changing it afterwards would leave a gap.
    const mode_t before = umask(0177);
    const int result = bind(own.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
    const int error = errno;
    umask(before);
    return result == 0 ? 0 : error;
}

constexpr const char* somebodyListens = "another process listens there";

/// Held by whoever listens at `path`, until its process is gone.
SocketResult<FileDescriptor> lockBeside(const std::string& path) {
    FileDescriptor file = openLock(path + ".lock");
    if (!file) return failure(path, "no socket can be made there: " + reasonOf(errno));
    if (!isLocked(file)) return failure(path, somebodyListens);
    return file;
}

/// Whether somebody listens who takes no locks, so not a daemon of ours, whom the end of this
/// connection would tell something. Only a refusal tells that nobody does: a queue may be full, and
/// a socket of another kind answers with another error.
bool isListenedTo(const sockaddr_un& address) {
    const FileDescriptor own = makeSocket();
    makeNonBlocking(own);
    return connectSocket(own, address) != ECONNREFUSED;
}

/// Removes a socket that nobody listens on. Needs the lock.
SocketResult<void> removeStale(const std::string& path, const sockaddr_un& address) {
    struct stat status{};
    if (lstat(path.c_str(), &status) != 0) return {};
    if (!S_ISSOCK(status.st_mode)) return failure(path, "exists and is not a socket");
    if (isListenedTo(address)) return failure(path, somebodyListens);
    unlink(path.c_str());
    return {};
}

}  // namespace

FileDescriptor::~FileDescriptor() {
    if (number >= 0) close(number);
    if (companion >= 0) close(companion);
}

SocketResult<FileDescriptor> listenOn(const std::string& path) {
    const auto address = addressOf(path);
    if (!address) return std::unexpected(address.error());
    auto lock = lockBeside(path);
    if (!lock) return std::unexpected(lock.error());
    if (const auto removed = removeStale(path, *address); !removed)
        return std::unexpected(removed.error());
    FileDescriptor own = makeSocket();
    const int error = own ? bindSocket(own, *address) : errno;
    if (error != 0) return failure(path, "no socket can be made there: " + reasonOf(error));
    if (listen(own.get(), SOMAXCONN) != 0) return failure(path, reasonOf(errno));
    own.keep(std::move(*lock));
    return own;
}

SocketResult<FileDescriptor> claimServer(const std::string& path,
                                         std::chrono::milliseconds gracePeriod) {
    constexpr std::chrono::milliseconds pause{10};
    std::error_code error;
    const auto place = std::filesystem::canonical(path, error);
    if (error) return FileDescriptor();  // nobody listens there, as connecting will tell
    FileDescriptor file = openLock(place.string() + ".client.lock");
    if (!file) return failure(path, "cannot be locked: " + reasonOf(errno));
    for (auto waited = std::chrono::milliseconds(0); !isLocked(file); waited += pause) {
        if (waited >= gracePeriod) return failure(path, "another process uses it");
        pauseFor(pause);
    }
    return file;
}

FileDescriptor acceptFrom(const FileDescriptor& listening) {
    for (;;) {
        FileDescriptor connection(accept4(listening.get(), nullptr, nullptr, SOCK_CLOEXEC));
        const bool isWorthAnotherTry = errno == EINTR || errno == ECONNABORTED;
        if (connection || !isWorthAnotherTry) return connection;
    }
}

SocketResult<FileDescriptor> connectTo(const std::string& path) {
    const auto address = addressOf(path);
    if (!address) return std::unexpected(address.error());
    FileDescriptor own = makeSocket();
    const int error = own ? connectSocket(own, *address) : errno;
    if (error == ENOENT || error == ECONNREFUSED) return failure(path, "nobody listens there");
    if (error != 0) return failure(path, reasonOf(error));
    return own;
}

std::optional<Peer> peerOf(const FileDescriptor& connection) {
    ucred credentials{};
    socklen_t size = sizeof credentials;
    if (getsockopt(connection.get(), SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) {
        return std::nullopt;
    }
    return Peer{.user = credentials.uid, .process = credentials.pid};
}

bool isOwnUserOrRoot(const Peer& peer) {
    return peer.user == geteuid() || peer.user == 0;
}

void makeNonBlocking(const FileDescriptor& descriptor) {
    const int flags = fcntl(descriptor.get(), F_GETFL);
    (void)fcntl(descriptor.get(), F_SETFL, flags | O_NONBLOCK);  // cannot fail on a socket
}

bool sendAll(const FileDescriptor& connection, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t sent = send(connection.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) continue;
        if (sent <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

bool receiveExactly(const FileDescriptor& connection, std::span<std::byte> bytes) {
    while (!bytes.empty()) {
        const ssize_t received = recv(connection.get(), bytes.data(), bytes.size(), 0);
        if (received < 0 && errno == EINTR) continue;
        if (received <= 0) return false;
        bytes = bytes.subspan(static_cast<std::size_t>(received));
    }
    return true;
}

SocketResult<std::string> runtimeFolder() {
    const char* const userFolder = std::getenv("XDG_RUNTIME_DIR");
    const bool hasUserFolder = userFolder && *userFolder == '/';
    const std::string path = hasUserFolder ? std::string(userFolder) + "/airflow"
                                           : "/tmp/airflow-" + std::to_string(geteuid());
    if (mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) {
        return failure(path, "the folder cannot be made: " + reasonOf(errno));
    }
    struct stat status{};
    if (lstat(path.c_str(), &status) != 0) return failure(path, reasonOf(errno));
    if (!S_ISDIR(status.st_mode)) return failure(path, "is not a folder");
    if (status.st_uid != geteuid()) return failure(path, "belongs to another user");
    if ((status.st_mode & 077U) != 0)
        return failure(path, "lets other users in (mode 0700 wanted)");
    return path;
}

}  // namespace airflow::platform
