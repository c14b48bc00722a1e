// Texts that nobody meant as JSON: whatever they are, an answer or an error with its place.
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>

#include "json/Decoder.h"
#include "json/Texts.h"
#include "json/Writer.h"

namespace airflow::json {

namespace {

/// Writes a value of any shape as it is read. There is no way to write null; a text stands for it.
struct Copy {
    const Decoder& source;

    void encode(Writer& writer) const {
        using Kind = Document::Kind;
        switch (source.kind()) {
            case Kind::null: return writer.write("(null)");
            case Kind::boolean: return writer.write(source.boolean());
            case Kind::integer: return writer.write(source.integer());
            case Kind::natural:
            case Kind::huge:
            case Kind::real: return writer.write(source.number());
            case Kind::text: return writer.write(source.text());
            case Kind::array: return encodeArray(writer);
            case Kind::object: return encodeObject(writer);
        }
    }

    void encodeArray(Writer& writer) const {
        writer.array([&] {
            source.forEachElement([&](const Decoder& element) { writer.element(Copy{element}); });
        });
    }

    void encodeObject(Writer& writer) const {
        writer.object([&] {
            source.forEachMember([&](std::string_view key, const Decoder& member) {
                writer.member(key, Copy{member});
            });
        });
    }
};

struct Anything {
    std::string text;

    static Anything decode(const Decoder& decoder) {
        return {json::encode(Copy{decoder}).value_or("(refused)")};
    }
};

void checkError(const DecodingError& error, std::string_view text) {
    RC_ASSERT(error.position.has_value());
    const auto lines = std::ranges::count(text, '\n') + 1;
    RC_ASSERT(error.position->line >= 1u);
    RC_ASSERT(error.position->line <= static_cast<std::size_t>(lines));
    RC_ASSERT(error.position->column >= 1u);
    RC_ASSERT(error.position->column <= text.size() + 1);
    RC_ASSERT(!error.description.empty());
    RC_ASSERT(error.description.size() < 200u);
    RC_ASSERT(tests::isUTF8(error.description));
}

/// What was read is written and read again as the same.
void checkText(const std::string& text) {
    const auto first = decode<Anything>(text);
    if (!first) return checkError(first.error(), text);
    const auto second = decode<Anything>(first->text);
    RC_ASSERT(second.has_value());
    RC_ASSERT(second->text == first->text);
}

}  // namespace

RC_GTEST_PROP(Robustness, randomBytesAreReadOrRefusedWithAPosition, ()) {
    const auto bytes = *rc::gen::arbitrary<std::vector<std::uint8_t>>();
    checkText(std::string(bytes.begin(), bytes.end()));
}

RC_GTEST_PROP(Robustness, randomTextsInQuotesAreReadOrRefusedWithAPosition, ()) {
    const auto bytes = *rc::gen::arbitrary<std::vector<std::uint8_t>>();
    checkText("[\"" + std::string(bytes.begin(), bytes.end()) + "\"]");
}

RC_GTEST_PROP(Robustness, randomTokensAreReadOrRefusedWithAPosition, ()) {
    const auto tokens = *rc::gen::container<std::vector<std::string>>(rc::gen::element<std::string>(
        "{", "}", "[", "]", ",", ":", "\"a\"", "\"b\"", "\"\\u0000\\\"\"", "1", "-2", "0.5",
        "1e400", "-0", "18446744073709551616", "true", "false", "null", " ", "\n", "\"", "\\",
        "\xC3\xA9"));
    std::string text;
    for (const std::string& token : tokens) text += token;
    checkText(text);
}

RC_GTEST_PROP(Robustness, randomStructuresAreWrittenAsTheyWereRead, ()) {
    // Opens, closes and fills containers at random; every such text is JSON.
    std::string text = "[";
    std::string open = "]";
    bool first = true;
    for (const int step : *rc::gen::container<std::vector<int>>(rc::gen::inRange(0, 8))) {
        if (step < 2 && open.size() > 1) {
            text += open.back();
            open.pop_back();
            first = false;
            continue;
        }
        if (!first) text += ',';
        if (open.back() == '}') text += "\"k" + std::to_string(step) + "\":";
        first = step == 3 || step == 4;
        if (step == 3)
            text += '[', open += ']';
        else if (step == 4)
            text += '{', open += '}';
        else
            text += step == 5 ? "\"t\"" : step == 6 ? "-0.25" : "true";
    }
    text.append(open.rbegin(), open.rend());
    const auto copy = decode<Anything>(text);
    RC_ASSERT(copy.has_value());
    RC_ASSERT(copy->text == text);
}

}  // namespace airflow::json
