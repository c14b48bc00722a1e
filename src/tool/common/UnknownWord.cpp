#include "tool/common/UnknownWord.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>

#include "review/Nearest.h"
#include "text/Text.h"

namespace airflow::tool {

namespace {

std::string pathOf(const CLI::App& app) {
    const CLI::App* const parent = app.get_parent();
    return parent ? pathOf(*parent) + " " + app.get_name() : app.get_name();
}

std::vector<std::string> optionsOf(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::Option* option : app.get_options()) {
        for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
    }
    return names;
}

std::vector<std::string> commandsOf(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::App* part : app.get_subcommands(nullptr)) names.push_back(part->get_name());
    return names;
}

std::string describe(const CLI::App& app, const std::string& word) {
    const std::string path = pathOf(app);
    if (word.starts_with('-')) {
        const std::string name = word.substr(0, word.find('='));
        return fmt::format("{} has no option \"{}\"{}", path, text::printable(name),
                           suggestion(name, optionsOf(app)));
    }
    const auto commands = commandsOf(app);
    if (!commands.empty() && app.get_subcommands().empty()) {
        return fmt::format("{} has no command \"{}\"{}", path, text::printable(word),
                           suggestion(word, commands));
    }
    return fmt::format("{} takes no further argument, such as \"{}\"", path, text::printable(word));
}

}  // namespace

std::optional<std::string> unknownWord(const CLI::App& app) {
    for (const std::string& word : app.remaining()) {
        if (word != "--") return describe(app, word);
    }
    for (const CLI::App* part : app.get_subcommands()) {
        if (auto unknown = unknownWord(*part)) return unknown;
    }
    return std::nullopt;
}

std::string suggestion(std::string_view word, const std::vector<std::string>& candidates) {
    const auto near = review::nearest(word, candidates);
    return near ? fmt::format("; did you mean \"{}\"?", *near) : "";
}

}  // namespace airflow::tool
