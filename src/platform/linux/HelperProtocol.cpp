#include "platform/linux/HelperProtocol.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <utility>

#include "concurrency/Require.h"
#include "json/Decoder.h"
#include "json/Document.h"
#include "json/Writer.h"

namespace airflow::platform {

namespace {

using json::Decoder;
using json::DecodingError;
using json::Document;

/// Any method, and an error, for a text that is none.
HelperMethod methodOf(const Decoder& message) {
    HelperMethod method{};
    message.member("method", [&method](const Decoder& member) {
        const auto named = daemon::helperMethodNamed(member.text());
        if (named) {
            method = *named;
        } else {
            member.fail(fmt::format("Unknown method. There are {}.",
                                    fmt::join(daemon::helperMethodNames, ", ")));
        }
    });
    return method;
}

/// The bytes of the value of an object's member, counted from 0. `text` is the valid JSON text of
/// an object that has such a member.
std::string_view valueBytes(std::string_view text, std::size_t wanted) {
    std::size_t member = 0;
    std::size_t depth = 0;
    std::size_t start = 0;
    std::size_t end = 0;
    bool isQuoted = false;
    for (std::size_t offset = 0; end == 0; ++offset) {
        const char byte = text[offset];
        const bool isBetweenMembers = depth == 1 && !isQuoted;
        if (isQuoted && byte == '\\')
            ++offset;
        else if (byte == '"')
            isQuoted = !isQuoted;
        else if (isQuoted)
            continue;
        else if (isBetweenMembers && byte == ':')
            start = offset + 1;
        else if (isBetweenMembers && (byte == ',' || byte == '}') && member++ == wanted)
            end = offset;
        else if (byte == '{' || byte == '[')
            ++depth;
        else if (byte == '}' || byte == ']')
            --depth;
    }
    const std::string_view value = text.substr(start, end - start);
    constexpr std::string_view whitespace = " \t\r\n";
    const std::size_t first = value.find_first_not_of(whitespace);
    return value.substr(first, value.find_last_not_of(whitespace) + 1 - first);
}

/// A plan is not decoded here: whether it is one is for the service to say.
std::string planOf(const Decoder& message, std::string_view line) {
    std::optional<std::size_t> position;
    std::size_t count = 0;
    message.forEachMember([&](std::string_view key, const Decoder&) {
        if (key == "plan") position = count;
        ++count;
    });
    if (position) return std::string(valueBytes(line, *position));
    message.fail(R"(The required key "plan" is missing.)");
    return {};
}

HelperCall callOf(const Decoder& message, std::string_view line) {
    HelperCall call;
    call.method = methodOf(message);
    if (call.method == HelperMethod::heartbeat)
        call.id = message.optional<std::int64_t>("id");
    else
        call.id = message.required<std::int64_t>("id");
    if (message.failed()) return call;
    switch (call.method) {
        case HelperMethod::setManualRPM:
            call.fan = message.required<std::int64_t>("fan");
            call.rpm = message.required<std::int64_t>("rpm");
            message.onlyKeys({"id", "method", "fan", "rpm"});
            break;
        case HelperMethod::setPercent:
            call.fan = message.required<std::int64_t>("fan");
            call.percent = message.required<double>("percent");
            message.onlyKeys({"id", "method", "fan", "percent"});
            break;
        case HelperMethod::applyConfig:
            call.plan = planOf(message, line);
            message.onlyKeys({"id", "method", "plan"});
            break;
        default: message.onlyKeys({"id", "method"}); break;
    }
    return call;
}

/// The id of a message that may be wrong in other respects.
std::optional<std::int64_t> usableID(const Document& document) {
    std::optional<DecodingError> error;
    const auto id = Decoder(document, error).optional<std::int64_t>("id");
    return error ? std::nullopt : id;
}

std::string reasonOf(const DecodingError& error) {
    if (error.position)
        return fmt::format("column {}: {}", error.position->column, error.description);
    if (error.codingPath.empty()) return error.description;
    return fmt::format("{}: {}", error.codingPath, error.description);
}

std::string taken(json::Writer& writer) {
    auto text = writer.take();
    concurrency::require(text.has_value(), "an answer is made of UTF-8 and of finite numbers");
    return std::move(*text) + '\n';
}

}  // namespace

namespace HelperProtocol {

std::expected<HelperCall, HelperRefusal> parse(std::string_view line) {
    Document document;
    if (const auto parsed = document.parse(line, {.bytes = lineLimit}); !parsed) {
        return std::unexpected(HelperRefusal{.id = {}, .reason = reasonOf(parsed.error())});
    }
    std::optional<DecodingError> error;
    HelperCall call = callOf(Decoder(document, error), line);
    if (!error) return call;
    return std::unexpected(HelperRefusal{.id = usableID(document), .reason = reasonOf(*error)});
}

std::string code(std::int64_t id, std::int64_t code) {
    return fmt::format("{{\"id\":{},\"code\":{}}}\n", id, code);
}

std::string acknowledgement(std::int64_t id) {
    return fmt::format("{{\"id\":{}}}\n", id);
}

std::string version(std::int64_t id, std::string_view version) {
    json::Writer writer;
    writer.object([&] {
        writer.member("id", id);
        writer.member("version", version);
    });
    return taken(writer);
}

std::string state(std::int64_t id, std::string_view document) {
    if (document.empty()) {
        return error({.id = id, .reason = "state: The daemon's state has no JSON form."});
    }
    return fmt::format("{{\"id\":{},\"state\":{}}}\n", id, document);
}

std::string error(const HelperRefusal& refusal) {
    json::Writer writer;
    writer.write(std::string_view(refusal.reason));
    const std::string id = refusal.id ? std::to_string(*refusal.id) : "null";
    std::string reason = taken(writer);
    reason.pop_back();
    return fmt::format("{{\"id\":{},\"error\":{}}}\n", id, reason);
}

}  // namespace HelperProtocol

}  // namespace airflow::platform
