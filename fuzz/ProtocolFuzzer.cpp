// Any stream of bytes as what a client sends to the daemon, as what the daemon answers to a client,
// and as what daemon and machine say to each other.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "HelperStream.h"
#include "Input.h"
#include "MachineStream.h"
#include "concurrency/Require.h"
#include "json/Writer.h"
#include "wire/Answer.h"
#include "wire/LineBuffer.h"
#include "wire/Request.h"

namespace airflow::fuzz {
namespace {

using concurrency::require;

/// The lines before the first that is too long.
std::vector<std::string_view> linesOf(std::string_view text, std::size_t limit, bool& isTooLong) {
    std::vector<std::string_view> lines;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        isTooLong = std::min(end, text.size()) > limit;
        if (isTooLong || end == std::string_view::npos) break;
        lines.push_back(text.substr(0, end));
        text.remove_prefix(end + 1);
    }
    return lines;
}

void cutIntoLines(Input input) {
    const std::size_t limit = input.below(64);
    const std::size_t piece = 1 + input.below(80);
    bool isTooLong = false;
    const auto expected = linesOf(input.text(), limit, isTooLong);
    wire::LineBuffer buffer(limit);
    std::size_t count = 0;
    for (std::string_view rest = input.text(); !rest.empty();
         rest.remove_prefix(std::min(piece, rest.size()))) {
        buffer.append(rest.substr(0, piece));
        while (const auto line = buffer.next()) {
            require(count < expected.size() && *line == expected[count], "lines come as they are");
            ++count;
        }
    }
    require(count == expected.size(), "no line is lost");
    require(buffer.isTooLong() == isTooLong, "a line that is too long is told");
}

void readAnswers(std::string_view text) {
    const auto answer = wire::parseAnswer(text);
    if (!answer || !answer->body || !answer->body->state) return;
    const auto written = json::encode(*answer->body->state);
    require(written.has_value(), "a state that was read can be written");
    const auto again = json::decode<control::ControlState>(*written);
    require(again.has_value() && *again == *answer->body->state, "a state survives being written");
}

/// A document that a client is asked to send comes out on one line, or not at all.
void sendPlan(std::string_view text) {
    const daemon::commands::ApplyConfig command{.plan = std::string(text)};
    const auto line = wire::requestLine(7, command);
    if (!line) return;
    require(line->find('\n') == line->size() - 1, "a request is one line");
    const auto read = wire::parseRequest(std::string_view(*line).substr(0, line->size() - 1));
    require(read.has_value() && read->command == daemon::Command(command),
            "the daemon reads what its client wrote");
}

}  // namespace
}  // namespace airflow::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace airflow::fuzz;
    if (size > 16384) return 0;
    Input input(data, size);
    switch (input.below(4)) {
        case 0: playHelperStream(input); break;
        case 1:
            cutIntoLines(input);
            readAnswers(input.text());
            sendPlan(input.text());
            break;
        case 2: playMachineStream(input); break;
        default: readMachineAnswers(input.text());
    }
    return 0;
}
