// Places: where the values of a JSON text stand, for those who have to point at them. A second pass
// over the text, so that nobody who only reads values pays for it.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "json/DecodingError.h"
#include "json/Document.h"

namespace airflow::json {

class Places {
public:
    /// `text` is what `document` was parsed from; the document outlives this.
    Places(const Document& document, std::string_view text);

    /// The node that a JSON pointer (RFC 6901) names; of members with one key the last, as for a
    /// decoder. Nothing when there is none.
    [[nodiscard]] std::optional<std::size_t> find(std::string_view pointer);
    /// Where a node's value begins.
    [[nodiscard]] Position ofValue(std::size_t node) const;
    /// Where a member's key begins; the value of an element or of the root.
    [[nodiscard]] Position ofKey(std::size_t node) const;

private:
    struct Place {
        std::size_t key = 0;
        std::size_t value = 0;
    };

    [[nodiscard]] std::optional<std::size_t> child(std::size_t parent, const std::string& token);
    [[nodiscard]] std::optional<std::size_t> member(std::size_t object, std::string_view key) const;
    [[nodiscard]] const std::vector<std::size_t>& elementsOf(std::size_t array);
    [[nodiscard]] Position positionOf(std::size_t offset) const;

    const Document& document;
    std::vector<Place> places;                                 ///< offsets by node
    std::vector<std::size_t> lineStarts;                       ///< offsets
    std::map<std::size_t, std::vector<std::size_t>> elements;  ///< of the arrays asked for
};

/// The pointer to a member of what `parent` points to.
[[nodiscard]] std::string pointerTo(std::string_view parent, std::string_view key);
/// The same for an element.
[[nodiscard]] std::string pointerTo(std::string_view parent, std::size_t index);

}  // namespace airflow::json
