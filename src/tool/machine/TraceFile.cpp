#include "tool/machine/TraceFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

#include "text/Text.h"

namespace airflow::tool {

namespace {

/// Writes as much as goes; true when that was everything. Otherwise errno says why.
bool writeAll(int file, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::write(file, bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

}  // namespace

TraceFile::Result<TraceFile> TraceFile::create(Options options) {
    TraceFile made(std::move(options));
    if (made.options.rotateBytes > 0 && made.options.keep > 0 &&
        access(made.numbered(1).c_str(), F_OK) == 0) {
        errno = EEXIST;
        return std::unexpected(fmt::format("{}: cannot be created: {}",
                                           text::printable(made.numbered(1)),
                                           std::generic_category().message(errno)));
    }
    if (auto opened = made.open(); !opened) return std::unexpected(opened.error());
    return made;
}

TraceFile::Result<void> TraceFile::write(std::string_view line) {
    const std::string bytes = std::string(line) + '\n';
    const bool isFull = options.rotateBytes > 0 && size + bytes.size() > options.rotateBytes;
    if (isFull && size > 0) {
        if (auto rotated = rotate(); !rotated) return rotated;
    }
    if (!writeAll(file.get(), bytes)) {
        auto failed = failure("cannot be written");
        // What cannot be taken back stays: a disk that is broken, not one that is full.
        (void)!ftruncate(file.get(), static_cast<off_t>(size));
        (void)lseek(file.get(), 0, SEEK_END);
        return failed;
    }
    size += bytes.size();
    return {};
}

std::string TraceFile::numbered(std::uint64_t number) const {
    return number == 0 ? options.path : fmt::format("{}.{}", options.path, number);
}

TraceFile::Result<void> TraceFile::open() {
    constexpr mode_t forEverybodyAsTheUserWants = 0666;
    file = platform::FileDescriptor(::open(
        options.path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, forEverybodyAsTheUserWants));
    if (!file) return failure("cannot be created");
    size = 0;
    return {};
}

TraceFile::Result<void> TraceFile::rotate() {
    for (std::uint64_t number = options.keep; number > 0; --number) {
        const bool isMoved =
            std::rename(numbered(number - 1).c_str(), numbered(number).c_str()) == 0;
        if (!isMoved && errno != ENOENT) return failure("cannot be renamed");
    }
    if (options.keep == 0 && unlink(options.path.c_str()) != 0) return failure("cannot be removed");
    return open();
}

std::unexpected<std::string> TraceFile::failure(std::string_view what) const {
    return std::unexpected(fmt::format("{}: {}: {}", text::printable(options.path), what,
                                       std::generic_category().message(errno)));
}

}  // namespace airflow::tool
