#include "json/Decoder.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <system_error>

#include "numbers/Int64.h"

namespace airflow::json {

namespace {

std::string_view nameOf(Document::Kind kind) {
    switch (kind) {
        case Document::Kind::null: return "null";
        case Document::Kind::boolean: return "a boolean";
        case Document::Kind::integer:
        case Document::Kind::natural:
        case Document::Kind::huge:
        case Document::Kind::real: return "a number";
        case Document::Kind::text: return "a string";
        case Document::Kind::array: return "an array";
        case Document::Kind::object: return "an object";
    }
    return "something else";
}

/// A key as a path shows it: a document's own keys may be as long as the document.
std::string shortened(std::string_view key) {
    constexpr std::size_t limit = 64;
    if (key.size() <= limit) return std::string(key);
    std::size_t end = limit;
    while ((static_cast<unsigned char>(key[end]) & 0xC0) == 0x80) --end;  // inside a character
    return std::string(key.substr(0, end)) + "...";
}

}  // namespace

Decoder::Decoder(const Document& document, std::optional<DecodingError>& error)
    : document(&document), error(&error) {}

double Decoder::number() const {
    switch (kind()) {
        case Document::Kind::integer: return static_cast<double>(node().integer);
        case Document::Kind::natural: return static_cast<double>(node().natural);
        case Document::Kind::huge:
        case Document::Kind::real: return node().real;
        default: expected("a number"); return 0;
    }
}

std::int64_t Decoder::integer() const {
    const auto unfit = [this](auto number) {
        fail(fmt::format("The number {} does not fit a signed 64-bit integer.", number));
        return std::int64_t{0};
    };
    switch (kind()) {
        case Document::Kind::integer: return node().integer;
        case Document::Kind::natural:
            if (!std::in_range<std::int64_t>(node().natural)) return unfit(node().natural);
            return static_cast<std::int64_t>(node().natural);
        case Document::Kind::huge: return unfit(node().real);
        case Document::Kind::real: {
            const double real = node().real;
            if (std::trunc(real) == real) {
                return numbers::fitsInt64(real) ? static_cast<std::int64_t>(real) : unfit(real);
            }
            fail(fmt::format("The number {} is not whole.", real));
            return 0;
        }
        default: expected("a whole number"); return 0;
    }
}

bool Decoder::boolean() const {
    if (kind() == Document::Kind::boolean) return node().boolean;
    expected("a boolean");
    return false;
}

std::string Decoder::text() const {
    if (kind() == Document::Kind::text) return std::string(document->text(node()));
    expected("a string");
    return {};
}

void Decoder::anyObject() const {
    (void)opens(Document::Kind::object);
}  // the error is the answer

void Decoder::onlyKeys(std::span<const std::string_view> known) const {
    forEachMember([known](std::string_view name, const Decoder& member) {
        if (std::ranges::find(known, name) == known.end()) member.fail("Unknown key.");
    });
}

std::optional<std::string_view> Decoder::soleCase(
    std::initializer_list<std::string_view> cases) const {
    if (!opens(Document::Kind::object)) return std::nullopt;
    std::optional<std::string_view> sole;
    int count = 0;
    for (const std::string_view name : cases) {
        if (!find(name)) continue;
        sole = name;
        ++count;
    }
    if (count == 1) return sole;
    fail("Invalid number of keys found, expected one.");
    return std::nullopt;
}

void Decoder::fail(std::string description) const {
    if (failed()) return;
    *error = DecodingError{
        .codingPath = codingPath(), .description = std::move(description), .position = {}};
}

bool Decoder::opens(Document::Kind wanted) const {
    if (failed()) return false;
    if (kind() == wanted) return true;
    expected(nameOf(wanted));
    return false;
}

std::optional<std::size_t> Decoder::find(std::string_view wanted) const {
    std::optional<std::size_t> last;
    for (std::size_t at = index + 1; at < node().end; at = document->node(at).end) {
        if (document->key(document->node(at)) == wanted) last = at;
    }
    return last;
}

std::int64_t Decoder::integerKey() const {
    std::int64_t number = 0;
    const char* const end = key.data() + key.size();
    const auto [stop, status] = std::from_chars(key.data(), end, number);
    if (status == std::errc::invalid_argument || stop != end) {
        fail(fmt::format("Expected a whole number as the key but found \"{}\".", key));
    } else if (status == std::errc::result_out_of_range) {
        fail(fmt::format("The key {} does not fit a signed 64-bit integer.", key));
    }
    return number;
}

void Decoder::expected(std::string_view what) const {
    fail(fmt::format("Expected {} but found {}.", what, nameOf(kind())));
}

std::string Decoder::codingPath() const {
    if (!parent) return {};
    std::string path = parent->codingPath();
    if (parent->kind() == Document::Kind::array) return path + fmt::format("[{}]", position);
    if (!path.empty()) path += '.';
    return path + shortened(key);
}

}  // namespace airflow::json
