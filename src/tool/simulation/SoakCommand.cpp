#include "tool/simulation/SoakCommand.h"

#include <fmt/format.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <ostream>
#include <string_view>
#include <system_error>
#include <thread>
#include <vector>

#include "daemon/BuildIdentity.h"
#include "json/Writer.h"
#include "simulation/runtime/SimulatedRuntime.h"
#include "simulation/verification/SwarmScenario.h"
#include "text/Text.h"
#include "tool/Tool.h"
#include "tool/common/Interruption.h"
#include "tool/common/Progress.h"
#include "tool/common/Terminal.h"
#include "tool/simulation/SoakMerge.h"

namespace airflow::tool {

namespace {

using simulation::Scenario;
using simulation::SeedRange;
using simulation::SeedViolation;
using simulation::SoakResult;
using simulation::Verdict;
using Clock = std::chrono::steady_clock;

/// What all threads of a soak share.
class Soak {
public:
    Soak(const SoakOptions& chosen, std::ostream& out, std::ostream& err)
        : options(chosen), out(out), err(err), progress(err, chosen.showsProgress) {
        result.build = daemon::BuildIdentity::text;
        result.asked = {options.seeds};
    }

    int run() {
        if (const auto limit = workInThreads()) {
            err << fmt::format("no more threads can be started: {}\n", *limit);
            return 1;
        }
        progress.hide();
        if (taken > 0) {
            const std::int64_t first = options.seeds.first;
            result.done = {{.first = first, .last = first + (taken - 1)}};
        }
        std::ranges::sort(result.violations, {}, &SeedViolation::seed);
        if (options.report.format == SoakFormat::text) tellResult();
        const int status = report(result, options.report, out, err);
        if (!result.violations.empty() || interruption.signal() == 0) return status;
        return 128 + interruption.signal();
    }

private:
    /// Why not all of the threads could be started; nothing has been tried then but what those that
    /// were had begun.
    std::optional<std::string> workInThreads() {
        std::vector<std::thread> threads;
        std::optional<std::string> limit;
        try {
            for (unsigned i = 1; i < options.jobs; ++i) threads.emplace_back([this] { work(); });
        } catch (const std::system_error& error) {
            limit = error.code().message();
            isGivenUp = true;
        }
        work();
        for (std::thread& thread : threads) thread.join();
        return limit;
    }

    [[nodiscard]] double seconds() const {
        return std::chrono::duration<double>(Clock::now() - start).count();
    }

    void work() {
        while (const auto seed = take()) tryOne(*seed);
    }

    /// The next one, which is then tried whatever comes: so those that were are a range.
    std::optional<std::int64_t> take() {
        const std::lock_guard lock(mutex);
        const bool isLate = options.minutes && seconds() > *options.minutes * 60;
        const bool isOver = isLate || result.violations.size() >= 10 || interruption.signal() != 0;
        if (isOver || isGivenUp || taken > options.seeds.last - options.seeds.first)
            return std::nullopt;
        return options.seeds.first + taken++;
    }

    void tryOne(std::int64_t number) {
        const auto seed = static_cast<std::uint64_t>(number);
        const Scenario scenario = simulation::swarmScenario(seed);
        try {
            const Verdict verdict = options.judge(scenario, seed);
            if (verdict.violation) tellViolation(scenario, seed, *verdict.violation);
            note(seed, verdict);
        } catch (const simulation::Stuck& stuck) {
            const std::lock_guard lock(mutex);
            noteViolation(seed, SeedViolation::stuck, stuck.what());
            progress.hide();
            err << fmt::format("seed {}: {}\n", seed, stuck.what());
        }
        noteTried(scenario);
    }

    void note(std::uint64_t seed, const Verdict& verdict) {
        const std::lock_guard lock(mutex);
        for (std::size_t i = 0; i < result.counts.size(); ++i) {
            result.counts.at(i) += verdict.counts.at(i);
        }
        if (!options.printsHashes) return;
        progress.hide();
        out << fmt::format("{} {:016x}\n", seed, verdict.hash);
    }

    void noteTried(const Scenario& scenario) {
        const std::lock_guard lock(mutex);
        ++tried;
        result.simulated +=
            std::chrono::duration_cast<std::chrono::milliseconds>(scenario.length());
        if (progress.isDue()) tellProgress();
    }

    void tellProgress() {
        // What ends first: the seeds or the minutes.
        const double all = static_cast<double>(options.seeds.last - options.seeds.first) + 1;
        const double ofSeeds = static_cast<double>(tried) / all;
        const double ofTime = options.minutes ? seconds() / (*options.minutes * 60) : 0;
        progress.tell(std::max(ofSeeds, ofTime),
                      fmt::format("{}, {:.1f} a second, {}", text::counted(count(tried), "seed"),
                                  static_cast<double>(tried) / seconds(),
                                  text::counted(result.violations.size(), "violation")));
    }

    void noteViolation(std::uint64_t seed, std::string_view property, std::string message) {
        result.violations.push_back({.seed = static_cast<std::int64_t>(seed),
                                     .property = std::string(property),
                                     .message = std::move(message)});
    }

    void tellViolation(const Scenario& scenario, std::uint64_t seed,
                       const simulation::Violation& violation) {
        const Scenario small =
            simulation::shrink(scenario, seed, violation.property, options.judge);
        const Verdict again = options.judge(small, seed);
        const auto& property = simulation::textOf(violation.property);
        const auto path = fmt::format("{}/soak-{}-{}.json", options.failures, property.name, seed);
        const auto text = json::encode(small);
        const bool isKept = text && (std::ofstream(path) << *text << '\n').flush();
        const std::lock_guard lock(mutex);
        noteViolation(seed, property.name, violation.what);
        progress.hide();
        if (!isKept) err << fmt::format("{} cannot be written\n", path);
        err << fmt::format("seed {}: {}: {}\n  {}\n", seed, property.name,
                           again.violation ? again.violation->what : violation.what,
                           property.sentence);
        err << fmt::format("  airflow simulate {} --seed {}\n", path, seed);
    }

