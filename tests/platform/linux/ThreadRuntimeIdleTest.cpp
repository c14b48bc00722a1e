// What the pool's threads do while there is nothing to do, as the kernel counts it.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "platform/linux/ThreadRuntime.h"

namespace airflow::platform {
namespace {

using namespace std::chrono_literals;

std::set<std::string> threads() {
    std::set<std::string> found;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
        found.insert(entry.path().string());
    }
    return found;
}

/// How often the thread has gone to sleep.
long long switches(const std::string& thread) {
    std::ifstream status(thread + "/status");
    for (std::string word; status >> word;) {
        long long count = 0;
        if (word == "voluntary_ctxt_switches:" && status >> count) return count;
    }
    ADD_FAILURE() << "no count for " << thread;
    return 0;
}

TEST(ThreadRuntimeIdleTest, noThreadWakesWhileThereIsNothingToDo) {
    std::thread([] {}).join();  // a sanitizer starts a thread of its own with the first one
    const std::set<std::string> others = threads();
    const auto runtime = makeThreadRuntime(4);
    std::vector<std::string> own;
    std::ranges::set_difference(threads(), others, std::back_inserter(own));
    ASSERT_EQ(own.size(), 5u);  // four for jobs and one for time
    const auto count = [&own] {
        long long sum = 0;
        for (const std::string& thread : own) sum += switches(thread);
        return sum;
    };
    // On a busy machine the threads may take a while to begin and to go to sleep.
    bool isQuiet = false;
    for (int attempt = 0; attempt < 20 && !isQuiet; ++attempt) {
        const long long before = count();
        std::this_thread::sleep_for(20ms);
        isQuiet = before >= 5 && count() == before;
    }
    EXPECT_TRUE(isQuiet);
}

}  // namespace
}  // namespace airflow::platform
