#include "client/Protocol.h"

#include <algorithm>
#include <utility>

#include "json/Decoder.h"
#include "json/Document.h"
#include "json/Writer.h"

namespace airflow::client {

namespace {

/// The id alone, so that an answer whose rest is wrong still finds the call that waits for it.
struct AnswerID {
    std::optional<std::int64_t> id;

    static AnswerID decode(const json::Decoder& decoder) {
        return {.id = decoder.optional<std::int64_t>("id")};
    }
};

/// The text on one line. Only white space between JSON's tokens is lost: within a string, a line
/// break is not JSON.
std::expected<std::string, std::string> onOneLine(std::string text) {
    json::Document document;
    const auto parsed = document.parse(text);
    if (!parsed) return std::unexpected(parsed.error().describe("the plan"));
    std::ranges::replace(text, '\n', ' ');
    std::ranges::replace(text, '\r', ' ');
    return text;
}

void writeArguments(json::Writer& writer, const Request& request) {
    switch (request.method) {
        case Method::setManualRPM:
            writer.member("fan", request.fan);
            writer.member("rpm", request.rpm);
            return;
        case Method::setPercent:
            writer.member("fan", request.fan);
            writer.member("percent", request.percent);
            return;
        default: return;
    }
}

}  // namespace

std::expected<std::string, std::string> requestLine(std::int64_t id, const Request& request) {
    json::Writer writer;
    writer.object([&] {
        writer.member("id", id);
        writer.member("method", nameOf(request.method));
        writeArguments(writer, request);
    });
    auto line = writer.take();
    if (!line) return std::unexpected(line.error().codingPath + ": " + line.error().description);
    if (request.method == Method::applyConfig) {
        auto plan = onOneLine(request.plan);
        if (!plan) return std::unexpected(std::move(plan.error()));
        line->pop_back();  // the closing brace
        *line += ",\"plan\":" + *plan + "}";
    }
    *line += '\n';
    if (line->size() > longestLine) return std::unexpected("the plan is too large to be sent");
    return std::move(*line);
}

AnswerBody AnswerBody::decode(const json::Decoder& decoder) {
    return {.code = decoder.optional<std::int64_t>("code"),
            .version = decoder.optional<std::string>("version"),
            .state = decoder.optional<control::ControlState>("state"),
            .error = decoder.optional<std::string>("error")};
}

std::expected<AnswerLine, std::string> decodeAnswer(std::string_view line) {
    json::Document document;
    const auto parsed = document.parse(line);
    if (!parsed) return std::unexpected(parsed.error().describe("the answer"));
    const auto id = json::decode<AnswerID>(document);
    if (!id) return std::unexpected(id.error().describe("the answer"));
    AnswerLine answer{.id = id->id, .body = AnswerBody{}};
    auto body = json::decode<AnswerBody>(document);
    if (body)
        answer.body = std::move(*body);
    else
        answer.body = std::unexpected(body.error().describe("the answer"));
    return answer;
}

}  // namespace airflow::client
