#include "tool/client/TypedCall.h"

#include <fmt/format.h>

#include <charconv>
#include <cmath>
#include <istream>
#include <iterator>
#include <sstream>
#include <system_error>

#include "json/Decoder.h"
#include "json/Document.h"
#include "plan/FanControlPlan.h"
#include "text/Text.h"
#include "tool/plans/PlanFile.h"

namespace airflow::tool {

namespace {

using client::Method;

std::expected<std::int64_t, std::string> parseWhole(std::string_view what,
                                                    const std::string& word) {
    std::int64_t number = 0;
    const char* const end = word.data() + word.size();
    const auto [stop, status] = std::from_chars(word.data(), end, number);
    if (status == std::errc() && stop == end) return number;
    return std::unexpected(
        fmt::format("{} has to be a whole number, not \"{}\"", what, text::printable(word)));
}

std::expected<double, std::string> parseNumber(std::string_view what, const std::string& word) {
    std::istringstream text(word);
    text.imbue(std::locale::classic());
    double number = 0;
    text >> std::noskipws >> number;
    if (text && text.peek() == std::istringstream::traits_type::eof() && std::isfinite(number)) {
        return number;
    }
    return std::unexpected(
        fmt::format("{} has to be a number, not \"{}\"", what, text::printable(word)));
}

std::string_view argumentsOf(Method method) {
    switch (method) {
        case Method::setManualRPM: return "FAN RPM";
        case Method::setPercent: return "FAN PERCENT";
        case Method::applyConfig: return "PLAN";
        default: return "";
    }
}

std::size_t argumentCount(Method method) {
    switch (method) {
        case Method::setManualRPM:
        case Method::setPercent: return 2;
        case Method::applyConfig: return 1;
        default: return 0;
    }
}

std::string planName(const TypedCall& call) {
    return call.planPath == "-" ? "standard input" : call.planPath;
}

/// As readFile(), from a stream.
std::string readStream(std::istream& in) {
    std::string bytes(json::Limits{}.bytes + 1, '\0');
    in.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    bytes.resize(static_cast<std::size_t>(in.gcount()));
    return bytes;
}

}  // namespace

std::string_view methodsHelp() {
    return "  helperVersion            Say which build the daemon is\n"
           "  readState                Say who drives each fan, and what went wrong last\n"
           "  setManualRPM FAN RPM     Hold a fan at a speed\n"
           "  setPercent FAN PERCENT   Hold a fan at a share of its range, 0 to 100\n"
           "  fullBlast                Hold every fan at its maximum\n"
           "  applyConfig PLAN         Follow a plan document (JSON)\n"
           "  automatic                Give every fan back to the firmware\n"
           "  restoreAuto              The same, only acknowledged\n"
           "  heartbeat                Keep what is held for another 15 s\n"
           "  shutdownForUpgrade       Give every fan back and end the daemon\n";
}

std::expected<TypedCall, std::string> parseCall(const std::vector<std::string>& words) {
    if (words.empty()) return std::unexpected("a method is missing");
    const auto method = daemon::helperMethodNamed(words.front());
    if (!method) {
        return std::unexpected(
            fmt::format("there is no method \"{}\"", text::printable(words.front())));
    }
    TypedCall call{.request = {.method = *method}};
    if (words.size() - 1 != argumentCount(*method)) {
        const auto arguments = argumentsOf(*method);
        return std::unexpected(arguments.empty()
                                   ? fmt::format("{} takes no arguments", words[0])
                                   : fmt::format("{} takes: {}", words[0], arguments));
    }
    if (*method == Method::applyConfig) call.planPath = words[1];
    if (argumentCount(*method) < 2) return call;
    const auto fan = parseWhole("FAN", words[1]);
    if (!fan) return std::unexpected(fan.error());
    call.request.fan = *fan;
    if (*method == Method::setManualRPM) {
        const auto rpm = parseWhole("RPM", words[2]);
        if (!rpm) return std::unexpected(rpm.error());
        call.request.rpm = *rpm;
    } else {
        const auto percent = parseNumber("PERCENT", words[2]);
        if (!percent) return std::unexpected(percent.error());
        call.request.percent = *percent;
    }
    return call;
}

std::expected<std::vector<std::string>, std::string> wordsOf(std::string_view line) {
    std::vector<std::string> words;
    bool isQuoted = false;
    bool isInWord = false;
    for (const char character : line) {
        const bool isBlank = character == ' ' || character == '\t' || character == '\r';
        if (isBlank && !isQuoted) {
            isInWord = false;
            continue;
        }
        if (!isInWord && character == '#') break;
        if (!isInWord) words.emplace_back();
        isInWord = true;
        if (character == '"')
            isQuoted = !isQuoted;
        else
            words.back() += character;
    }
    if (isQuoted) return std::unexpected("a quotation mark is missing");
    return words;
}

std::expected<double, std::string> parseSeconds(const std::string& word) {
    auto seconds = parseNumber("SECONDS", word);
    if (seconds && (*seconds < 0 || *seconds > 1e6)) {
        return std::unexpected("SECONDS has to be from 0 to 1000000");
    }
    return seconds;
}

std::expected<client::Request, std::string> withPlan(TypedCall call, std::istream& in) {
    if (call.request.method != Method::applyConfig) return std::move(call.request);
    const auto bytes = call.planPath == "-" ? readStream(in) : readFile(call.planPath);
    if (!bytes) {
        return std::unexpected(
            fmt::format("{}: cannot be read: {}", text::printable(call.planPath), bytes.error()));
    }
    json::Document document;
    if (const auto parsed = document.parse(*bytes); !parsed) {
        return std::unexpected(text::printable(parsed.error().describe(planName(call))));
    }
    call.request.plan = *bytes;
    return std::move(call.request);
}

std::string whyNoPlan(const TypedCall& call, const client::Request& request) {
    if (request.method != Method::applyConfig) return {};
    const auto plan = json::decode<plan::FanControlPlan>(request.plan);
    return plan ? std::string() : text::printable(plan.error().describe(planName(call)));
}

}  // namespace airflow::tool
