#include "json/Document.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

namespace airflow::json {

namespace {

Position positionOf(std::string_view text, std::size_t offset) {
    const std::string_view before = text.substr(0, std::min(offset, text.size()));
    const auto lines = std::ranges::count(before, '\n');
    const std::size_t lineStart = before.rfind('\n') + 1;  // npos + 1 is 0
    return {.line = static_cast<std::size_t>(lines) + 1, .column = before.size() - lineStart + 1};
}

DecodingError malformed(std::string_view text, std::size_t offset, std::string description) {
    return {.codingPath = {},
            .description = std::move(description),
            .position = positionOf(text, offset)};
}

/// The parser's own reason, without its prefix, its position (we give our own) and its quotation
/// of `token`, which may be long, need not be UTF-8 and may imitate anything.
std::string reasonOf(std::string_view message, std::string_view token) {
    if (const auto prefix = message.find(": "); prefix != std::string_view::npos) {
        message.remove_prefix(prefix + 2);
    }
    constexpr std::string_view quotation = "; last read: '";
    const auto quoted = message.find(quotation);
    if (quoted == std::string_view::npos) return std::string(message);
    const auto behind = quoted + quotation.size() + token.size() + 1;
    return std::string(message.substr(0, quoted)).append(message.substr(behind));
}

/// How many bytes before the parser's place the error stands: at the start of a token that is
/// complete but unexpected, at the last byte read of any other. The end of the text counts as one.
std::size_t lengthOfUnexpected(std::string_view reason, std::string_view token) {
    // The parser keeps the token of numbers and strings alone.
    if (reason.contains("unexpected number literal")) return token.size();
    if (reason.contains("unexpected string literal")) return token.size();
    if (reason.contains("unexpected true literal")) return std::string_view("true").size();
    if (reason.contains("unexpected false literal")) return std::string_view("false").size();
    if (reason.contains("unexpected null literal")) return std::string_view("null").size();
    return 1;
}

/// Where the bracket stands that opens one level more than `depth`.
std::size_t offsetBeyondDepth(std::string_view text, std::size_t depth) {
    std::size_t open = 0;
    bool quoted = false;
    for (std::size_t offset = 0; offset < text.size(); ++offset) {
        const char character = text[offset];
        if (quoted && character == '\\')
            ++offset;
        else if (character == '"')
            quoted = !quoted;
        else if (quoted)
            continue;
        else if (character == '{' || character == '[') {
            if (open++ == depth) return offset;
        } else if (character == '}' || character == ']')
            --open;
    }
    return text.size();
}

}  // namespace

/// Receives the parser's events and appends nodes. Its members have the names that the parser
/// calls.
class DocumentBuilder {
public:
    using number_integer_t = nlohmann::json::number_integer_t;
    using number_unsigned_t = nlohmann::json::number_unsigned_t;
    using number_float_t = nlohmann::json::number_float_t;
    using string_t = nlohmann::json::string_t;
    using binary_t = nlohmann::json::binary_t;
    using Kind = Document::Kind;

    DocumentBuilder(Document& document, const Limits& limits)
        : document(document), limits(limits) {}

    bool null() {
        append(Kind::null);
        return true;
    }
    bool boolean(bool value) {
        append(Kind::boolean).boolean = value;
        return true;
    }
    bool number_integer(number_integer_t value) {
        // The parser calls this for numbers with a minus sign: a zero was "-0".
        if (value == 0)
            append(Kind::real).real = -0.0;
        else
            append(Kind::integer).integer = value;
        return true;
    }
    bool number_unsigned(number_unsigned_t value) {
        append(Kind::natural).natural = value;
        return true;
    }
    bool number_float(number_float_t value, const string_t& token) {
        const bool isInteger = token.find_first_of(".eE") == string_t::npos;
        append(isInteger ? Kind::huge : Kind::real).real = value;
        return true;
    }
    bool string(const string_t& value) {
        Document::Node& node = append(Kind::text);
        node.textStart = document.texts.size();
        node.textLength = value.size();
        document.texts += value;
        return true;
    }
    bool binary(const binary_t&) { return false; }  // JSON texts have none
    bool key(const string_t& value) {
        keyStart = document.texts.size();
        keyLength = value.size();
        document.texts += value;
        return true;
    }
    bool start_object(std::size_t) { return begin(Kind::object); }
    bool start_array(std::size_t) { return begin(Kind::array); }
    bool end_object() { return end(); }
    bool end_array() { return end(); }
    bool parse_error(std::size_t bytesRead, const std::string& token,
                     const nlohmann::detail::exception& exception) {
        const bool outOfRange = exception.id == 406;
        reason = outOfRange ? "number out of range of a 64-bit float"
                            : reasonOf(exception.what(), token);
        errorOffset = bytesRead - (outOfRange ? token.size() : lengthOfUnexpected(reason, token));
        return false;
    }

    std::size_t errorOffset = 0;
    std::string reason;
    bool tooDeep = false;

private:
    Document::Node& append(Kind kind) {
        Document::Node& node = document.nodes.emplace_back();
        node.kind = kind;
        node.end = document.nodes.size();
        node.keyStart = keyStart;
        node.keyLength = std::exchange(keyLength, 0);
        return node;
    }
    bool begin(Kind kind) {
        if (open.size() == limits.depth) {
            tooDeep = true;
            return false;
        }
        open.push_back(document.nodes.size());
        append(kind);
        return true;
    }
    bool end() {
        document.nodes[open.back()].end = document.nodes.size();
        open.pop_back();
        return true;
    }

    Document& document;
    const Limits& limits;
    std::vector<std::size_t> open;  ///< the arrays and objects around the next value
    std::size_t keyStart = 0;
    std::size_t keyLength = 0;
};

std::expected<void, DecodingError> Document::parse(std::string_view text, const Limits& limits) {
    nodes.clear();
    texts.clear();
    if (text.size() > limits.bytes) {
        return std::unexpected(DecodingError{
            .codingPath = {},
            .description = fmt::format("the document has more than {} bytes", limits.bytes),
            .position = {}});
    }
    if (text.starts_with("\xEF\xBB\xBF")) {
        return std::unexpected(malformed(text, 0, "a byte-order mark is not allowed"));
    }
    if (text.find_first_not_of(" \t\r\n") == std::string_view::npos) {
        return std::unexpected(malformed(text, 0, "the document is empty"));
    }
    // The parser would take a NUL for the end of the text and never see what stands behind it.
    if (const auto nul = text.find('\0'); nul != std::string_view::npos) {
        return std::unexpected(malformed(text, nul, "a NUL byte is not allowed"));
    }
    DocumentBuilder builder(*this, limits);
    if (nlohmann::json::sax_parse(text.begin(), text.end(), &builder)) return {};
    nodes.clear();
    texts.clear();
    if (builder.tooDeep) {
        return std::unexpected(
            malformed(text, offsetBeyondDepth(text, limits.depth),
                      fmt::format("nested more than {} levels deep", limits.depth)));
    }
    return std::unexpected(malformed(text, builder.errorOffset, std::move(builder.reason)));
}

}  // namespace airflow::json
