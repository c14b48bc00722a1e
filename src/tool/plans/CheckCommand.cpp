#include "tool/plans/CheckCommand.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <ostream>
#include <utility>

#include "json/Writer.h"
#include "review/PlanReview.h"
#include "text/Text.h"
#include "tool/plans/KnownMachine.h"
#include "tool/plans/PlanFile.h"
#include "tool/plans/PlanSummary.h"

namespace airflow::tool {

namespace {

using review::Finding;
using review::Severity;

struct CheckedFile {
    std::string name;
    review::PlanReview review;

    void encode(json::Writer& writer) const {
        writer.object([&] {
            writer.member("file", name);
            writer.member("findings", review.findings);
        });
    }
};

struct Counts {
    std::int64_t errors = 0;
    std::int64_t warnings = 0;
    std::int64_t notes = 0;

    void add(Severity severity) {
        switch (severity) {
            case Severity::error: ++errors; return;
            case Severity::warning: ++warnings; return;
            case Severity::note: ++notes; return;
        }
    }
};

review::PlanReview unreadable(std::string reason, std::string advice) {
    return {.plan = {},
            .findings = {{.subject = review::Subject::unreadableFile,
                          .pointer = {},
                          .position = {},
                          .reason = std::move(reason),
                          .advice = std::move(advice)}}};
}

review::PlanReview reviewFile(const std::string& path, const review::Machine* machine,
                              std::istream& in) {
    const auto text = readInput(path, in);
    if (text) return review::reviewPlan(*text, machine);
    return unreadable(fmt::format("It cannot be read: {}.", text.error()),
                      "Name a file that you may read.");
}

void writeFinding(const std::string& file, const Finding& finding, std::ostream& out) {
    const std::string place =
        finding.position
            ? fmt::format("{}:{}:{}", file, finding.position->line, finding.position->column)
            : file;
    out << text::printable(fmt::format("{}: {}: {} [{}]", place, nameOf(finding.severity()),
                                       finding.reason, finding.identifier()))
        << "\n  " << text::printable(finding.advice) << '\n';
}

void writeText(const CheckedFile& file, std::ostream& out, std::ostream& err) {
    for (const Finding& finding : file.review.findings) {
        writeFinding(file.name, finding, finding.severity() == Severity::error ? err : out);
    }
    if (const auto& plan = file.review.plan) {
        out << text::printable(file.name) << ": " << text::counted(plan->fans.size(), "fan") << ", "
            << text::counted(plan->rules.size(), "rule") << '\n'
            << summarise(*plan);
    }
}

/// The names of files are the only texts that need not be UTF-8.
int writeJSON(const std::vector<CheckedFile>& files, const Counts& counts, std::ostream& out,
              std::ostream& err) {
    json::Writer writer;
    writer.object([&] {
        writer.member("files", files);
        writer.member("errors", counts.errors);
        writer.member("warnings", counts.warnings);
        writer.member("notes", counts.notes);
    });
    const auto text = writer.take();
    if (!text) {
        err << fmt::format("{}: {}\n", text.error().codingPath, text.error().description);
        return 1;
    }
    out << *text << '\n';
    return 0;
}

}  // namespace

int check(const CheckOptions& options, std::istream& in, std::ostream& out, std::ostream& err) {
    std::optional<review::Machine> machine;
    if (!options.machine.empty()) machine = machineOfPreset(options.machine);
    if (!options.trace.empty()) {
        auto read = machineOfTrace(options.trace);
        if (!read) {
            err << read.error() << '\n';
            return 1;
        }
        machine = std::move(*read);
    }
    Counts counts;
    std::vector<CheckedFile> files;
    for (const std::string& path : options.paths) {
        CheckedFile file{.name = path == "-" ? "standard input" : path,
                         .review = reviewFile(path, machine ? &*machine : nullptr, in)};
        for (const Finding& finding : file.review.findings) counts.add(finding.severity());
        if (options.format == CheckFormat::text)
            writeText(file, out, err);
        else
            files.push_back(std::move(file));
    }
    if (options.format == CheckFormat::json && writeJSON(files, counts, out, err) != 0) return 1;
    return counts.errors > 0 || (options.isStrict && counts.warnings > 0) ? 1 : 0;
}

}  // namespace airflow::tool
