// LineBuffer: cuts a stream of bytes into lines, and keeps no more of it than one line may have.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace airflow::wire {

class LineBuffer {
public:
    /// Lines have at most `longest` bytes, without the newline.
    explicit LineBuffer(std::size_t longest) : limit(longest) {}

    void append(std::string_view bytes);

    /// The next complete line, without its newline; valid until the next call. Nothing while there
    /// is none, and for good once a line is too long.
    [[nodiscard]] std::optional<std::string_view> next();

    /// Whether more bytes than a line may have stand before the next newline, seen or not. What
    /// follows cannot be told apart any more.
    [[nodiscard]] bool isTooLong() const { return isBroken; }
    /// Whether there are bytes that next() has not returned.
    [[nodiscard]] bool hasRest() const { return start < bytes.size(); }

private:
    std::size_t limit;
    std::string bytes;
    std::size_t start = 0;     ///< of the next line
    std::size_t searched = 0;  ///< up to here there is no newline after `start`
    bool isBroken = false;
};

}  // namespace airflow::wire
