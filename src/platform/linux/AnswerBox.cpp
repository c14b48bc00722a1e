#include "platform/linux/AnswerBox.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <utility>

#include "concurrency/Require.h"

namespace airflow::platform {

AnswerBox::AnswerBox() : event(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    concurrency::require(static_cast<bool>(event), "the system has event descriptors");
}

void AnswerBox::put(Answer answer) {
    const std::lock_guard lock(mutex);
    waiting.push_back(std::move(answer));
    if (waiting.size() == 1) wake();
}

void AnswerBox::close() {
    const std::lock_guard lock(mutex);
    closed = true;
    wake();
}

std::vector<AnswerBox::Answer> AnswerBox::take() {
    const std::lock_guard lock(mutex);
    std::uint64_t count = 0;
    (void)!read(event.get(), &count, sizeof count);  // nothing there is no failure
    return std::exchange(waiting, {});
}

bool AnswerBox::isClosed() const {
    const std::lock_guard lock(mutex);
    return closed;
}

void AnswerBox::wake() const {
    constexpr std::uint64_t one = 1;
    (void)!write(event.get(), &one, sizeof one);  // fails only when it would wake anyway
}

}  // namespace airflow::platform
