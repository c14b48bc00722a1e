// Checks that every record has to pass, given its members as a valid document writes them.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "json/Decoder.h"
#include "json/Reasons.h"
#include "json/Texts.h"
#include "json/Writer.h"
#include "plan/UUID.h"

namespace airflow::plan::tests {

using json::errorOf;

/// A member of a valid document. `wanted` is how an error names what its value has to be.
struct Member {
    std::string key;
    std::string value;
    std::string wanted;
    bool isOptional = false;
};

inline std::string objectOf(const std::vector<Member>& members) {
    std::string text;
    for (const Member& member : members) {
        text += (text.empty() ? "{\"" : ",\"") + member.key + "\":" + member.value;
    }
    return text.empty() ? "{}" : text + "}";
}

/// A value of every JSON type, and how an error names it.
struct Kind {
    std::string value;
    std::string name;
};

inline const std::vector<Kind>& kinds() {
    static const std::vector<Kind> all = {{"null", "null"},   {"true", "a boolean"},
                                          {"7", "a number"},  {"\"text\"", "a string"},
                                          {"[]", "an array"}, {"{}", "an object"}};
    return all;
}

inline bool isOfKind(const Member& member, const Kind& kind) {
    return member.wanted == kind.name ||
           (member.wanted == "a whole number" && kind.name == "a number");
}

/// Each required key has to be there; the error names the key and the record that lacks it.
template <typename Record>
void expectMissingKeysAreReported(const std::vector<Member>& members) {
    ASSERT_TRUE(json::decode<Record>(objectOf(members)).has_value());
    for (std::size_t i = 0; i < members.size(); ++i) {
        std::vector<Member> others = members;
        others.erase(others.begin() + static_cast<std::ptrdiff_t>(i));
        const std::string text = objectOf(others);
        if (members[i].isOptional) {
            EXPECT_TRUE(json::decode<Record>(text).has_value()) << text;
            continue;
        }
        const std::string reason = "The required key \"" + members[i].key + "\" is missing.";
        EXPECT_EQ(errorOf<Record>(text), (json::DecodingError{"", reason, std::nullopt})) << text;
        EXPECT_EQ(errorOf<std::vector<Record>>("[" + text + "]").codingPath, "[0]");
    }
}

/// Each key refuses values of every other JSON type, null included unless it is optional.
template <typename Record>
void expectWrongTypesAreReported(const std::vector<Member>& members) {
    for (std::size_t i = 0; i < members.size(); ++i) {
        for (const Kind& kind : kinds()) {
            if (isOfKind(members[i], kind)) continue;
            std::vector<Member> changed = members;
            changed[i].value = kind.value;
            const std::string text = objectOf(changed);
            if (members[i].isOptional && kind.name == "null") {
                EXPECT_TRUE(json::decode<Record>(text).has_value()) << text;
                continue;
            }
            const std::string reason =
                "Expected " + members[i].wanted + " but found " + kind.name + ".";
            EXPECT_EQ(errorOf<Record>(text),
                      (json::DecodingError{members[i].key, reason, std::nullopt}))
                << text;
        }
    }
}

/// Nothing but an object is a record.
template <typename Record>
void expectOtherTypesAreNoRecord() {
    for (const Kind& kind : kinds()) {
        if (kind.name == "an object") continue;
        const std::string reason = "Expected an object but found " + kind.name + ".";
        EXPECT_EQ(errorOf<Record>(kind.value), (json::DecodingError{"", reason, std::nullopt}));
    }
}

/// Keys in another order, unknown keys and a key's earlier values change nothing.
template <typename Record>
void expectOnlyTheLastOfKnownKeysCounts(const std::vector<Member>& members) {
    const auto plain = json::decode<Record>(objectOf(members));
    ASSERT_TRUE(plain.has_value());
    const std::vector<Member> reversed(members.rbegin(), members.rend());
    EXPECT_EQ(json::decode<Record>(objectOf(reversed)), plain);
    std::vector<Member> extended = {{"unknown", R"({"id":1})", ""}};
    for (const Member& member : members) extended.push_back({member.key, "\"first\"", ""});
    for (const Member& member : members) extended.push_back(member);
    extended.push_back({"Id", "null", ""});
    extended.push_back({"", "[1,{}]", ""});
    EXPECT_EQ(json::decode<Record>(objectOf(extended)), plain);
}

template <typename Record>
void expectRecordRules(const std::vector<Member>& members) {
    expectMissingKeysAreReported<Record>(members);
    expectWrongTypesAreReported<Record>(members);
    expectOtherTypesAreNoRecord<Record>();
    expectOnlyTheLastOfKnownKeysCounts<Record>(members);
}

/// Each change of a copy of `record` makes it unequal; without one it is equal.
template <typename Record, typename... Changes>
void expectEveryFieldCounts(const Record& record, Changes... changes) {
    EXPECT_TRUE(record == Record(record));
    const auto expectUnequal = [&record](auto change) {
        Record other = record;
        change(other);
        EXPECT_FALSE(record == other) << json::encode(other).value_or("(no JSON form)");
        EXPECT_TRUE(record != other);
    };
    (expectUnequal(changes), ...);
}

inline UUID uuid(std::string_view text) {
    return UUID::parse(text).value();
}

}  // namespace airflow::plan::tests
