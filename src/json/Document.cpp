#include "json/Document.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <system_error>
#include <utility>

#include "json/Number.h"
#include "json/Token.h"
#include "json/Unicode.h"

// What the library asserts about itself is no reason to stop a daemon. Its stack adds to a null
// pointer before it has memory, which only a sanitizer minds.
#define RAPIDJSON_ASSERT(condition) static_cast<void>(0)
#pragma clang attribute push(__attribute__((no_sanitize("pointer-overflow"))), apply_to = function)
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>
#pragma clang attribute pop

namespace airflow::json {

namespace {

using rapidjson::MemoryStream;
using rapidjson::ParseErrorCode;
using rapidjson::SizeType;

constexpr unsigned flags = rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag;

constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";

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

/// What the text should have gone on with.
struct Expectation {
    std::string_view where;
    std::string_view what;
    bool isOfValue = false;
};

Expectation expectationOf(ParseErrorCode code, bool expectsKey) {
    switch (code) {
        case rapidjson::kParseErrorDocumentRootNotSingular: return {"value", "end of input"};
        case rapidjson::kParseErrorObjectMissColon: return {"object separator", "':'"};
        case rapidjson::kParseErrorObjectMissCommaOrCurlyBracket: return {"object", "'}'"};
        case rapidjson::kParseErrorArrayMissCommaOrSquareBracket: return {"array", "']'"};
        default: break;
    }
    if (expectsKey) return {"object key", "string literal"};
    return {"value", "'[', '{', or a literal", true};
}

/// Where the token starts that the library refused, or left to be refused, at `offset`.
std::size_t startOfToken(std::string_view text, ParseErrorCode code, std::size_t offset) {
    switch (code) {
        case rapidjson::kParseErrorStringEscapeInvalid:
        case rapidjson::kParseErrorStringInvalidEncoding:
        case rapidjson::kParseErrorStringMissQuotationMark:
        case rapidjson::kParseErrorStringUnicodeEscapeInvalidHex:
        case rapidjson::kParseErrorStringUnicodeSurrogateInvalid:
        case rapidjson::kParseErrorTermination: return startOfString(text, offset);
        case rapidjson::kParseErrorValueInvalid: return startOfValue(text, offset);
        default: return offset;
    }
}

DecodingError syntaxError(std::string_view text, std::size_t start, const Expectation& expected) {
    const auto error = errorInToken(text, start);
    std::string description =
        fmt::format("syntax error while parsing {} - {}", expected.where,
                    error ? error->reason : "unexpected " + nameOfToken(text, start));
    // A malformed value is still a value.
    if (!error || !expected.isOfValue) description.append("; expected ").append(expected.what);
    return malformed(text, error ? error->offset : start, std::move(description));
}

/// Whether a string that the library unescaped holds a low surrogate without a high one: the
/// library lets that pass, as three bytes that are no character.
bool holdsSurrogate(std::string_view value) {
    for (auto at = value.find('\xED'); at != std::string_view::npos;
         at = value.find('\xED', at + 1)) {
        if (!firstCharacter(value.substr(at)).isWellFormed) return true;
    }
    return false;
}

template <typename Integer>
bool converts(std::string_view token, Integer& value) {
    return std::from_chars(token.data(), token.data() + token.size(), value).ec == std::errc{};
}

}  // namespace

/// Receives the library's events and appends nodes. The members with upper-case names are those
/// that the library calls; what they return says whether to go on.
class DocumentBuilder {
public:
    using Kind = Document::Kind;

    DocumentBuilder(Document& document, const Limits& limits)
        : document(document), limits(limits) {}

    bool Null() {
        append(Kind::null);
        return true;
    }
    bool Bool(bool value) {
        append(Kind::boolean).boolean = value;
        return true;
    }
    bool String(const char* characters, SizeType length, bool) {
        const std::string_view value(characters, length);
        if (holdsSurrogate(value)) return false;
        Document::Node& node = append(Kind::text);
        node.textStart = document.texts.size();
        node.textLength = value.size();
        document.texts += value;
        return true;
    }
    bool Key(const char* characters, SizeType length, bool) {
        const std::string_view value(characters, length);
        if (holdsSurrogate(value)) return false;
        hasKey = true;
        keyStart = document.texts.size();
        keyLength = value.size();
        document.texts += value;
        return true;
    }
    bool StartObject() { return begin(Kind::object); }
    bool StartArray() { return begin(Kind::array); }
    bool EndObject(SizeType) { return end(); }
    bool EndArray(SizeType) { return end(); }

