#include <gmock/gmock.h>

#include <asio/error.hpp>
#include <asio/io_context.hpp>
#include <asio/post.hpp>
#include <cerrno>
#include <future>
#include <memory>
#include <set>
#include <system_error>
#include <thread>

#include "FewDescriptors.h"
#include "ServedDaemon.h"
#include "platform/linux/EventLoop.h"
#include "platform/linux/LocalProcess.h"

namespace airflow::platform {
namespace {

/// The reasons that are given as descriptors become more, up to the first success.
template <typename Make>
std::set<std::string> reasonsUntilItWorks(Make make) {
    // A sanitizer needs descriptors, too, when it first sees an object of a type.
    EXPECT_TRUE(make());
    EXPECT_FALSE(valueOrReason(
        []() -> int { throw std::system_error(EMFILE, asio::error::get_system_category()); }));
    std::set<std::string> reasons;
    for (rlim_t count = 3; count < 1000; ++count) {
        const FewDescriptors few(count);
        const auto made = make();
        if (made) return reasons;
        reasons.insert(made.error());
    }
    ADD_FAILURE() << "it never works";
    return reasons;
}

TEST(EventLoop, withoutDescriptorsThereIsAReasonAndNoLoop) {
    const std::size_t before = openDescriptors();
    EXPECT_EQ(reasonsUntilItWorks([] { return EventLoop::start(); }),
              std::set<std::string>{"Too many open files"});
    EXPECT_EQ(openDescriptors(), before);
}

TEST(EventLoop, withoutDescriptorsThereIsAReasonAndNoSignalIsHandled) {
    const std::size_t before = openDescriptors();
    EXPECT_EQ(reasonsUntilItWorks([] { return makeLocalProcess(); }),
              std::set<std::string>{"Too many open files"});
    EXPECT_EQ(openDescriptors(), before);
}

TEST(EventLoop, whatIsPostedRunsOnItsThread) {
    auto loop = EventLoop::start().value();
    std::promise<std::thread::id> ran;
    asio::post(*loop.context(), [&ran] { ran.set_value(std::this_thread::get_id()); });
    EXPECT_NE(ran.get_future().get(), std::this_thread::get_id());
}

TEST(EventLoop, whatIsPostedAfterItsEndNeverRuns) {
    auto loop = EventLoop::start().value();
    const auto context = loop.context();
    loop.stop();
    loop.stop();
    const auto posted = std::make_shared<int>();
    asio::post(*context, [posted] { FAIL() << "nobody runs this"; });
    EXPECT_EQ(posted.use_count(), 2);
}

}  // namespace
}  // namespace airflow::platform
