// SoakResult: what came of many random runs, as a document that adds up with those of other ranges
// of seeds, on other machines.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "json/Decoder.h"
#include "json/Writer.h"
#include "simulation/oracle/Properties.h"

namespace airflow::simulation {

/// With its last one; never empty.
struct SeedRange {
    std::int64_t first = 0;  ///< 0 or more
    std::int64_t last = 0;

    bool operator==(const SeedRange&) const = default;
    [[nodiscard]] bool contains(std::int64_t seed) const { return first <= seed && seed <= last; }
    [[nodiscard]] bool overlaps(const SeedRange& other) const {
        return first <= other.last && other.first <= last;
    }
    /// "1..1000"
    [[nodiscard]] std::string text() const;

    static SeedRange decode(const json::Decoder& decoder);
    void encode(json::Writer& writer) const;
};

struct SeedViolation {
    /// Instead of a property, of a run that could not go on.
    static constexpr const char* stuck = "stuck";

    std::int64_t seed = 0;
    std::string property{};  ///< its name
    std::string message{};   ///< what was seen

    bool operator==(const SeedViolation&) const = default;

    static SeedViolation decode(const json::Decoder& decoder);
    void encode(json::Writer& writer) const;
};

struct SoakResult {
    /// Of the document. Another one is not read.
    static constexpr std::int64_t version = 2;
    static constexpr std::int64_t lastSeed = std::numeric_limits<std::int64_t>::max();

    std::string build{};             ///< the daemon's; its runs and another's do not add up
    std::vector<SeedRange> asked{};  ///< ascending, apart from each other, as are those done
    std::vector<SeedRange> done{};
    std::chrono::milliseconds simulated{};
    std::vector<SeedViolation> violations{};  ///< ascending, of seeds that are done
    /// How often each of `sometimes` happened.
    std::array<std::uint64_t, sometimes.size()> counts{};

    bool operator==(const SoakResult&) const = default;

    /// How many are done.
    [[nodiscard]] std::uint64_t seeds() const;
    /// Takes another one in, whose seeds done are none of these, of the same build.
    void add(const SoakResult& other);

    static SoakResult decode(const json::Decoder& decoder);
    void encode(json::Writer& writer) const;
};

}  // namespace airflow::simulation