    /// Appends a well-formed number, unless it is out of range.
    bool number(std::string_view token, bool isInteger) {
        if (isInteger && integer(token)) return true;
        digits = token;
        const double real = nearestDouble(digits);
        if (!std::isfinite(real)) return false;
        append(isInteger && real != 0 ? Kind::huge : Kind::real).real = real;
        return true;
    }

    /// Whether a key has to come next, or the end of an object.
    bool expectsKey() const {
        return !open.empty() && document.nodes[open.back()].kind == Kind::object && !hasKey;
    }
    bool isTooDeep() const { return tooDeep; }

private:
    /// Appends an integer that is exact in 64 bits. Minus zero is not.
    bool integer(std::string_view token) {
        if (token.starts_with('-')) {
            std::int64_t value = 0;
            if (!converts(token, value) || value == 0) return false;
            append(Kind::integer).integer = value;
            return true;
        }
        std::uint64_t value = 0;
        if (!converts(token, value)) return false;
        append(Kind::natural).natural = value;
        return true;
    }
    Document::Node& append(Kind kind) {
        Document::Node& node = document.nodes.emplace_back();
        node.kind = kind;
        node.end = document.nodes.size();
        node.keyStart = keyStart;
        node.keyLength = std::exchange(keyLength, 0);
        hasKey = false;
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
    bool hasKey = false;            ///< of the next value, which may be empty
    std::size_t keyStart = 0;
    std::size_t keyLength = 0;
    bool tooDeep = false;
    std::string digits;  ///< of one number, kept for its memory
};

}  // namespace airflow::json

/// Takes the place of the library's own way with numbers, which refuses zeros with large exponents
/// and some integers that doubles reach, and is not exact to the last digit.
template <>
template <>
void rapidjson::Reader::ParseNumber<airflow::json::flags, rapidjson::MemoryStream,
                                    airflow::json::DocumentBuilder>(
    MemoryStream& stream, airflow::json::DocumentBuilder& builder) {
    const std::string_view rest(stream.src_, stream.end_);
    const auto number = airflow::json::firstNumber(rest);
    if (!number.reason.empty()) return SetParseError(kParseErrorValueInvalid, stream.Tell());
    if (!builder.number(rest.substr(0, number.length), number.isInteger)) {
        return SetParseError(kParseErrorNumberTooBig, stream.Tell());
    }
    stream.src_ += number.length;
}

namespace airflow::json {

namespace {

std::expected<void, DecodingError> read(std::string_view text, DocumentBuilder& builder,
                                        const Limits& limits) {
    MemoryStream stream(text.data(), text.size());
    rapidjson::Reader reader;
    const auto result = reader.Parse<flags>(stream, builder);
    if (!result.IsError()) return {};
    if (builder.isTooDeep()) {
        return std::unexpected(malformed(
            text, result.Offset(), fmt::format("nested more than {} levels deep", limits.depth)));
    }
    if (result.Code() == rapidjson::kParseErrorNumberTooBig) {
        return std::unexpected(
            malformed(text, result.Offset(), "number out of range of a 64-bit float"));
    }
    const std::size_t start = startOfToken(text, result.Code(), result.Offset());
    return std::unexpected(
        syntaxError(text, start, expectationOf(result.Code(), builder.expectsKey())));
}

}  // namespace

std::expected<void, DecodingError> Document::parse(std::string_view text, const Limits& limits) {
    nodes.clear();
    texts.clear();
    if (text.size() > limits.bytes) {
        return std::unexpected(DecodingError{
            .codingPath = {},
            .description = fmt::format("the document has more than {} bytes", limits.bytes),
            .position = {}});
    }
    if (text.starts_with(byteOrderMark)) {
        return std::unexpected(malformed(text, 0, "a byte-order mark is not allowed"));
    }
    if (text.find_first_not_of(" \t\r\n") == std::string_view::npos) {
        return std::unexpected(malformed(text, 0, "the document is empty"));
    }
    // The library would take a NUL for the end of the text and never see what stands after it.
    if (const auto nul = text.find('\0'); nul != std::string_view::npos) {
        return std::unexpected(malformed(text, nul, "a NUL byte is not allowed"));
    }
    if (text.starts_with(byteOrderMark.front())) {
        const std::size_t wrong = text.starts_with(byteOrderMark.substr(0, 2)) ? 2 : 1;
        return std::unexpected(malformed(text, wrong,
                                         "syntax error while parsing value - invalid BOM; must be "
                                         "0xEF 0xBB 0xBF if given"));
    }
    DocumentBuilder builder(*this, limits);
    auto result = read(text, builder, limits);
    if (!result) {
        nodes.clear();
        texts.clear();
    }
    return result;
}

}  // namespace airflow::json
