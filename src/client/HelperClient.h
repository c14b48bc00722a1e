// HelperClient: gives commands to a daemon over one connection at a time, and keeps what they hold
// alive. For one thread; calls block.
#pragma once

#include <chrono>
#include <cstdint>
#include <expected>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "client/Transport.h"
#include "control/ControlResult.h"
#include "control/ControlState.h"
#include "daemon/BuildIdentity.h"
#include "daemon/Command.h"
#include "daemon/HelperVersionReconciliation.h"
#include "wire/Answer.h"

namespace airflow::client {

/// The daemon gives the fans back when it hears nothing for more than 15 s: a third of that leaves
/// two heartbeats to lose.
inline constexpr concurrency::Duration heartbeatInterval = std::chrono::seconds(5);

/// What became of a call.
struct Answer {
    /// `applied` also for acknowledgements, versions, states and a heartbeat that was sent;
    /// `noHelper` when no daemon of the right build can be reached; `failed` also when there was no
    /// answer, in time or at all.
    control::ControlResult result;
    /// Why it is not `applied`, for people; empty when the daemon gave a code and nothing else.
    std::string reason{};
    std::optional<std::string> version{};
    std::optional<control::ControlState> state{};
};

struct HelperClientOptions {
    /// A claim of a fan alone may take the daemon 10 s.
    concurrency::Duration replyTimeout = std::chrono::seconds(30);
    bool sendsHeartbeats = true;
    /// Swaps of a daemon of another build, in the life of the client. With 0, such a daemon is left
    /// alone and no command reaches it.
    std::int64_t maxUpgradeAttempts =
        daemon::HelperVersionReconciliation::defaultMaxUpgradeAttempts;
    std::string expectedBuild{daemon::BuildIdentity::text};
    /// Called when a daemon of another build has left, and before the next is looked for. Where
    /// connecting starts the daemon there is nothing to do.
    std::function<void()> startHelper = [] {};
};

class HelperClient {
public:
    /// Transport and time outlive the client.
    HelperClient(Transport& transport, Time& time, HelperClientOptions options = {});

    /// Connects, unless there is a connection, and makes sure of the daemon's build, unless that is
    /// known. Every call does so first; `applied` when there is nothing in the way of commands.
    [[nodiscard]] Answer connect();
    /// Carries out one call and waits for its answer. What is asked of a daemon of any build, its
    /// build and to shut down, only needs a connection.
    [[nodiscard]] Answer call(const daemon::Command& command);
    /// Sends a heartbeat if one is due and notices a connection that has ended. To be called by the
    /// time that it returns, and when something arrives.
    concurrency::Instant attend();

    [[nodiscard]] bool isConnected() const { return channel != nullptr; }
    /// Ends the connection, and with it everything that anybody holds.
    void disconnect();

private:
    enum class Absence : std::uint8_t { late, ended, notUnderstood };
    /// What a build was asked for came to.
    struct Probe {
        daemon::HelperVersionProbe outcome = daemon::HelperVersionProbe::noReply;
        std::string reason;  ///< for people, unless it matched
    };
    using Ready = std::expected<void, std::string>;

    [[nodiscard]] Ready open(concurrency::Instant deadline);
    [[nodiscard]] Ready reconcile();
    [[nodiscard]] Ready swap();
    [[nodiscard]] Probe askBuild();
    void awaitEnd(concurrency::Instant until);

    [[nodiscard]] Answer exchange(const daemon::Command& command, concurrency::Duration timeout);
    [[nodiscard]] Answer awaitAnswer(std::int64_t id, daemon::Method method,
                                     concurrency::Instant until);
    [[nodiscard]] std::expected<wire::Answer, Absence> nextAnswer(concurrency::Instant until);
    [[nodiscard]] std::optional<std::string> takeLine();
    [[nodiscard]] bool send(std::string_view line);
    /// Whether this connection is one for heartbeats: of the right build, too.
    [[nodiscard]] bool keepsAlive() const;
    void sendHeartbeatIfDue();
    /// Takes what arrives until `until`; closes a connection that has ended.
    void receive(concurrency::Instant until);

    Transport& transport;
    Time& time;
    const HelperClientOptions options;
    std::unique_ptr<Channel> channel;
    std::string received;  ///< on this connection, and not yet looked at
    std::int64_t lastID = 0;
    concurrency::Instant heartbeatDue;
    daemon::HelperVersionReconciler reconciler;
    std::int64_t swaps = 0;
    std::string staleReason;  ///< of this connection's daemon, if it is stale
};

}  // namespace airflow::client
