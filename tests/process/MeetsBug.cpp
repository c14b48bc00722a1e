// A program of the daemon's kind that meets a bug of the kind that its argument names.
#include <unistd.h>

#include <stdexcept>
#include <string>

#include "concurrency/Require.h"
#include "platform/linux/ThreadRuntime.h"
#include "platform/posix/StandardDescriptors.h"
#include "platform/posix/StandardError.h"

namespace {

using airflow::concurrency::Task;

Task<void> expectInVain() {
    airflow::concurrency::require(false, "this holds");
    co_return;
}

Task<void> throwToNobody() {
    throw std::runtime_error("lost\nits way");
    co_return;
}

void fail() {
    throw std::runtime_error("stays inside");
}

Task<void> throwThroughNoexcept() {
    []() noexcept { fail(); }();
    co_return;
}

Task<void> meet(const std::string& kind) {
    if (kind == "expectation") return expectInVain();
    if (kind == "exception") return throwToNobody();
    return throwThroughNoexcept();
}

}  // namespace

int main(int count, char** arguments) {
    airflow::platform::openStandardDescriptors();
    airflow::platform::beginLastLineAsTheLog();
    if (count != 2) return 2;
    const auto runtime = airflow::platform::makeThreadRuntime(2);
    runtime->detach("bug", meet(arguments[1]));
    for (;;) pause();
}
