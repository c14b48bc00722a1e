// UnknownWord: what somebody typed that no command takes.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace CLI {
class App;
}

namespace airflow::tool {

/// One line that names the first word that no command took, and the command or option that may
/// have been meant; nothing when all words were taken. `app` has parsed a command line, with
/// success or not.
[[nodiscard]] std::optional<std::string> unknownWord(const CLI::App& app);

/// `; did you mean "setPercent"?`, or nothing when no candidate is near the word.
[[nodiscard]] std::string suggestion(std::string_view word,
                                     const std::vector<std::string>& candidates);

}  // namespace airflow::tool
