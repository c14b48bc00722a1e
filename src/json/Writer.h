// Writer: JSON text, compact, members in the order they are written.
//
// A type takes part by `void encode(json::Writer&) const`.
#pragma once

#include <concepts>
#include <cstdint>
#include <expected>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "json/DecodingError.h"

namespace airflow::json {

class Writer {
public:
    /// Whole numbers without a fraction part, others as the shortest text that reads back to the
    /// same double. A number that is not finite has no JSON form: the text is then refused.
    void write(double number);
    void write(std::int64_t number);
    void write(bool boolean);
    /// Refuses a text that is not UTF-8.
    void write(std::string_view value);
    void write(const std::string& value) { write(std::string_view(value)); }
    void write(const char* value) { write(std::string_view(value)); }
    template <typename T>
    void write(const std::vector<T>& elements);
    /// An object whose member names are the keys in decimal.
    template <typename T>
    void write(const std::map<std::int64_t, T>& members);
    template <typename T>
        requires requires(const T& value, Writer& writer) { value.encode(writer); }
    void write(const T& value) {
        value.encode(*this);
    }

    /// An object whose members `body` writes.
    template <std::invocable Body>
    void object(Body body);
    /// An array whose elements `body` writes with element().
    template <std::invocable Body>
    void array(Body body);

    template <typename T>
    void member(std::string_view key, const T& value);
    /// An absent optional is left out, key and all.
    template <typename T>
    void member(std::string_view key, const std::optional<T>& value);
    /// "key":null, for readers to whom an absent member means something else.
    void null(std::string_view key);
    template <std::invocable Body>
    void objectMember(std::string_view key, Body body);
    template <typename T>
    void element(const T& value);

    /// {"name":{}}, the form of a case without payload.
    void emptyCase(std::string_view name);

    /// What was written so far, or the first thing that has no JSON form. Empties the writer.
    [[nodiscard]] std::expected<std::string, EncodingError> take();
    /// As take(), but the text stays in the writer's buffer until clear().
    [[nodiscard]] std::expected<std::string_view, EncodingError> view() const;
    void clear();

private:
    struct Level {
        bool isArray = false;
        std::size_t count = 0;
        std::string_view key;
    };

    void key(std::string_view name);
    void separate();
    void fail(std::string description);

    std::string text;
    std::vector<Level> levels;
    std::optional<EncodingError> error;
};

/// The JSON text of one value.
template <typename T>
[[nodiscard]] std::expected<std::string, EncodingError> encode(const T& value) {
    Writer writer;
    writer.write(value);
    return writer.take();
}

template <std::invocable Body>
void Writer::object(Body body) {
    text += '{';
    levels.emplace_back();
    body();
    levels.pop_back();
    text += '}';
}

template <std::invocable Body>
void Writer::array(Body body) {
    text += '[';
    levels.push_back({.isArray = true, .count = 0, .key = {}});
    body();
    levels.pop_back();
    text += ']';
}

template <typename T>
void Writer::element(const T& value) {
    separate();
    write(value);
}

template <typename T>
void Writer::member(std::string_view name, const T& value) {
    key(name);
    write(value);
}

template <typename T>
void Writer::member(std::string_view name, const std::optional<T>& value) {
    if (value) member(name, *value);
}

inline void Writer::null(std::string_view name) {
    key(name);
    text += "null";
}

template <std::invocable Body>
void Writer::objectMember(std::string_view name, Body body) {
    key(name);
    object(body);
}

template <typename T>
void Writer::write(const std::vector<T>& elements) {
    array([this, &elements] {
        for (const auto& each : elements) element(each);
    });
}

template <typename T>
void Writer::write(const std::map<std::int64_t, T>& members) {
    object([this, &members] {
        for (const auto& [index, value] : members) member(std::to_string(index), value);
    });
}

}  // namespace airflow::json
