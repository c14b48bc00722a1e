// AnswerBox: where answers, which come from any thread, wait for the one that writes them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "platform/linux/LocalSocket.h"

namespace airflow::platform {

/// Shared by whoever may still answer, so that an answer that comes too late finds it.
class AnswerBox {
public:
    struct Answer {
        std::uint64_t connection = 0;
        std::string line{};
        std::size_t heartbeats = 0;  ///< that were heard; there is no line then
    };

    AnswerBox();

    /// Any thread may call.
    void put(Answer answer);
    /// Wakes the reader for good; take() then returns what is left.
    void close();

    /// Readable while there is something to take.
    [[nodiscard]] const FileDescriptor& descriptor() const { return event; }
    /// Everything that was put since the last call.
    [[nodiscard]] std::vector<Answer> take();
    [[nodiscard]] bool isClosed() const;

private:
    void wake() const;

    FileDescriptor event;
    mutable std::mutex mutex;
    std::vector<Answer> waiting;
    bool closed = false;
};

}  // namespace airflow::platform