    void tellResult() {
        const double hours =
            std::chrono::duration<double, std::ratio<3600>>(result.simulated).count();
        out << fmt::format("{}, {:.1f} simulated hours in {:.1f} s ({:.0f} hours per hour), {}\n",
                           text::counted(count(tried), "seed"), hours, seconds(),
                           hours * 3600 / seconds(),
                           text::counted(result.violations.size(), "violation"));
        out.flush();
    }

    static std::uint64_t count(std::int64_t number) { return static_cast<std::uint64_t>(number); }

    const SoakOptions& options;
    const Interruption interruption;
    const Clock::time_point start = Clock::now();
    std::mutex mutex;  ///< of what follows
    std::ostream& out;
    std::ostream& err;
    std::int64_t taken = 0;
    std::int64_t tried = 0;
    bool isGivenUp = false;
    SoakResult result;
    Progress progress;
};

/// A whole number from 0 to the last seed, and nothing else.
std::optional<std::int64_t> parseSeed(std::string_view text) {
    std::int64_t seed = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, seed);
    const bool isSeed = error == std::errc() && stop == end && seed >= 0;
    return isSeed ? std::optional(seed) : std::nullopt;
}

/// "5" or "1..1000".
std::string parseSeeds(const std::string& range, SeedRange& seeds) {
    const auto dots = range.find("..");
    const auto first = parseSeed(std::string_view(range).substr(0, dots));
    const auto last =
        dots == std::string::npos ? first : parseSeed(std::string_view(range).substr(dots + 2));
    if (!first || !last) {
        return fmt::format("expected a seed from 0 to {}, or two of them as in 1..1000, not \"{}\"",
                           SoakResult::lastSeed, text::printable(range));
    }
    seeds = {.first = *first, .last = *last};
    return *first <= *last ? "" : fmt::format("{} ends before it begins", range);
}

/// Why scenarios cannot be kept there, which should be known before hours have passed.
std::string whyNoFolder(const std::string& path) {
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    const auto refuse = [&path](std::string_view reason) {
        return fmt::format("{}: {}", text::printable(path), reason);
    };
    if (!std::filesystem::exists(status)) return refuse("there is no such folder");
    if (!std::filesystem::is_directory(status)) return refuse("it is not a folder");
    return access(path.c_str(), W_OK | X_OK) == 0 ? "" : refuse("nothing can be written there");
}

struct CommandLine {
    SoakOptions options;
    std::string seeds = "1..1000";
    std::string format = "text";
    std::vector<std::string> merged;
};

void addRunOptions(CLI::App& command, CommandLine& line) {
    command.add_option("--seeds", line.seeds, "One seed, or a range such as 1..1000 (the default)")
        ->check(CLI::Validator(
            [](const std::string& text) {
                SeedRange ignored;
                return parseSeeds(text, ignored);
            },
            "A..B", "seeds"));
    command.add_option("--minutes", line.options.minutes, "Stop after so many minutes")
        ->check(CLI::PositiveNumber);
    command.add_option("--jobs", line.options.jobs, "Threads (1)")->check(CLI::Range(1, 256));
    command.add_option("--failures", line.options.failures, "Folder for scenarios that fail (.)")
        ->check(CLI::Validator(whyNoFolder, "", "folder"));
    command.add_flag("--hashes", line.options.printsHashes,
                     "Print the hash of each seed's trace, to compare builds");
}

int run(const CLI::App& command, CommandLine& line, Streams streams) {
    SoakOptions& options = line.options;
    options.report.format = line.format == "json" ? SoakFormat::json : SoakFormat::text;
    if (options.printsHashes && options.report.format == SoakFormat::json) {
        throw CLI::ValidationError("--hashes", "does not go with --format json");
    }
    if (command.count("--merge") > 0) {
        return mergeSoaks(line.merged, options.report, streams.out, streams.err);
    }
    (void)parseSeeds(line.seeds, options.seeds);  // checked before
    const bool isEndless = options.minutes && command.count("--seeds") == 0;
    if (isEndless) options.seeds.last = SoakResult::lastSeed;
    options.showsProgress = canDrawInPlace(STDERR_FILENO);
    return soak(options, streams.out, streams.err);
}

}  // namespace

int soak(const SoakOptions& options, std::ostream& out, std::ostream& err) {
    return Soak(options, out, err).run();
}

void addSoak(CLI::App& app, Streams streams, int& status) {
    CLI::App* const command = app.add_subcommand(
        "soak", "Run the whole daemon through random trouble, and judge every run");
    auto line = std::make_shared<CommandLine>();
    addRunOptions(*command, *line);
    command->add_flag("--everything", line->options.report.requiresEverything,
                      "Say how often each dangerous situation came up; fail if one never did");
    command
        ->add_option("--format", line->format,
                     "text (for people, the default) or json (one object, for --merge)")
        ->check(CLI::IsMember({"text", "json"}));
    CLI::Option* const merge =
        command->add_option("--merge", line->merged, "Add up results instead, from these files");
    for (const char* name : {"--seeds", "--minutes", "--jobs", "--failures", "--hashes"}) {
        merge->excludes(command->get_option(name));
    }
    command->callback([=, &status] { status = run(*command, *line, streams); });
}

}  // namespace airflow::tool
