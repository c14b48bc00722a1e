// FewDescriptors: takes the descriptors away that a test's process could still open.
#pragma once

#include <sys/resource.h>

#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>

namespace airflow::platform {

/// While it lives, no descriptor from this number on can be opened.
class FewDescriptors {
public:
    explicit FewDescriptors(rlim_t count) {
        useATimer();
        getrlimit(RLIMIT_NOFILE, &before);
        rlimit few = before;
        few.rlim_cur = count;
        setrlimit(RLIMIT_NOFILE, &few);
    }
    FewDescriptors(const FewDescriptors&) = delete;
    FewDescriptors& operator=(const FewDescriptors&) = delete;
    ~FewDescriptors() { setrlimit(RLIMIT_NOFILE, &before); }

private:
    /// A sanitizer needs descriptors, too, when it sees an object of a type for the first time.
    static void useATimer() {
        asio::io_context loop;
        asio::steady_timer timer(loop, std::chrono::seconds(0));
        timer.async_wait([](const auto&) {});
        loop.run();
    }

    rlimit before{};
};

}  // namespace airflow::platform
