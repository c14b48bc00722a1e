// One connection, driven by hand over a pair of sockets: nothing happens but in turn() and
// answer().
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <array>
#include <memory>
#include <string>
#include <string_view>

#include "ServedDaemon.h"
#include "platform/linux/LocalConnection.h"
#include "simulation/runtime/SimulatedRuntime.h"
#include "support/ApplyConfig.h"

namespace airflow::platform {

/// A line that is no call, and what each is answered.
inline constexpr std::string_view noCall = "{\"id\":1}\n";
inline constexpr std::string_view refusal =
    "{\"id\":1,\"error\":\"The required key \\\"method\\\" is missing.\"}\n";

class LocalConnectionTest : public testing::Test {
protected:
    LocalConnectionTest() {
        std::array<int, 2> pair{};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair.data()), 0);
        client = FileDescriptor(pair[0]);
        makeNonBlocking(client);
        connection = std::make_shared<LocalConnection>(loop, FileDescriptor(pair[1]), isWelcome,
                                                       [this](const LocalConnection&) { ++ends; });
        connection->setInvalidationHandler([this] { ++invalidations; });
        connection->setInterruptionHandler([this] { ++interruptions; });
        connection->exportService(service);
    }
    ~LocalConnectionTest() override { runtime.abandon(); }

    /// The connection does whatever it can do now. Tells how often there was something.
    std::size_t turn() {
        loop->restart();  // it stops when there is nothing to wait for
        return loop->poll();
    }
    /// The daemon carries out what was delivered.
    void answer() {
        runtime.settle();
        turn();
    }
    /// What the client can read now.
    std::string received() {
        std::string text(65536, '\0');
        const ssize_t count = recv(client.get(), text.data(), text.size(), MSG_DONTWAIT);
        text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
        return text;
    }
    void finishSending() const { EXPECT_EQ(shutdown(client.get(), SHUT_WR), 0); }
    /// Calls that are answered by answer() only, with the code 7.
    static std::string calls(std::size_t count) {
        std::string lines;
        for (std::size_t i = 0; i < count; ++i) {
            lines += tests::applyConfig(static_cast<int>(i), "{}") + '\n';
        }
        return lines;
    }
    /// Sends as many calls as a client may have under way, and then `rest`.
    void beBusy(std::string_view rest = {}) {
        connection->resume();
        EXPECT_TRUE(sendAll(client, calls(LocalConnection::unansweredLimit) + std::string(rest)));
        turn();
    }
    /// Sends what is answered at once for as long as it is read. Tells how many lines went.
    std::size_t sendWhileRead() {
        std::string lines;
        for (int i = 0; i < 100; ++i) lines += noCall;
        std::size_t sent = 0;
        while (sent < 1'000'000) {
            const ssize_t count = send(client.get(), lines.data(), lines.size(), MSG_NOSIGNAL);
            if (count != static_cast<ssize_t>(lines.size())) {
                const std::size_t went = count > 0 ? static_cast<std::size_t>(count) : 0;
                const std::size_t part = went % noCall.size();
                if (part > 0) restOfALine = noCall.substr(part);
                return sent + (went + noCall.size() - 1) / noCall.size();
            }
            sent += 100;
            turn();
        }
        return sent;
    }

    PeerCheck isWelcome = [](const Peer&) { return true; };
    FileDescriptor client;
    int invalidations = 0;
    int interruptions = 0;
    int ends = 0;
    std::string_view restOfALine;  ///< of which sendWhileRead() could not send all
    const std::shared_ptr<asio::io_context> loop = std::make_shared<asio::io_context>(1);
    simulation::SimulatedRuntime runtime;
    EndlessProcess process;
    daemon::FanHelperService service{runtime, process, nullptr};
    std::shared_ptr<LocalConnection> connection;
};

}  // namespace airflow::platform
