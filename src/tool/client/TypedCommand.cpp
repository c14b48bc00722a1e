#include "tool/client/TypedCommand.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <functional>
#include <istream>
#include <iterator>
#include <sstream>
#include <system_error>

#include "json/Decoder.h"
#include "json/Document.h"
#include "plan/FanControlPlan.h"
#include "text/Text.h"
#include "tool/common/UnknownWord.h"
#include "tool/plans/PlanFile.h"

namespace airflow::tool {

namespace {

using daemon::Command;
namespace commands = daemon::commands;

std::expected<std::int64_t, std::string> parseWhole(std::string_view what,
                                                    const std::string& word) {
    std::int64_t number = 0;
    const char* const end = word.data() + word.size();
    const auto [stop, status] = std::from_chars(word.data(), end, number);
    if (status == std::errc() && stop == end) return number;
    return std::unexpected(
        fmt::format("{} has to be a whole number, not \"{}\"", what, text::printable(word)));
}

std::expected<double, std::string> parseNumber(std::string_view what, const std::string& word) {
    std::istringstream text(word);
    text.imbue(std::locale::classic());
    double number = 0;
    text >> std::noskipws >> number;
    if (text && text.peek() == std::istringstream::traits_type::eof() && std::isfinite(number)) {
        return number;
    }
    return std::unexpected(
        fmt::format("{} has to be a number, not \"{}\"", what, text::printable(word)));
}

/// The arguments' names as people are shown them: "FAN RPM".
std::string argumentsOf(const Command& command) {
    std::vector<std::string> names;
    daemon::forEachArgument(command, [&names](std::string_view name, const auto&) {
        std::string& shown = names.emplace_back(name);
        std::ranges::transform(shown, shown.begin(),
                               [](unsigned char each) { return std::toupper(each); });
    });
    return fmt::format("{}", fmt::join(names, " "));
}

/// Reads words as the arguments of a command, one after the other.
class Arguments {
public:
    explicit Arguments(const std::vector<std::string>& typed) : words(typed) {}

    void operator()(std::string_view name, std::int64_t& value) {
        take(name, value, &parseWhole);
        // A fan's keys have room for one digit.
        const bool isPossible = name != "fan" || (value >= 0 && value <= 9);
        if (!isPossible && error.empty()) error = "FAN has to be from 0 to 9";
    }
    void operator()(std::string_view name, double& value) { take(name, value, &parseNumber); }
    /// A plan's words are the path to it.
    void operator()(std::string_view, std::string&) { path = words.at(next++); }

    std::string path;
    std::string error;  ///< the first

private:
    template <typename Value>
    void take(std::string_view name, Value& value,
              std::expected<Value, std::string> (*parse)(std::string_view, const std::string&)) {
        std::string shown(name);
        std::ranges::transform(shown, shown.begin(),
                               [](unsigned char each) { return std::toupper(each); });
        const auto parsed = parse(shown, words.at(next++));
        if (parsed) value = *parsed;
        if (!parsed && error.empty()) error = parsed.error();
    }

    const std::vector<std::string>& words;
    std::size_t next = 1;  ///< behind the command's name
};

}  // namespace

std::string commandsHelp() {
    std::string help;
    for (const auto& description : daemon::commandDescriptions) {
        const auto command = daemon::commandNamed(description.name);
        const std::string arguments = argumentsOf(*command);
        const std::string usage =
            fmt::format("{}{}{}", description.name, arguments.empty() ? "" : " ", arguments);
        help += fmt::format("  {:<24} {}\n", usage, description.summary);
    }
    return help;
}

std::expected<TypedCommand, std::string> parseCommand(const std::vector<std::string>& words) {
    if (words.empty()) return std::unexpected("a method is missing");
    auto command = daemon::commandNamed(words.front());
    if (!command) {
        std::vector<std::string> names;
        for (const auto& description : daemon::commandDescriptions) {
            names.emplace_back(description.name);
        }
        return std::unexpected(fmt::format("there is no method \"{}\"{}",
                                           text::printable(words.front()),
                                           suggestion(words.front(), names)));
    }
    std::size_t count = 0;
    daemon::forEachArgument(*command, [&count](std::string_view, auto&) { ++count; });
    if (words.size() - 1 != count) {
        const auto arguments = argumentsOf(*command);
        return std::unexpected(arguments.empty()
                                   ? fmt::format("{} takes no arguments", words[0])
                                   : fmt::format("{} takes: {}", words[0], arguments));
    }
    Arguments arguments(words);
    daemon::forEachArgument(*command, std::ref(arguments));
    if (!arguments.error.empty()) return std::unexpected(std::move(arguments.error));
    return TypedCommand{.command = std::move(*command), .planPath = std::move(arguments.path)};
}

std::expected<std::vector<std::string>, std::string> wordsOf(std::string_view line) {
    std::vector<std::string> words;
    bool isQuoted = false;
    bool isInWord = false;
    for (const char character : line) {
        const bool isBlank = character == ' ' || character == '\t' || character == '\r';
        if (isBlank && !isQuoted) {
            isInWord = false;
            continue;
        }
        if (!isInWord && character == '#') break;
        if (!isInWord) words.emplace_back();
        isInWord = true;
        if (character == '"')
            isQuoted = !isQuoted;
        else
            words.back() += character;
    }
    if (isQuoted) return std::unexpected("a quotation mark is missing");
    return words;
}

std::expected<double, std::string> parseSeconds(const std::string& word) {
    auto seconds = parseNumber("SECONDS", word);
    if (seconds && (*seconds < 0 || *seconds > 1e6)) {
        return std::unexpected("SECONDS has to be from 0 to 1000000");
    }
    return seconds;
}

std::expected<void, std::string> readPlan(TypedCommand& typed, std::istream& in) {
    auto* const applied = std::get_if<commands::ApplyConfig>(&typed.command);
    if (!applied) return {};
    const auto bytes = readInput(typed.planPath, in);
    if (!bytes) {
        return std::unexpected(
            fmt::format("{}: cannot be read: {}", text::printable(typed.planPath), bytes.error()));
    }
    json::Document document;
    if (const auto parsed = document.parse(*bytes); !parsed) {
        return std::unexpected(text::printable(parsed.error().describe(inputName(typed.planPath))));
    }
    applied->plan = *bytes;
    return {};
}

std::string whyNoPlan(const TypedCommand& typed) {
    const auto* const applied = std::get_if<commands::ApplyConfig>(&typed.command);
    if (!applied) return {};
    const auto plan = json::decode<plan::FanControlPlan>(applied->plan);
    return plan ? std::string() : text::printable(plan.error().describe(inputName(typed.planPath)));
}

}  // namespace airflow::tool
