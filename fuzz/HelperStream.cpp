#include "HelperStream.h"

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <asio/io_context.hpp>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "concurrency/Require.h"
#include "daemon/Daemon.h"
#include "daemon/HelperListenerDelegate.h"
#include "platform/linux/LocalConnection.h"
#include "simulation/daemon/SimulatedDaemon.h"
#include "simulation/machine/RecordedLines.h"
#include "simulation/machine/SimulatedMac.h"
#include "wire/Answer.h"
#include "wire/Request.h"

namespace airflow::fuzz {

namespace {

using concurrency::require;
using platform::FileDescriptor;
using platform::LocalConnection;
using simulation::FanMode;
using namespace std::chrono_literals;

/// How often each id was asked for, or answered; nothing stands for the id null.
using IDs = std::map<std::optional<std::int64_t>, std::size_t>;

/// What the daemon has to answer to all these bytes.
IDs asked(std::string_view bytes, bool isEnded) {
    IDs ids;
    while (!bytes.empty()) {
        const std::size_t end = bytes.find('\n');
        if (end == std::string_view::npos) {
            if (isEnded) ++ids[std::nullopt];  // the last line has no newline
            return ids;
        }
        const auto call = wire::parseRequest(bytes.substr(0, end));
        if (!call)
            ++ids[call.error().id];
        else if (daemon::methodOf(call->command) != daemon::Method::heartbeat)
            ++ids[call->id];
        bytes.remove_prefix(end + 1);
    }
    return ids;
}

/// What it has answered, which its own client understands.
IDs answered(std::string_view bytes) {
    IDs ids;
    for (std::size_t end = 0; !bytes.empty(); bytes.remove_prefix(end + 1)) {
        end = bytes.find('\n');
        require(end != std::string_view::npos, "an answer ends with a newline");
        const auto answer = wire::parseAnswer(bytes.substr(0, end));
        require(answer.has_value() && answer->body.has_value(), "the client reads every answer");
        ++ids[answer->id];
    }
    return ids;
}

std::size_t countOf(const IDs& ids) {
    std::size_t count = 0;
    for (const auto& [id, times] : ids) count += times;
    return count;
}

/// Where the only client knocks.
class Door final : public daemon::Listener {
public:
    void resume(daemon::HelperListenerDelegate& accepting) override { delegate = &accepting; }

    daemon::HelperListenerDelegate* delegate = nullptr;
};

class Conversation {
public:
    explicit Conversation(std::uint64_t seed) : runtime(seed) {
        runtime.detach("start-up", daemon.startUp());
        runtime.advance(1s);
        require(door.delegate != nullptr, "the daemon listens on an honest machine");
        std::array<int, 2> ends{};
        constexpr int type = SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK;
        require(socketpair(AF_UNIX, type, 0, ends.data()) == 0, "the system has sockets");
        client = FileDescriptor(ends[0]);
        connection = std::make_shared<LocalConnection>(
            loop, FileDescriptor(ends[1]), isWelcome,
            [this](const LocalConnection&) { connection.reset(); });
        require(door.delegate->shouldAccept(*connection), "every client is let in");
    }
    Conversation(const Conversation&) = delete;
    Conversation& operator=(const Conversation&) = delete;
    ~Conversation() {
        connection.reset();
        runtime.abandon();
    }

    void send(std::string_view bytes) {
        if (!client || bytes.empty()) return;
        const ssize_t count = ::send(client.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        sent.append(bytes.substr(0, count > 0 ? static_cast<std::size_t>(count) : 0));
        serve();
    }
    void finish() {
        if (client) (void)shutdown(client.get(), SHUT_WR);
        serve();
    }
    /// The client is gone, whatever it has not read.
    void leave() {
        client = {};
        serve();
    }
    void wait(concurrency::Duration duration) {
        if (hasExited()) return;
        runtime.advance(duration);
        serve();
    }

    void judge(bool isEnded) {
        const IDs questions = asked(sent, isEnded);
        for (int i = 0; i < 30 && countOf(answered(received)) < countOf(questions); ++i) wait(10s);
        wait(1s);
        const IDs answers = answered(received);
        if (!hasExited()) require(answers == questions, "every message is answered once");
        for (const auto& [id, times] : answers) {
            const auto question = questions.find(id);
            require(question != questions.end() && question->second >= times,
                    "no message is answered twice");
        }
    }
    void judgeEnd() {
        wait(30s);
        for (std::size_t fan = 0; fan < mac.fanCount(); ++fan) {
            require(mac.fan(fan).mode != FanMode::forced, "fans do not outlive their client");
        }
    }
    [[nodiscard]] bool hasExited() const { return process.end().has_value(); }

private:
    /// Both ends do whatever they can do now.
    void serve() {
        bool isAnything = true;
        while (isAnything && !hasExited()) {
            runtime.settle();
            loop->restart();  // it stops when there is nothing to wait for
            isAnything = loop->poll() > 0;
            receive();
        }
    }
    void receive() {
        std::array<char, 65536> chunk{};
        while (client) {
            const ssize_t count = recv(client.get(), chunk.data(), chunk.size(), 0);
            if (count <= 0) return;
            received.append(chunk.data(), static_cast<std::size_t>(count));
        }
    }

    simulation::SimulatedRuntime runtime;
    simulation::SimulatedMac mac{*simulation::machinePreset("laptop"),
                                 [this] { return runtime.now().time_since_epoch(); }};
    simulation::RecordedLines standardError;
    simulation::SimulatedProcess process{runtime};
    simulation::SimulatedHardware hardware{runtime, mac, standardError};
    Door door;
    daemon::Daemon daemon{{.runtime = runtime,
                           .hardware = hardware,
                           .process = process,
                           .listener = door,
                           .standardError = standardError,
                           .effectiveUserID = [] { return 0U; }}};
    const std::shared_ptr<asio::io_context> loop = std::make_shared<asio::io_context>(1);
    platform::PeerCheck isWelcome = [](const platform::Peer&) { return true; };
    FileDescriptor client;
    std::shared_ptr<LocalConnection> connection;
    std::string sent;
    std::string received;
};

}  // namespace

void playHelperStream(Input input) {
    constexpr std::array<concurrency::Duration, 4> pauses{0s, 50ms, 2s, 20s};
    const std::uint64_t seed = input.below(3);
    const bool isEnded = input.below(4) != 0;
    const bool isGone = input.below(16) == 1;
    std::array<std::size_t, 8> lengths{};
    for (std::size_t& each : lengths) each = input.below(128);
    std::string_view rest = input.text();
    Conversation conversation(seed);
    for (const std::size_t length : lengths) {
        conversation.send(rest.substr(0, length));
        rest.remove_prefix(std::min(length, rest.size()));
        conversation.wait(pauses[length % pauses.size()]);
    }
    conversation.send(rest);
    if (isGone) {
        conversation.leave();
    } else {
        if (isEnded) conversation.finish();
        conversation.judge(isEnded);
    }
    conversation.judgeEnd();
}

}  // namespace airflow::fuzz
