#include "review/PlanReview.h"

#include <algorithm>
#include <expected>
#include <tuple>
#include <utility>

#include "json/Decoder.h"
#include "json/Document.h"
#include "json/Places.h"
#include "review/FanChecks.h"
#include "review/KeyChecks.h"
#include "review/MachineChecks.h"
#include "review/RuleChecks.h"
#include "review/TuningChecks.h"

namespace airflow::review {

namespace {

PlanReview malformed(json::DecodingError error) {
    return {.plan = {},
            .findings = {{.subject = Subject::malformedJSON,
                          .pointer = {},
                          .position = error.position,
                          .reason = std::move(error.description),
                          .advice = "Correct the text there: the daemon reads none of it."}}};
}

/// The path of a decoder's error as a pointer. No key of a plan has a dot or a bracket.
std::string pointerOf(std::string_view codingPath) {
    std::string pointer;
    for (const char character : codingPath) {
        const bool begins = character == '.' || character == '[' || pointer.empty();
        if (begins) pointer += '/';
        if (character != '.' && character != '[' && character != ']') pointer += character;
    }
    return pointer;
}

void addDecodingError(const json::DecodingError& error, Report& report) {
    const std::string place = error.codingPath.empty() ? "" : error.codingPath + ": ";
    report.add(Subject::notAPlan, pointerOf(error.codingPath), place + error.description,
               "Write what the format asks for: docs/formats.md shows every key.");
}

void checkPlan(const plan::FanControlPlan& plan, const Machine* machine, Report& report) {
    checkFans(plan, report);
    checkRules(plan, report);
    checkTuning(plan.tuning, report);
    if (machine) checkMachine(plan, *machine, report);
}

std::vector<Finding> located(Report report, const json::Document& document, std::string_view text) {
    std::vector<Finding> findings;
    if (report.remarks.empty()) return findings;
    json::Places places(document, text);
    for (Remark& remark : report.remarks) {
        if (remark.member) {
            remark.finding.position = places.ofKey(*remark.member);
        } else if (const auto node = places.find(remark.finding.pointer)) {
            remark.finding.position = places.ofValue(*node);
        }
        findings.push_back(std::move(remark.finding));
    }
    std::ranges::sort(findings, {}, [](const Finding& finding) {
        const json::Position position = finding.position.value_or(json::Position{});
        return std::tuple(position.line, position.column, finding.subject, finding.reason);
    });
    return findings;
}

}  // namespace

PlanReview reviewPlan(std::string_view text, const Machine* machine) {
    json::Document document;
    if (auto parsed = document.parse(text); !parsed) return malformed(std::move(parsed.error()));
    auto plan = json::decode<plan::FanControlPlan>(document);
    Report report;
    if (!plan) {
        addDecodingError(plan.error(), report);
        return {.plan = {}, .findings = located(std::move(report), document, text)};
    }
    checkKeys(document, report);
    checkPlan(*plan, machine, report);
    return {.plan = std::move(*plan), .findings = located(std::move(report), document, text)};
}

}  // namespace airflow::review
