#include "tool/common/Interruption.h"

#include <atomic>
#include <csignal>

namespace airflow::tool {

namespace {

std::atomic<int> noted = 0;
static_assert(std::atomic<int>::is_always_lock_free, "a handler of signals may not wait");

extern "C" void noteInterruption(int number) {
    noted = number;
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
}

void (*install(int number))(int) {
    const auto before = std::signal(number, noteInterruption);
    if (before == SIG_IGN) std::signal(number, SIG_IGN);
    return before;
}

}  // namespace

Interruption::Interruption() : interrupt(install(SIGINT)), terminate(install(SIGTERM)) {}

Interruption::~Interruption() {
    std::signal(SIGINT, interrupt);
    std::signal(SIGTERM, terminate);
    noted = 0;
}

int Interruption::signal() const {
    return noted;
}

}  // namespace airflow::tool
