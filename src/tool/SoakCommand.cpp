#include "tool/SoakCommand.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <atomic>
#include <chrono>
#include <ctime>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <ostream>
#include <thread>
#include <vector>

#include "json/Writer.h"
#include "simulation/SimulatedRuntime.h"
#include "simulation/Soak.h"
#include "simulation/SwarmScenario.h"
#include "tool/Tool.h"

namespace airflow::tool {

namespace {

using simulation::Scenario;
using simulation::Verdict;
using Clock = std::chrono::steady_clock;

/// What all threads of a soak share.
class Soak {
public:
    Soak(const SoakOptions& chosen, std::ostream& out, std::ostream& err)
        : options(chosen), next(chosen.first), out(out), err(err) {}

    int run() {
        std::vector<std::thread> threads;
        for (unsigned i = 1; i < options.jobs; ++i) threads.emplace_back([this] { work(); });
        work();
        for (std::thread& thread : threads) thread.join();
        report();
        const bool isIncomplete = options.requiresEverything && tellMissing();
        return violations > 0 || isIncomplete ? 1 : 0;
    }

private:
    [[nodiscard]] double seconds() const {
        return std::chrono::duration<double>(Clock::now() - start).count();
    }

    void work() {
        for (;;) {
            const std::uint64_t seed = next++;
            const bool isOver = options.minutes && seconds() > *options.minutes * 60;
            if (seed > options.last || isOver || violations >= 10) return;
            tryOne(seed);
        }
    }

    void tryOne(std::uint64_t seed) {
        const Scenario scenario = simulation::swarmScenario(seed);
        try {
            const Verdict verdict = simulation::judge(scenario, seed);
            if (verdict.violation) tellViolation(scenario, seed, *verdict.violation);
            note(scenario, seed, verdict);
        } catch (const simulation::Stuck& stuck) {
            const std::lock_guard lock(mutex);
            ++violations;
            err << fmt::format("seed {}: {}\n", seed, stuck.what());
        }
    }

    void note(const Scenario& scenario, std::uint64_t seed, const Verdict& verdict) {
        const std::lock_guard lock(mutex);
        ++seeds;
        simulatedHours +=
            std::chrono::duration<double, std::ratio<3600>>(scenario.length()).count();
        for (std::size_t i = 0; i < counts.size(); ++i) counts.at(i) += verdict.counts.at(i);
        if (options.printsHashes) out << fmt::format("{} {:016x}\n", seed, verdict.hash);
        if (!options.printsHashes && seconds() >= told + 10) {
            told = seconds();
            report();
        }
    }

    void tellViolation(const Scenario& scenario, std::uint64_t seed,
                       const simulation::Violation& violation) {
        const Scenario small = simulation::shrink(scenario, seed, violation.property);
        const Verdict again = simulation::judge(small, seed);
        const auto path = fmt::format("{}/soak-{}-{}.json", options.failures,
                                      simulation::textOf(violation.property).name, seed);
        const auto text = json::encode(small);
        const bool isKept = text && (std::ofstream(path) << *text << '\n').flush();
        const std::lock_guard lock(mutex);
        ++violations;
        if (!isKept) err << fmt::format("{} cannot be written\n", path);
        const auto& property = simulation::textOf(violation.property);
        err << fmt::format("seed {}: {}: {}\n  {}\n", seed, property.name,
                           again.violation ? again.violation->what : violation.what,
                           property.sentence);
        err << fmt::format("  airflow simulate {} --seed {}\n", path, seed);
    }

    void report() {
        out << fmt::format(
            "{} seeds, {:.1f} simulated hours in {:.1f} s ({:.0f} hours per hour), "
            "{} violations\n",
            seeds, simulatedHours, seconds(), simulatedHours * 3600 / seconds(), violations.load());
        out.flush();
    }

    /// Whether there is anything that never happened.
    bool tellMissing() {
        bool isAnyMissing = false;
        for (std::size_t i = 0; i < counts.size(); ++i) {
            out << fmt::format("{:>10} × {}\n", counts.at(i), simulation::sometimes.at(i));
            isAnyMissing = isAnyMissing || counts.at(i) == 0;
        }
        if (isAnyMissing) err << "something that has to happen in a soak never did\n";
        return isAnyMissing;
    }

    const SoakOptions& options;
    std::atomic<std::uint64_t> next;
    std::atomic<int> violations = 0;
    const Clock::time_point start = Clock::now();
    std::mutex mutex;  ///< of what follows
    std::ostream& out;
    std::ostream& err;
    std::uint64_t seeds = 0;
    double simulatedHours = 0;
    double told = 0;
    std::array<std::uint64_t, simulation::sometimes.size()> counts{};
};

/// "5" or "1..1000".
std::string parseSeeds(const std::string& text, SoakOptions& options) {
    const auto dots = text.find("..");
    try {
        options.first = std::stoull(text);
        options.last =
            dots == std::string::npos ? options.first : std::stoull(text.substr(dots + 2));
    } catch (const std::exception&) {
        return "expected a seed, or two of them as in 1..1000";
    }
    return options.first <= options.last ? "" : "the first seed comes before the last";
}

}  // namespace

int soak(const SoakOptions& options, std::ostream& out, std::ostream& err) {
    return Soak(options, out, err).run();
}

void addSoak(CLI::App& app, Streams streams, int& status) {
    CLI::App* const command = app.add_subcommand(
        "soak", "Run the whole daemon through random trouble, and judge every run");
    auto options = std::make_shared<SoakOptions>();
    auto seeds = std::make_shared<std::string>("1..1000");
    command->add_option("--seeds", *seeds, "One seed, or a range such as 1..1000 (the default)")
        ->check(CLI::Validator(
            [](const std::string& text) {
                SoakOptions ignored;
                return parseSeeds(text, ignored);
            },
            "A..B", "seeds"));
    command->add_option("--minutes", options->minutes, "Stop after so many minutes")
        ->check(CLI::PositiveNumber);
    command->add_option("--jobs", options->jobs, "Threads (1)")->check(CLI::Range(1, 256));
    command->add_option("--failures", options->failures, "Folder for scenarios that fail (.)");
    command->add_flag("--everything", options->requiresEverything,
                      "Say how often each dangerous situation came up; fail if one never did");
    command->add_flag("--hashes", options->printsHashes,
                      "Print the hash of each seed's trace, to compare builds");
    command->callback([=, &status] {
        const bool isEndless = options->minutes && *seeds == "1..1000";
        (void)parseSeeds(*seeds, *options);  // checked before
        if (isEndless) options->last = UINT64_MAX - 1;
        status = soak(*options, streams.out, streams.err);
    });
}

}  // namespace airflow::tool
