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

Task<ControlResult> LocalFanController::claimManualMode(Fan, std::string modeKey) {
    const WriteResult direct = co_await smc.writeUInt8(modeKey, 1);
    if (codeOf(direct) == success) co_return ControlResult::applied();
    co_await raiseForceTest();
    const concurrency::Instant start = runtime.now();
    RefusalCount refusals;
    for (std::int64_t attempt = 1;; ++attempt) {
        if (attempt % attemptsPerForceTest == 0) co_await raiseForceTest();
        const WriteResult written = co_await smc.writeUInt8(modeKey, 1);
        const std::uint8_t code = codeOf(written);
        if (code == success) co_return ControlResult::applied();
        if (refusals.isFirm(code)) co_return ControlResult::rejected(code);
        // Without a token: a cancelled task must not spin on the driver.
        (void)co_await runtime.sleepFor(pollPeriod);
        if (runtime.now() - start >= pollLimit) co_return ControlResult::timedOut();
    }
}

}  // namespace airflow::control
