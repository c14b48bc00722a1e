#include "simulation/verification/SoakResult.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <iterator>

#include "simulation/machine/Decoding.h"

namespace airflow::simulation {

using namespace decoding;

namespace {

constexpr const char* formatName = "airflow soak";
/// So that sums of many documents have room.
constexpr std::int64_t mostInADocument = 1'000'000'000'000;

/// In order, and those that touch each other as one.
std::vector<SeedRange> united(std::vector<SeedRange> ranges) {
    std::ranges::sort(ranges, {}, &SeedRange::first);
    std::vector<SeedRange> result;
    for (const SeedRange& range : ranges) {
        const bool touches = !result.empty() && range.first - 1 <= result.back().last;
        if (touches)
            result.back().last = std::max(result.back().last, range.last);
        else
            result.push_back(range);
    }
    return result;
}

std::vector<SeedRange> decodeRanges(const Decoder& decoder) {
    std::vector<SeedRange> ranges;
    decoder.forEachElement([&ranges](const Decoder& element) {
        const auto range = element.value<SeedRange>();
        if (!ranges.empty() && range.first <= ranges.back().last) {
            element.fail("Ranges are listed in ascending order and do not overlap.");
        }
        ranges.push_back(range);
    });
    return ranges;
}

std::chrono::milliseconds decodeSimulated(const Decoder& decoder) {
    const double value = decoder.number();
    if (value >= 0 && value <= static_cast<double>(mostInADocument)) {
        return std::chrono::milliseconds(std::llround(value * 1000));
    }
    decoder.fail(fmt::format("Expected seconds from 0 to {}.", mostInADocument));
    return {};
}

/// All of them, and no other: a program that counts something else judges something else.
std::array<std::uint64_t, sometimes.size()> decodeCounts(const Decoder& decoder) {
    std::array<std::uint64_t, sometimes.size()> counts{};
    decoder.forEachMember([&counts](std::string_view name, const Decoder& member) {
        const auto found = std::ranges::find(sometimes, name);
        if (found == sometimes.end()) return member.fail("This situation is not counted.");
        counts.at(static_cast<std::size_t>(found - sometimes.begin())) =
            bounded<std::uint64_t>(member, 0, mostInADocument);
    });
    for (const std::string_view name : sometimes) decoder.member(name, [](const Decoder&) {});
    return counts;
}

/// Before anything else, which may look different in another version.
void requireVersion(const Decoder& decoder) {
    decoder.member("format", [](const Decoder& format) {
        if (format.text() != formatName) format.fail("Expected \"airflow soak\".");
    });
    decoder.member("version", [](const Decoder& version) {
        if (version.integer() == SoakResult::version) return;
        version.fail(fmt::format("Expected version {}.", SoakResult::version));
    });
}

}  // namespace

std::string SeedRange::text() const {
    return fmt::format("{}..{}", first, last);
}

SeedRange SeedRange::decode(const Decoder& decoder) {
    decoder.onlyKeys({"first", "last"});
    const SeedRange range{.first = decoder.required<std::int64_t>("first"),
                          .last = decoder.required<std::int64_t>("last")};
    if (range.first < 0) decoder.fail("A seed is 0 or more.");
    if (range.last < range.first) decoder.fail("The first seed comes before the last.");
    return range;
}

void SeedRange::encode(json::Writer& writer) const {
    writer.object([&] {
        writer.member("first", first);
        writer.member("last", last);
    });
}

SeedViolation SeedViolation::decode(const Decoder& decoder) {
    decoder.onlyKeys({"seed", "property", "message"});
    SeedViolation violation{.seed = decoder.required<std::int64_t>("seed")};
    decoder.member("property", [&violation](const Decoder& property) {
        violation.property = property.text();
        if (violation.property == stuck) return;
        const bool isKnown = std::ranges::find(properties, violation.property,
                                               &PropertyText::name) != properties.end();
        if (!isKnown) property.fail("There is no property of this name.");
    });
    violation.message = decoder.required<std::string>("message");
    return violation;
}

void SeedViolation::encode(json::Writer& writer) const {
    writer.object([&] {
        writer.member("seed", seed);
        writer.member("property", property);
        writer.member("message", message);
    });
}

std::uint64_t SoakResult::seeds() const {
    std::uint64_t sum = 0;
    for (const SeedRange& range : done)
        sum += static_cast<std::uint64_t>(range.last - range.first) + 1;
    return sum;
}

void SoakResult::add(const SoakResult& other) {
    std::ranges::copy(other.asked, std::back_inserter(asked));
    std::ranges::copy(other.done, std::back_inserter(done));
    asked = united(std::move(asked));
    done = united(std::move(done));
    simulated += other.simulated;
    std::ranges::copy(other.violations, std::back_inserter(violations));
    std::ranges::sort(violations, {}, &SeedViolation::seed);
    for (std::size_t i = 0; i < counts.size(); ++i) counts.at(i) += other.counts.at(i);
}

SoakResult SoakResult::decode(const Decoder& decoder) {
    requireVersion(decoder);
    decoder.onlyKeys({"format", "version", "build", "asked", "done", "simulatedSeconds",
                      "violations", "sometimes"});
    SoakResult result{.build = decoder.required<std::string>("build")};
    decoder.member("asked", [&](const Decoder& asked) { result.asked = decodeRanges(asked); });
    decoder.member("done", [&](const Decoder& done) {
        result.done = decodeRanges(done);
        for (const SeedRange& range : result.done) {
            const auto contains = [&range](const SeedRange& asked) {
                return asked.first <= range.first && range.last <= asked.last;
            };
            if (std::ranges::any_of(result.asked, contains)) continue;
            done.fail(fmt::format("Nobody asked for the seeds {}.", range.text()));
        }
    });
    decoder.member("simulatedSeconds", [&](const Decoder& simulated) {
        result.simulated = decodeSimulated(simulated);
    });
    decoder.member("violations", [&](const Decoder& violations) {
        violations.forEachElement([&](const Decoder& element) {
            const auto violation = element.value<SeedViolation>();
            const auto contains = [&](const SeedRange& range) {
                return range.contains(violation.seed);
            };
            if (std::ranges::none_of(result.done, contains)) {
                element.fail("Its seed is none of those done.");
            }
            if (!result.violations.empty() && violation.seed <= result.violations.back().seed) {
                element.fail("Violations are listed in ascending order of their seeds.");
            }
            result.violations.push_back(violation);
        });
    });
    decoder.member("sometimes",
                   [&](const Decoder& counts) { result.counts = decodeCounts(counts); });
    return result;
}

void SoakResult::encode(json::Writer& writer) const {
    writer.object([&] {
        writer.member("format", formatName);
        writer.member("version", version);
        writer.member("build", build);
        writer.member("asked", asked);
        writer.member("done", done);
        writer.member("simulatedSeconds", static_cast<double>(simulated.count()) / 1000);
        writer.member("violations", violations);
        writer.objectMember("sometimes", [&] {
            for (std::size_t i = 0; i < counts.size(); ++i) {
                writer.member(sometimes.at(i), static_cast<std::int64_t>(counts.at(i)));
            }
        });
    });
}

}  // namespace airflow::simulation
