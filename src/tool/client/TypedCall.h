// TypedCall: a call of the daemon as people type it.
#pragma once

#include <expected>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include "client/Protocol.h"

namespace airflow::tool {

struct TypedCall {
    client::Request request;
    std::string planPath{};  ///< of applyConfig, whose plan is still to be read
};

/// One line for each method, its arguments and what it does; without a heading.
[[nodiscard]] std::string_view methodsHelp();

/// The call that the words say, the method's name first; or what is wrong with them. Whether a fan
/// exists or a speed makes sense is for the daemon to say.
[[nodiscard]] std::expected<TypedCall, std::string> parseCall(
    const std::vector<std::string>& words);

/// The line's words, which blanks part, up to one that begins with #; a word in double quotes may
/// have both in it. Or what is wrong with the quotes.
[[nodiscard]] std::expected<std::vector<std::string>, std::string> wordsOf(std::string_view line);

/// A number of at least 0 and at most 1,000,000 seconds.
[[nodiscard]] std::expected<double, std::string> parseSeconds(const std::string& word);

/// The request, with the plan from its file, or from `in` where the path is "-". Or one line that
/// says why there is none: the file cannot be read, or is not JSON.
[[nodiscard]] std::expected<client::Request, std::string> withPlan(TypedCall call,
                                                                   std::istream& in);

/// What is wrong with a plan that the daemon refused, if that can be told from here.
[[nodiscard]] std::string whyNoPlan(const TypedCall& call, const client::Request& request);

}  // namespace airflow::tool
