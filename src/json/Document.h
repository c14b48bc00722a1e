// A parsed JSON text as one flat list of nodes: no recursion that a hostile text could exhaust, and
// no allocation for each value, so that a day's trace streams through one Document.
#pragma once

#include <cstddef>
#include <cstdint>
#include <expected>
#include <string>
#include <string_view>
#include <vector>

#include "json/DecodingError.h"

namespace airflow::json {

/// What a text may be before it is refused unread.
struct Limits {
    std::size_t bytes = 1024 * 1024;
    std::size_t depth = 512;  ///< nested objects and arrays
};

class Document {
public:
    enum class Kind : std::uint8_t {
        null,
        boolean,
        integer,  ///< negative, without fraction or exponent
        natural,  ///< not negative, without fraction or exponent
        huge,     ///< without fraction or exponent, beyond 64 bits
        real,     ///< with a fraction or an exponent, or minus zero
        text,
        array,
        object
    };

    /// One value. An array or object is followed by what it holds, up to `end`. Texts and keys lie
    /// in the document's text store, since nodes move while they are read.
    struct Node {
        Kind kind = Kind::null;
        std::size_t end = 0;  ///< index after the value's last node
        std::size_t keyStart = 0;
        std::size_t keyLength = 0;
        std::size_t textStart = 0;
        std::size_t textLength = 0;
        union {
            bool boolean;
            std::int64_t integer = 0;
            std::uint64_t natural;
            double real;  ///< the nearest to a number that is real or huge
        };
    };

    /// Replaces what the document holds by `text`, a UTF-8 text without a byte-order mark that
    /// holds one value and nothing after it. After an error the document is empty.
    [[nodiscard]] std::expected<void, DecodingError> parse(std::string_view text,
                                                           const Limits& limits = {});

    /// Node 0 is the root. Requires a successful parse.
    [[nodiscard]] const Node& node(std::size_t index) const { return nodes[index]; }
    [[nodiscard]] std::string_view key(const Node& node) const {
        return std::string_view(texts).substr(node.keyStart, node.keyLength);
    }
    [[nodiscard]] std::string_view text(const Node& node) const {
        return std::string_view(texts).substr(node.textStart, node.textLength);
    }

private:
    friend class DocumentBuilder;

    std::vector<Node> nodes;
    std::string texts;
};

}  // namespace airflow::json
