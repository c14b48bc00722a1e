// Decoder: turns a parsed JSON text into values, and says where and why when it cannot.
//
// The first error sticks: everything decoded after it is a default value that nobody gets to see,
// so a record is decoded in one braced list, in declaration order, without a check on each field.
// A type takes part by `static T decode(const json::Decoder&)`.
#pragma once

#include <concepts>
#include <cstdint>
#include <expected>
#include <initializer_list>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "json/DecodingError.h"
#include "json/Document.h"

namespace airflow::json {

class Decoder {
public:
    /// The root of `document`. Errors go to `error`; both outlive the decoder.
    Decoder(const Document& document, std::optional<DecodingError>& error);

    [[nodiscard]] double number() const;
    /// Whole numbers of 64 bits, however written: 2, 2.0 and 2e0 are the same number.
    [[nodiscard]] std::int64_t integer() const;
    [[nodiscard]] bool boolean() const;
    [[nodiscard]] std::string text() const;
    /// Any value of a type that this decoder or the type itself knows how to decode. A map is an
    /// object whose keys are whole numbers in decimal; of keys for the same number, such as "0" and
    /// "00", the last counts.
    template <typename T>
    [[nodiscard]] T value() const;

    /// A member of this object. When a key stands more than once, its last value counts.
    template <typename T>
    [[nodiscard]] T required(std::string_view key) const;
    /// Absent when the key is missing or its value is null.
    template <typename T>
    [[nodiscard]] std::optional<T> optional(std::string_view key) const;
    /// Requires that this is an object; nothing is asked of its members.
    void anyObject() const;
    /// Reports an error at the first member whose key is none of these.
    void onlyKeys(std::span<const std::string_view> known) const;
    void onlyKeys(std::initializer_list<std::string_view> known) const {
        onlyKeys(std::span(known.begin(), known.size()));
    }
    /// The one key of this object that is in `cases`; other keys are not counted. Nothing, and an
    /// error, unless there is exactly one.
    [[nodiscard]] std::optional<std::string_view> soleCase(
        std::initializer_list<std::string_view> cases) const;
    /// Calls `visit(decoder)` for the member `key`, which has to exist.
    template <std::invocable<const Decoder&> Visit>
    void member(std::string_view key, Visit visit) const;
    /// Calls `visit(key, decoder)` for every member of this object, in the text's order.
    template <std::invocable<std::string_view, const Decoder&> Visit>
    void forEachMember(Visit visit) const;
    /// Calls `visit(decoder)` for every element of this array.
    template <std::invocable<const Decoder&> Visit>
    void forEachElement(Visit visit) const;

    [[nodiscard]] Document::Kind kind() const { return node().kind; }
    [[nodiscard]] bool isNull() const { return kind() == Document::Kind::null; }
    /// Reports an error at this place, unless one was reported before.
    void fail(std::string description) const;
    [[nodiscard]] bool failed() const { return error->has_value(); }

private:
    Decoder(const Decoder& parent, std::size_t index, std::string_view key, std::size_t position)
        : document(parent.document),
          error(parent.error),
          parent(&parent),
          index(index),
          key(key),
          position(position) {}

    [[nodiscard]] const Document::Node& node() const { return document->node(index); }
    /// False, with an error, unless this is an object (or array) and nothing has failed yet.
    [[nodiscard]] bool opens(Document::Kind expected) const;
    [[nodiscard]] std::optional<std::size_t> find(std::string_view wanted) const;
    /// This member's key as a number: digits, after a minus sign if negative.
    [[nodiscard]] std::int64_t integerKey() const;
    void expected(std::string_view what) const;
    [[nodiscard]] std::string codingPath() const;

    const Document* document;
    std::optional<DecodingError>* error;
    const Decoder* parent = nullptr;  ///< lives in the frame that visits this value
    std::size_t index = 0;
    std::string_view key;      ///< of this value, in an object
    std::size_t position = 0;  ///< of this value, in an array
};

/// Decodes one value from a whole JSON text.
template <typename T>
[[nodiscard]] std::expected<T, DecodingError> decode(const Document& document) {
    std::optional<DecodingError> error;
    T value = Decoder(document, error).value<T>();
    if (error) return std::unexpected(std::move(*error));
    return value;
}

template <typename T>
[[nodiscard]] std::expected<T, DecodingError> decode(std::string_view text,
                                                     const Limits& limits = {}) {
    Document document;
    if (auto parsed = document.parse(text, limits); !parsed) {
        return std::unexpected(std::move(parsed.error()));
    }
    return decode<T>(document);
}

namespace detail {
template <typename T>
inline constexpr bool isVector = false;
template <typename T>
inline constexpr bool isVector<std::vector<T>> = true;
template <typename T>
inline constexpr bool isIndexMap = false;
template <typename T>
inline constexpr bool isIndexMap<std::map<std::int64_t, T>> = true;
}  // namespace detail

template <typename T>
T Decoder::value() const {
    if constexpr (std::same_as<T, double>)
        return number();
    else if constexpr (std::same_as<T, std::int64_t>)
        return integer();
    else if constexpr (std::same_as<T, bool>)
        return boolean();
    else if constexpr (std::same_as<T, std::string>)
        return text();
    else if constexpr (detail::isVector<T>) {
        T elements;
        forEachElement([&elements](const Decoder& element) {
            elements.push_back(element.value<typename T::value_type>());
        });
        return elements;
    } else if constexpr (detail::isIndexMap<T>) {
        T members;
        forEachMember([&members](std::string_view, const Decoder& member) {
            const std::int64_t number = member.integerKey();
            members.insert_or_assign(number, member.value<typename T::mapped_type>());
        });
        return members;
    } else {
        return failed() ? T{} : T::decode(*this);
    }
}

template <std::invocable<const Decoder&> Visit>
void Decoder::member(std::string_view wanted, Visit visit) const {
    if (!opens(Document::Kind::object)) return;
    if (const auto found = find(wanted)) {
        visit(Decoder(*this, *found, wanted, 0));
    } else {
        fail("The required key \"" + std::string(wanted) + "\" is missing.");
    }
}

template <typename T>
T Decoder::required(std::string_view wanted) const {
    T result{};
    member(wanted, [&result](const Decoder& found) { result = found.value<T>(); });
    return result;
}

template <typename T>
std::optional<T> Decoder::optional(std::string_view wanted) const {
    if (!opens(Document::Kind::object)) return std::nullopt;
    const auto found = find(wanted);
    if (!found) return std::nullopt;
    const Decoder member(*this, *found, wanted, 0);
    if (member.isNull()) return std::nullopt;
    return member.value<T>();
}

template <std::invocable<std::string_view, const Decoder&> Visit>
void Decoder::forEachMember(Visit visit) const {
    if (!opens(Document::Kind::object)) return;
    for (std::size_t at = index + 1; at < node().end && !failed(); at = document->node(at).end) {
        const std::string_view name = document->key(document->node(at));
        visit(name, Decoder(*this, at, name, 0));
    }
}

template <std::invocable<const Decoder&> Visit>
void Decoder::forEachElement(Visit visit) const {
    if (!opens(Document::Kind::array)) return;
    std::size_t count = 0;
    for (std::size_t at = index + 1; at < node().end && !failed(); at = document->node(at).end) {
        visit(Decoder(*this, at, {}, count++));
    }
}

}  // namespace airflow::json
