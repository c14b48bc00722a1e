// TraceFile: lines on disk that are whole whatever happens, in files of a limited size.
#pragma once

#include <cstdint>
#include <expected>
#include <string>
#include <string_view>

#include "platform/linux/LocalSocket.h"

namespace airflow::tool {

/// The newest lines are in the file at `path`, those before in "<path>.1", "<path>.2" and so on.
class TraceFile {
public:
    struct Options {
        std::string path{};
        /// A line that would make a file longer begins the next one; 0: all lines are in one file.
        std::uint64_t rotateBytes = 0;
        std::uint64_t keep = 5;  ///< full files beside the newest; the oldest ones are removed
    };
    template <typename T>
    using Result = std::expected<T, std::string>;

    /// A new file. Fails, with one line for people, when there is one already, or one that a full
    /// file would replace: they may be somebody's recordings.
    [[nodiscard]] static Result<TraceFile> create(Options options);

    /// Appends the line and its end. When the disk takes less than the whole line, none of it
    /// stays: the error then names the file and the reason.
    [[nodiscard]] Result<void> write(std::string_view line);

private:
    explicit TraceFile(Options given) : options(std::move(given)) {}

    [[nodiscard]] std::string numbered(std::uint64_t number) const;
    [[nodiscard]] Result<void> open();
    [[nodiscard]] Result<void> rotate();
    [[nodiscard]] std::unexpected<std::string> failure(std::string_view what) const;

    Options options;
    platform::FileDescriptor file;
    std::uint64_t size = 0;  ///< bytes, of whole lines
};

}  // namespace airflow::tool
