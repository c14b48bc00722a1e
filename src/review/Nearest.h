// Nearest: what somebody who mistyped a word may have meant.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace airflow::review {

/// How many characters have to be inserted, left out or replaced to make one of the other. Upper
/// and lower case count as the same. Bytes, not characters, beyond ASCII.
[[nodiscard]] std::size_t editDistance(std::string_view a, std::string_view b);

/// The candidate with the least distance, the first of equals; nothing when all differ in more
/// than a third of the word.
template <typename Candidates>
[[nodiscard]] std::optional<std::string> nearest(std::string_view word,
                                                 const Candidates& candidates) {
    constexpr std::size_t longest = 64;
    if (word.size() > longest) return std::nullopt;
    std::size_t least = word.size() / 3 + 1;
    std::optional<std::string> found;
    for (const auto& candidate : candidates) {
        const std::size_t distance = editDistance(word, candidate);
        if (distance >= least) continue;
        least = distance;
        found = std::string(candidate);
    }
    return found;
}

}  // namespace airflow::review
