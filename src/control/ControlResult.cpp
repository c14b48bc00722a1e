#include "control/ControlResult.h"

#include <fmt/format.h>

#include <iterator>
#include <string>
#include <string_view>

namespace airflow::control {

namespace {

void appendEscaped(std::string& text, char character) {
    switch (character) {
        case '"': text += "\\\""; return;
        case '\\': text += "\\\\"; return;
        case '\n': text += "\\n"; return;
        case '\r': text += "\\r"; return;
        case '\t': text += "\\t"; return;
        case '\0': text += "\\0"; return;
        default: break;
    }
    const auto byte = static_cast<unsigned char>(character);
    constexpr unsigned char del = 0x7F;
    if (byte < ' ' || byte == del) {
        fmt::format_to(std::back_inserter(text), "\\u{{{:02X}}}", byte);
    } else {
        text += character;
    }
}

std::string quoted(std::string_view text) {
    std::string result = "\"";
    for (const char character : text) appendEscaped(result, character);
    return result += '"';
}

}  // namespace

std::int64_t ControlResult::xpcCode() const {
    switch (kind) {
        case Case::applied: return 0;
        case Case::acquiring: return 1;
        case Case::timedOut: return 2;
        case Case::reclaimed: return 3;
        case Case::rejected: return 4;
        case Case::notPrivileged: return 5;
        case Case::noHelper: return 6;
        case Case::failed: break;
    }
    return 7;
}

ControlResult ControlResult::fromXPCCode(std::int64_t code) {
    switch (code) {
        case 0: return applied();
        case 1: return acquiring();
        case 2: return timedOut();
        case 3: return reclaimed();
        case 4: return rejected(0);
        case 5: return notPrivileged();
        case 6: return noHelper();
        default: return failed(fmt::format("xpc: unrecognized result code {}", code));
    }
}

std::string ControlResult::description() const {
    switch (kind) {
        case Case::rejected: return fmt::format("rejected(code: {})", code);
        case Case::failed: return fmt::format("failed({})", quoted(reason));
        case Case::applied: return "applied";
        case Case::acquiring: return "acquiring";
        case Case::timedOut: return "timedOut";
        case Case::reclaimed: return "reclaimed";
        case Case::notPrivileged: return "notPrivileged";
        case Case::noHelper: break;
    }
    return "noHelper";
}

}  // namespace airflow::control
