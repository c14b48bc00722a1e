#include "wire/Answer.h"

#include <fmt/format.h>

#include <utility>

#include "concurrency/Require.h"
#include "json/Decoder.h"
#include "json/Document.h"
#include "json/Writer.h"

namespace airflow::wire {

namespace {

/// The id alone, so that an answer whose rest is wrong still finds the call that waits for it.
struct AnswerID {
    std::optional<std::int64_t> id;

    static AnswerID decode(const json::Decoder& decoder) {
        return {.id = decoder.optional<std::int64_t>("id")};
    }
};

/// A text as JSON.
std::string quoted(std::string_view text) {
    json::Writer writer;
    writer.write(text);
    auto written = writer.take();
    concurrency::require(written.has_value(), "an answer is made of UTF-8");
    return std::move(*written);
}

struct LineOf {
    std::int64_t id;

    std::string operator()(const daemon::CodeReply& reply) const {
        return fmt::format("{{\"id\":{},\"code\":{}}}\n", id, reply.code);
    }
    std::string operator()(const daemon::Acknowledgement&) const {
        return fmt::format("{{\"id\":{}}}\n", id);
    }
    std::string operator()(const daemon::VersionReply& reply) const {
        return fmt::format("{{\"id\":{},\"version\":{}}}\n", id, quoted(reply.version));
    }
    std::string operator()(const daemon::StateReply& reply) const {
        if (reply.document.empty()) {
            return errorLine({.id = id, .reason = "state: The daemon's state has no JSON form."});
        }
        return fmt::format("{{\"id\":{},\"state\":{}}}\n", id, reply.document);
    }
};

}  // namespace

std::string answerLine(std::int64_t id, const daemon::Reply& reply) {
    return std::visit(LineOf{id}, reply);
}

std::string errorLine(const Refusal& refusal) {
    const std::string id = refusal.id ? std::to_string(*refusal.id) : "null";
    return fmt::format("{{\"id\":{},\"error\":{}}}\n", id, quoted(refusal.reason));
}

AnswerBody AnswerBody::decode(const json::Decoder& decoder) {
    return {.code = decoder.optional<std::int64_t>("code"),
            .version = decoder.optional<std::string>("version"),
            .state = decoder.optional<control::ControlState>("state"),
            .error = decoder.optional<std::string>("error")};
}

std::expected<Answer, std::string> parseAnswer(std::string_view line) {
    json::Document document;
    const auto parsed = document.parse(line);
    if (!parsed) return std::unexpected(parsed.error().describe("the answer"));
    const auto id = json::decode<AnswerID>(document);
    if (!id) return std::unexpected(id.error().describe("the answer"));
    Answer answer{.id = id->id, .body = AnswerBody{}};
    auto body = json::decode<AnswerBody>(document);
    if (body)
        answer.body = std::move(*body);
    else
        answer.body = std::unexpected(body.error().describe("the answer"));
    return answer;
}

}  // namespace airflow::wire
