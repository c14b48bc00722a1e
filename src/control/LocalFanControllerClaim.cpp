// Claim: switching a fan from Auto to forced mode, against an SMC that may refuse for a while.
#include <chrono>
#include <utility>

#include "control/LocalFanController.h"

namespace airflow::control {

namespace {

using concurrency::Task;
using namespace std::chrono_literals;

constexpr std::uint8_t success = 0;
constexpr std::uint8_t busy = 0x82;
constexpr std::uint8_t callFailed = 255;  // stands for a write that never reached the SMC

constexpr auto pollPeriod = 100ms;
constexpr auto pollLimit = 10s;
constexpr std::int64_t attemptsPerForceTest = 20;
constexpr int tolerableRepeats = 4;

/// Tells a firm refusal from a passing one: the same code five times, with nothing in between.
class RefusalCount {
public:
    /// Whether `code` ends the claim.
    bool isFirm(std::uint8_t code) {
        if (code == busy) {  // never counts, and what came before it does not either
            repeats = 0;
            return false;
        }
        if (repeats == 0 || code != lastCode) {
            lastCode = code;
            repeats = 1;
            return false;
        }
        if (repeats >= tolerableRepeats) return true;
        ++repeats;
        return false;
    }

private:
    std::uint8_t lastCode = 0;
    int repeats = 0;  ///< 0: the next refusal is the first
};

std::uint8_t codeOf(const smc::SMCWriting::WriteResult& written) {
    return written ? *written : callFailed;
}

}  // namespace

Task<void> LocalFanController::raiseForceTest() {
    (void)co_await smc.writeUInt8("Ftst", 1);  // the mode key's answer is what counts
}

Task<smc::SMCWriting::WriteResult> LocalFanController::force(Fan fan, std::string modeKey) {
    const auto request = fans.beginForcing(fan);
    const WriteResult written = co_await smc.writeUInt8(std::move(modeKey), 1);
    if (codeOf(written) == success)
        fans.forced(request);
    else
        fans.refusedToForce(request);
    co_return written;
}

Task<ControlResult> LocalFanController::claimManualMode(Fan fan, std::string modeKey,
                                                        Generations begun) {
    WriteResult written = co_await force(fan, modeKey);
    if (isSuperseded(fan, begun)) co_return co_await endSupersededClaim(fan, modeKey, written);
    if (codeOf(written) == success) co_return ControlResult::applied();
    co_await raiseForceTest();
    const concurrency::Instant start = runtime.now();
    RefusalCount refusals;
    for (std::int64_t attempt = 1;; ++attempt) {
        if (attempt % attemptsPerForceTest == 0) co_await raiseForceTest();
        if (isSuperseded(fan, begun)) co_return ControlResult::rejected(superseded);
        written = co_await force(fan, modeKey);
        if (isSuperseded(fan, begun)) co_return co_await endSupersededClaim(fan, modeKey, written);
        const std::uint8_t code = codeOf(written);
        if (code == success) co_return ControlResult::applied();
        if (refusals.isFirm(code)) co_return ControlResult::rejected(code);
        // Without a token: a cancelled task must not spin on the driver.
        (void)co_await runtime.sleepFor(pollPeriod);
        if (isSuperseded(fan, begun)) co_return ControlResult::rejected(superseded);
        if (runtime.now() - start >= pollLimit) co_return ControlResult::timedOut();
    }
}

/// What came meanwhile may not know of this fan, or may have asked for it too early.
Task<ControlResult> LocalFanController::endSupersededClaim(Fan fan, std::string modeKey,
                                                           WriteResult last) {
    const bool mayBeForced = last ? *last == success : last.error() != smc::SMCError::withheld();
    if (mayBeForced) {
        (void)co_await giveBackOrRetry(fan, std::move(modeKey));
        startDueWatching();
    }
    co_return ControlResult::rejected(superseded);
}

}  // namespace airflow::control
