#include "tool/simulation/SoakMerge.h"

#include <fmt/format.h>

#include <chrono>
#include <expected>
#include <optional>
#include <ostream>
#include <utility>

#include "text/Text.h"
#include "tool/plans/PlanFile.h"

namespace airflow::tool {

namespace {

using simulation::SeedRange;
using simulation::SoakResult;

/// A sum of sums holds as many violations as all its parts.
constexpr json::Limits limits{.bytes = 64 * 1024 * 1024, .depth = 16};

struct Part {
    std::string path;
    SoakResult result;
};

std::expected<SoakResult, std::string> readResult(const std::string& path) {
    const auto text = readFile(path, limits.bytes);
    if (!text) {
        return std::unexpected(fmt::format("{}: cannot be read: {}", path, text.error()));
    }
    auto result = json::decode<SoakResult>(*text, limits);
    if (!result) return std::unexpected(result.error().describe(path));
    return std::move(*result);
}

/// Why `part` cannot be added to one that was read before; nothing when it can.
std::optional<std::string> conflict(const Part& part, const Part& before) {
    if (part.result.build != before.result.build) {
        return fmt::format("{}: build: {} made {}, and {} made {}.", part.path, part.result.build,
                           part.path, before.result.build, before.path);
    }
    for (std::size_t i = 0; i < part.result.done.size(); ++i) {
        const SeedRange& range = part.result.done[i];
        for (const SeedRange& other : before.result.done) {
            if (!range.overlaps(other)) continue;
            return fmt::format("{}: done[{}]: {} overlaps {} of {}.", part.path, i, range.text(),
                               other.text(), before.path);
        }
    }
    return std::nullopt;
}

std::expected<std::vector<Part>, std::string> readParts(const std::vector<std::string>& paths) {
    std::vector<Part> parts;
    for (const std::string& path : paths) {
        auto result = readResult(path);
        if (!result) return std::unexpected(result.error());
        Part part{.path = path, .result = std::move(*result)};
        for (const Part& before : parts) {
            if (auto error = conflict(part, before)) return std::unexpected(std::move(*error));
        }
        parts.push_back(std::move(part));
    }
    return parts;
}

void tell(const SoakResult& sum, std::ostream& out) {
    const double hours = std::chrono::duration<double, std::ratio<3600>>(sum.simulated).count();
    out << fmt::format("{}, {:.1f} simulated hours, {}\n", text::counted(sum.seeds(), "seed"),
                       hours, text::counted(sum.violations.size(), "violation"));
}

}  // namespace

int mergeSoaks(const std::vector<std::string>& paths, const SoakReportOptions& options,
               std::ostream& out, std::ostream& err) {
    const auto parts = readParts(paths);
    if (!parts) {
        err << text::printable(parts.error()) << '\n';
        return 1;
    }
    SoakResult sum{.build = parts->empty() ? "" : parts->front().result.build};
    for (const Part& part : *parts) sum.add(part.result);
    for (const auto& violation : sum.violations) {
        err << fmt::format("seed {}: {}: {}\n", violation.seed, violation.property,
                           text::printable(violation.message));
    }
    if (options.format == SoakFormat::text) tell(sum, out);
    return report(sum, options, out, err);
}

}  // namespace airflow::tool
