// TypedCommand: a command to the daemon as people type it.
#pragma once

#include <expected>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include "daemon/Command.h"

namespace airflow::tool {

struct TypedCommand {
    daemon::Command command;
    std::string planPath{};  ///< of applyConfig, whose plan is still to be read
};

/// One line for each command, its arguments and what it does; without a heading.
[[nodiscard]] std::string commandsHelp();

/// The command that the words say, its name first; or what is wrong with them. Fans are
/// 0 to 9; whether the machine has that one, or a speed makes sense, is for the daemon to say.
[[nodiscard]] std::expected<TypedCommand, std::string> parseCommand(
    const std::vector<std::string>& words);

/// The line's words, which blanks part, up to one that begins with #; a word in double quotes may
/// have both in it. Or what is wrong with the quotes.
[[nodiscard]] std::expected<std::vector<std::string>, std::string> wordsOf(std::string_view line);

/// A number of at least 0 and at most 1,000,000 seconds.
[[nodiscard]] std::expected<double, std::string> parseSeconds(const std::string& word);

/// Reads the plan from its file, or from `in` where the path is "-". Or one line that says why
/// there is none: the file cannot be read, or is not JSON.
[[nodiscard]] std::expected<void, std::string> readPlan(TypedCommand& typed, std::istream& in);

/// What is wrong with a plan that the daemon refused, if that can be told from here.
[[nodiscard]] std::string whyNoPlan(const TypedCommand& typed);

}  // namespace airflow::tool
