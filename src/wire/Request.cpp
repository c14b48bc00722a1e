#include "wire/Request.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <array>
#include <utility>
#include <vector>

#include "json/Decoder.h"
#include "json/Document.h"
#include "json/Writer.h"

namespace airflow::wire {

namespace {

using daemon::Command;
using daemon::Method;
using json::Decoder;
using json::DecodingError;
using json::Document;

std::vector<std::string_view> commandNames() {
    std::vector<std::string_view> names;
    for (const auto& description : daemon::commandDescriptions) names.push_back(description.name);
    return names;
}

/// Any command, and an error, for a text that is none.
Command commandIn(const Decoder& request) {
    Command command;
    request.member("method", [&command](const Decoder& member) {
        auto named = daemon::commandNamed(member.text());
        if (named) {
            command = std::move(*named);
        } else {
            member.fail(
                fmt::format("Unknown method. There are {}.", fmt::join(commandNames(), ", ")));
        }
    });
    return command;
}

Request requestIn(const Decoder& message) {
    Request request{.id = {}, .command = commandIn(message)};
    if (daemon::methodOf(request.command) == Method::heartbeat)
        request.id = message.optional<std::int64_t>("id");
    else
        request.id = message.required<std::int64_t>("id");
    if (message.failed()) return request;
    daemon::readArguments(message, request.command);
    std::vector<std::string_view> keys{"id", "method"};
    daemon::forEachArgument(request.command,
                            [&keys](std::string_view name, auto&) { keys.push_back(name); });
    message.onlyKeys(keys);
    return request;
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

}  // namespace

std::expected<Request, Refusal> parseRequest(std::string_view line) {
    Document document;
    if (const auto parsed = document.parse(line, {.bytes = lineLimit}); !parsed) {
        return std::unexpected(Refusal{.id = {}, .reason = reasonOf(parsed.error())});
    }
    std::optional<DecodingError> error;
    Request request = requestIn(Decoder(document, error));
    if (!error) return request;
    return std::unexpected(Refusal{.id = usableID(document), .reason = reasonOf(*error)});
}

std::expected<std::string, std::string> requestLine(std::int64_t id, const Command& command) {
    json::Writer writer;
    writer.object([&] {
        writer.member("id", id);
        writer.member("method", daemon::nameOf(command));
        daemon::writeArguments(writer, command);
    });
    auto line = writer.take();
    if (!line) return std::unexpected(line.error().codingPath + ": " + line.error().description);
    if (line->size() > lineLimit) return std::unexpected("the plan is too large to be sent");
    *line += '\n';
    return std::move(*line);
}

}  // namespace airflow::wire
