#include "review/KeyChecks.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <map>
#include <span>
#include <string_view>

#include "json/Places.h"
#include "review/Nearest.h"

namespace airflow::review {

namespace {

struct Member;

/// What the decoder looks at in a value: members of an object, or every element of an array.
struct Shape {
    std::span<const Member> members;
    const Shape* elements = nullptr;
};

struct Member {
    std::string_view key;
    const Shape* shape = nullptr;  ///< absent: no further members
};

constexpr Shape emptyShape{};
constexpr Member numberMembers[]{{"_0"}};
constexpr Shape numberShape{numberMembers};
constexpr Member pointMembers[]{{"id"}, {"celsius"}, {"percent"}};
constexpr Shape pointShape{pointMembers};
constexpr Shape pointsShape{{}, &pointShape};
constexpr Member curveMembers[]{{"sourceSensorID"}, {"points", &pointsShape}, {"interpolation"}};
constexpr Shape curveShape{curveMembers};
constexpr Member curvePayloadMembers[]{{"_0", &curveShape}};
constexpr Shape curvePayloadShape{curvePayloadMembers};
constexpr Member modeMembers[]{{"fixedRPM", &numberShape},
                               {"fixedPercent", &numberShape},
                               {"curve", &curvePayloadShape},
                               {"automatic", &emptyShape}};
constexpr Shape modeShape{modeMembers};
constexpr Member fanMembers[]{{"fanID"}, {"mode", &modeShape}};
constexpr Shape fanShape{fanMembers};
constexpr Shape fansShape{{}, &fanShape};
constexpr Member targetMembers[]{{"fan", &numberShape}, {"all", &emptyShape}};
constexpr Shape targetShape{targetMembers};
constexpr Member ruleMembers[]{{"id"},
                               {"name"},
                               {"sensorID"},
                               {"thresholdCelsius"},
                               {"releaseBelowCelsius"},
                               {"targetPercent"},
                               {"fanTarget", &targetShape},
                               {"dwellSeconds"},
                               {"enabled"}};
constexpr Shape ruleShape{ruleMembers};
constexpr Shape rulesShape{{}, &ruleShape};
constexpr Member tuningMembers[]{
    {"emaAlpha"}, {"hysteresisCelsius"}, {"maxDeltaRPMPerTick"}, {"minDwellSeconds"}};
constexpr Shape tuningShape{tuningMembers};
constexpr Member planMembers[]{
    {"fans", &fansShape}, {"rules", &rulesShape}, {"tuning", &tuningShape}};
constexpr Shape planShape{planMembers};

/// Shapes are nested a few levels deep, however deep the document is.
class KeyWalk {
public:
    KeyWalk(const json::Document& ownDocument, Report& ownReport)
        : document(ownDocument), report(ownReport) {}

    void visit(std::size_t node, const Shape& shape, const std::string& pointer) {
        const auto kind = document.node(node).kind;
        if (kind == json::Document::Kind::object) visitMembers(node, shape, pointer);
        if (kind == json::Document::Kind::array && shape.elements)
            visitElements(node, *shape.elements, pointer);
    }

private:
    void visitElements(std::size_t array, const Shape& shape, const std::string& pointer) {
        std::size_t index = 0;
        const std::size_t end = document.node(array).end;
        for (std::size_t at = array + 1; at < end; at = document.node(at).end) {
            visit(at, shape, json::pointerTo(pointer, index++));
        }
    }

    void visitMembers(std::size_t object, const Shape& shape, const std::string& pointer) {
        struct Occurrences {
            std::size_t count = 0;
            std::size_t last = 0;
        };
        std::map<std::string_view, Occurrences> occurrences;
        const std::size_t end = document.node(object).end;
        for (std::size_t at = object + 1; at < end; at = document.node(at).end) {
            Occurrences& seen = occurrences[document.key(document.node(at))];
            ++seen.count;
            seen.last = at;
        }
        for (const auto& [key, seen] : occurrences) {
            const auto known = std::ranges::find(shape.members, key, &Member::key);
            if (known == shape.members.end()) {
                addUnknown(key, seen.last, shape, pointer);
                continue;
            }
            const std::string inside = json::pointerTo(pointer, key);
            if (seen.count > 1) addRepeated(key, seen.count, seen.last, inside);
            if (known->shape) visit(seen.last, *known->shape, inside);
        }
    }

    void addUnknown(std::string_view key, std::size_t node, const Shape& shape,
                    const std::string& pointer) {
        std::vector<std::string_view> known;
        for (const Member& member : shape.members) known.push_back(member.key);
        const auto meant = nearest(key, known);
        std::string advice = "Remove it: nothing has a key here.";
        if (meant)
            advice = fmt::format("Did you mean \"{}\"?", *meant);
        else if (!known.empty())
            advice = fmt::format("Remove it; the keys here are {}.", fmt::join(known, ", "));
        report.add(Subject::unknownKey, json::pointerTo(pointer, key),
                   fmt::format("The key \"{}\" is unknown and ignored.", key), std::move(advice),
                   node);
    }

    void addRepeated(std::string_view key, std::size_t count, std::size_t node,
                     const std::string& pointer) {
        report.add(Subject::repeatedKey, pointer,
                   fmt::format(
                       "The key \"{}\" stands {} times in one object; only this, the last, counts.",
                       key, count),
                   "Keep one of them.", node);
    }

    const json::Document& document;
    Report& report;
};

}  // namespace

void checkKeys(const json::Document& document, Report& report) {
    KeyWalk(document, report).visit(0, planShape, {});
}

}  // namespace airflow::review
