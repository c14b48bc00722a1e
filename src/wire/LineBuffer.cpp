#include "wire/LineBuffer.h"

namespace airflow::wire {

void LineBuffer::append(std::string_view more) {
    bytes.erase(0, start);
    searched -= start;
    start = 0;
    bytes += more;
}

std::optional<std::string_view> LineBuffer::next() {
    if (isBroken) return std::nullopt;
    if (!hasRest()) {
        std::string().swap(bytes);  // a long line leaves no long buffer behind
        start = searched = 0;
        return std::nullopt;
    }
    const std::size_t newline = bytes.find('\n', searched);
    const std::size_t end = newline == std::string::npos ? bytes.size() : newline;
    searched = end;
    isBroken = end - start > limit;
    if (isBroken || newline == std::string::npos) return std::nullopt;
    const auto line = std::string_view(bytes).substr(start, end - start);
    start = searched = end + 1;
    return line;
}

}  // namespace airflow::wire
