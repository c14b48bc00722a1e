#include "json/Places.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <system_error>

namespace airflow::json {

namespace {

constexpr std::string_view blanks = " \t\r\n";

/// Behind the closing quote of the string that begins at `start`.
std::size_t endOfString(std::string_view text, std::size_t start) {
    std::size_t at = start + 1;
    while (at < text.size() && text[at] != '"') at += text[at] == '\\' ? 2 : 1;
    return std::min(at + 1, text.size());
}

std::size_t endOfToken(std::string_view text, std::size_t start) {
    if (text[start] == '"') return endOfString(text, start);
    if (text[start] == '[' || text[start] == '{') return start + 1;
    return std::min(text.find_first_of(" \t\r\n,]}", start), text.size());
}

bool isKey(std::string_view text, std::size_t start, std::size_t end) {
    if (text[start] != '"') return false;
    const std::size_t next = text.find_first_not_of(blanks, end);
    return next < text.size() && text[next] == ':';
}

std::string unescaped(std::string_view token) {
    std::string key;
    for (std::size_t at = 0; at < token.size(); ++at) {
        const bool isEscape = token[at] == '~' && at + 1 < token.size();
        if (isEscape) ++at;
        if (isEscape && token[at] == '1')
            key += '/';
        else if (isEscape && token[at] == '0')
            key += '~';
        else
            key += token[at];
    }
    return key;
}

}  // namespace

/// Values begin in the order of their nodes, because a container comes before what it holds.
Places::Places(const Document& ownDocument, std::string_view text) : document(ownDocument) {
    std::optional<std::size_t> key;
    for (std::size_t at = text.find_first_not_of(" \t\r\n,:]}"); at < text.size();
         at = text.find_first_not_of(" \t\r\n,:]}", at)) {
        const std::size_t end = endOfToken(text, at);
        if (isKey(text, at, end)) {
            key = at;
        } else {
            places.push_back({.key = key.value_or(at), .value = at});
            key.reset();
        }
        at = end;
    }
    lineStarts.push_back(0);
    for (std::size_t at = text.find('\n'); at < text.size(); at = text.find('\n', at + 1)) {
        lineStarts.push_back(at + 1);
    }
}

std::optional<std::size_t> Places::find(std::string_view pointer) {
    std::optional<std::size_t> node = 0;
    while (node && !pointer.empty()) {
        if (pointer.front() != '/') return std::nullopt;
        pointer.remove_prefix(1);
        const std::size_t length = std::min(pointer.find('/'), pointer.size());
        node = child(*node, unescaped(pointer.substr(0, length)));
        pointer.remove_prefix(length);
    }
    return node;
}

std::optional<std::size_t> Places::child(std::size_t parent, const std::string& token) {
    const Document::Kind kind = document.node(parent).kind;
    if (kind == Document::Kind::object) return member(parent, token);
    if (kind != Document::Kind::array) return std::nullopt;
    std::size_t index = 0;
    const char* const end = token.data() + token.size();
    const auto [stop, status] = std::from_chars(token.data(), end, index);
    const auto& children = elementsOf(parent);
    if (status != std::errc{} || stop != end || index >= children.size()) return std::nullopt;
    return children[index];
}

std::optional<std::size_t> Places::member(std::size_t object, std::string_view key) const {
    std::optional<std::size_t> last;
    const std::size_t end = document.node(object).end;
    for (std::size_t at = object + 1; at < end; at = document.node(at).end) {
        if (document.key(document.node(at)) == key) last = at;
    }
    return last;
}

const std::vector<std::size_t>& Places::elementsOf(std::size_t array) {
    const auto [known, isNew] = elements.try_emplace(array);
    if (!isNew) return known->second;
    const std::size_t end = document.node(array).end;
    for (std::size_t at = array + 1; at < end; at = document.node(at).end) {
        known->second.push_back(at);
    }
    return known->second;
}

Position Places::ofValue(std::size_t node) const {
    return positionOf(places[node].value);
}

Position Places::ofKey(std::size_t node) const {
    return positionOf(places[node].key);
}

Position Places::positionOf(std::size_t offset) const {
    const auto behind = std::ranges::upper_bound(lineStarts, offset);
    return {.line = static_cast<std::size_t>(behind - lineStarts.begin()),
            .column = offset - *std::prev(behind) + 1};
}

std::string pointerTo(std::string_view parent, std::string_view key) {
    std::string pointer(parent);
    pointer += '/';
    for (const char character : key) {
        if (character == '~')
            pointer += "~0";
        else if (character == '/')
            pointer += "~1";
        else
            pointer += character;
    }
    return pointer;
}

std::string pointerTo(std::string_view parent, std::size_t index) {
    return pointerTo(parent, std::to_string(index));
}

}  // namespace airflow::json
