#include "tool/client/Session.h"

#include <fmt/format.h>

#include <chrono>
#include <ostream>
#include <sstream>

#include "tool/client/HelperAnswer.h"

namespace airflow::tool {

namespace {

using concurrency::Instant;

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
    const Instant due = client.attend();
    if (wasConnected && !client.isConnected() && !input.isInterrupted()) {
        hasFailed = true;
        err << (kind == Kind::conversation ? "\n" : "")
            << "The connection to the daemon was lost: all fans return to Auto. The next command "
               "reconnects.\n"
            << std::flush;
    }
    return due;
}

}  // namespace airflow::tool
