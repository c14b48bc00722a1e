// Session: commands from a person or a script, over one connection that holds what they set.
#pragma once

#include <functional>
#include <iosfwd>
#include <optional>
#include <string>

#include "client/HelperClient.h"
#include "tool/client/TypedCommand.h"

namespace airflow::tool {

/// What has to be done while nothing else happens. Returns by when it is to be called again.
using Attend = std::function<concurrency::Instant()>;

/// Where commands come from. Both operations wait, and meanwhile call `attend`: at once, by the
/// time that it returned, and whenever the daemon says something.
class SessionInput {
public:
    SessionInput() = default;
    SessionInput(const SessionInput&) = delete;
    SessionInput& operator=(const SessionInput&) = delete;
    virtual ~SessionInput() = default;

    /// The next line, without its newline. Nothing at the end, or when the user interrupts.
    [[nodiscard]] virtual std::optional<std::string> nextLine(const Attend& attend) = 0;
    /// Waits until `until`, less if the user interrupts.
    virtual void pause(concurrency::Instant until, const Attend& attend) = 0;
    /// Whether the user wants to end it all.
    [[nodiscard]] virtual bool isInterrupted() const = 0;
};

class Session {
public:
    /// In a script, what fails is named with its line and counts; a person sees it and goes on.
    enum class Kind : bool { script, conversation };

    /// All outlive the session.
    Session(client::HelperClient& client, client::Time& time, SessionInput& input,
            std::ostream& out, std::ostream& err, Kind kind)
        : client(client), time(time), input(input), out(out), err(err), kind(kind) {}

    /// Carries out commands until the input ends or says so. Returns the exit status: 0; 1 when
    /// there is no daemon, or when something in a script failed; 130 when interrupted.
    [[nodiscard]] int run();

private:
    /// False when the session is to end.
    [[nodiscard]] bool carryOut(const std::string& line);
    void give(const std::vector<std::string>& words);
    void wait(const std::vector<std::string>& words);
    void refuse(const std::string& reason);
    void sayGoodbye();
    concurrency::Instant attend();
    concurrency::Instant lookAtFans();
    void tellWhatChanged(const control::ControlState& before, const control::ControlState& now);

    client::HelperClient& client;
    client::Time& time;
    SessionInput& input;
    std::ostream& out;
    std::ostream& err;
    const Kind kind;
    std::size_t lineNumber = 0;
    bool hasFailed = false;
    /// The daemon tells nobody what changes, so it is asked; nothing while nothing is held.
    std::optional<concurrency::Instant> nextLook;
    std::optional<control::ControlState> seen;  ///< since the last command
};

}  // namespace airflow::tool
