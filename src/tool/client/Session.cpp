#include "tool/client/Session.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <ostream>
#include <sstream>
#include <utility>

#include "text/Text.h"
#include "tool/client/HelperAnswer.h"

namespace airflow::tool {

namespace {

using concurrency::Instant;

bool changesFans(daemon::Method method) {
    using daemon::Method;
    return method != Method::helperVersion && method != Method::readState &&
           method != Method::heartbeat;
}

constexpr std::string_view ownCommands =
    "  state                    The same as readState\n"
    "  wait SECONDS             Do nothing but keep what is held\n"
    "  help                     Show this\n"
    "  quit                     End the session; so does the end of the input\n";

}  // namespace

int Session::run() {
    const client::Answer connected = client.connect();
    if (!connected.result.isApplied()) {
        out << answerText({.answer = connected});
        return 1;
    }
    if (kind == Kind::conversation) {
        out << "Connected. Fans stay under control until this session ends. Type help for a list "
               "of commands.\n";
    }
    out.flush();
    while (const auto line = input.nextLine([this] { return attend(); })) {
        ++lineNumber;
        const bool goesOn = carryOut(*line);
        out.flush();
        if (!goesOn || input.isInterrupted()) break;
    }
    if (input.isInterrupted()) {
        err << "Interrupted: all fans return to Auto.\n";
        return 130;
    }
    sayGoodbye();
    return hasFailed && kind == Kind::script ? 1 : 0;
}

bool Session::carryOut(const std::string& line) {
    const auto words = wordsOf(line);
    if (!words) {
        refuse(words.error());
        return true;
    }
    if (words->empty()) return true;
    const std::string& command = words->front();
    const bool isAlone = words->size() == 1;
    if (command == "quit" && isAlone) return false;
    if (command == "help" && isAlone)
        out << commandsHelp() << ownCommands;
    else if (command == "state" && isAlone)
        give({"readState"});
    else if (command == "wait")
        wait(*words);
    else
        give(*words);
    return true;
}

void Session::give(const std::vector<std::string>& words) {
    auto typed = parseCommand(words);
    if (!typed) return refuse(typed.error());
    if (typed->planPath == "-") return refuse("the plan has to be in a file here");
    std::istringstream nothing;
    if (const auto read = readPlan(*typed, nothing); !read) return refuse(read.error());
    CallOutcome outcome{.method = daemon::methodOf(typed->command),
                        .answer = client.call(typed->command)};
    if (changesFans(outcome.method)) {
        seen.reset();
        nextLook = time.now();
    }
    if (!outcome.answer.result.isApplied()) {
        hasFailed = true;
        outcome.ownReason = whyNoPlan(*typed);
        const bool needsReason = outcome.answer.reason.empty() && outcome.ownReason.empty();
        if (needsReason) outcome.after = client.call(daemon::commands::ReadState{}).state;
    }
    out << answerText(outcome);
}

void Session::wait(const std::vector<std::string>& words) {
    if (words.size() != 2) return refuse("wait takes: SECONDS");
    const auto seconds = parseSeconds(words[1]);
    if (!seconds) return refuse(seconds.error());
    const auto duration = concurrency::fromSeconds(*seconds);
    input.pause(time.now() + duration, [this] { return attend(); });
}

void Session::refuse(const std::string& reason) {
    hasFailed = true;
    if (kind == Kind::conversation)
        err << reason << '\n';
    else
        err << fmt::format("line {}: {}\n", lineNumber, reason);
    err.flush();
}

void Session::sayGoodbye() {
    if (!client.isConnected()) return;
    const auto state = client.call(daemon::commands::ReadState{}).state;
    if (state && state->isHolding) {
        err << "Disconnected: all fans return to Auto.\n";
    }
}

Instant Session::attend() {
    const bool wasConnected = client.isConnected();
    const Instant heartbeat = client.attend();
    const Instant due = std::min(heartbeat, lookAtFans());
    if (wasConnected && !client.isConnected() && !input.isInterrupted()) {
        hasFailed = true;
        nextLook.reset();
        err << (kind == Kind::conversation ? "\n" : "")
            << "The connection to the daemon was lost: all fans return to Auto. The next command "
               "reconnects.\n"
            << std::flush;
    }
    return due;
}

/// Returns when the next look is due.
Instant Session::lookAtFans() {
    if (!nextLook || !client.isConnected()) return Instant::max();
    if (time.now() < *nextLook) return *nextLook;
    nextLook = time.now() + client::heartbeatInterval;
    auto state = client.call(daemon::commands::ReadState{}).state;
    if (!state) return *nextLook;
    if (seen) tellWhatChanged(*seen, *state);
    seen = std::move(state);
    if (seen->isHolding) return *nextLook;
    nextLook.reset();
    return Instant::max();
}

void Session::tellWhatChanged(const control::ControlState& before,
                              const control::ControlState& now) {
    const bool isReleased = before.isHolding && !now.isHolding;
    const bool hasNewError = now.lastError && now.lastError != before.lastError;
    if (!isReleased && !hasNewError) return;
    hasFailed |= isReleased;
    const std::string error = hasNewError ? text::printable(*now.lastError) : "";
    err << (kind == Kind::conversation ? "\n" : "");
    if (!isReleased)
        err << "The daemon reports: " << error;
    else if (hasNewError)
        err << "The daemon gave the fans back: " << error;
    else
        err << "The fans are back in Auto: another client gave a command or ended.";
    err << '\n' << std::flush;
}

}  // namespace airflow::tool
