#include <dlfcn.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <thread>
#include <vector>

#include "sensors/hid/HIDFunctions.h"
#include "sensors/hidlibrary/LoadedHIDLibrary.h"

namespace airflow::sensors {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using tests::hidLibraryPath;
using tests::loadHIDLibrary;

constexpr std::array<const char*, 6> inOrder{
    "IOHIDEventSystemClientCreate",       "IOHIDEventSystemClientSetMatching",
    "IOHIDEventSystemClientCopyServices", "IOHIDServiceClientCopyProperty",
    "IOHIDServiceClientCopyEvent",        "IOHIDEventGetFloatValue"};

TEST(HIDFunctions, allSixAreLookedUpInOrder) {
    const auto& library = loadHIDLibrary(hidLibraryPath(), {});
    const HIDFunctions functions(hidLibraryPath());

    EXPECT_TRUE(functions.isAvailable());

    EXPECT_THAT(library.record().lookUps, ElementsAreArray(inOrder));
}

TEST(HIDFunctions, eachIsLookedUpOnce) {
    const auto& library = loadHIDLibrary(hidLibraryPath(), {});
    const HIDFunctions functions(hidLibraryPath());

    EXPECT_TRUE(functions.isAvailable());
    EXPECT_TRUE(functions.isAvailable());
    EXPECT_TRUE(functions.clientCreate.isResolved());

    EXPECT_EQ(library.record().lookUps.size(), 6u);
}

TEST(HIDFunctions, eachIsLookedUpOnceThoughManyThreadsAsk) {
    const auto& library = loadHIDLibrary(hidLibraryPath(), {});
    const HIDFunctions functions(hidLibraryPath());
    std::atomic<int> yes = 0;

    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&functions, &yes] { yes += functions.isAvailable() ? 1 : 0; });
    }
    for (std::thread& thread : threads) thread.join();

    EXPECT_EQ(yes, 8);
    EXPECT_EQ(library.record().lookUps.size(), 6u);
}

TEST(HIDFunctions, eachIsLookedUpIndependentlyOfTheOthers) {
    const auto& library = loadHIDLibrary(hidLibraryPath(), {});
    const HIDFunctions functions(hidLibraryPath());

    EXPECT_TRUE(functions.eventGetFloatValue.isResolved());
    EXPECT_TRUE(functions.serviceCopyProperty.isResolved());

    EXPECT_THAT(library.record().lookUps,
                ElementsAre("IOHIDEventGetFloatValue", "IOHIDServiceClientCopyProperty"));
}

TEST(HIDFunctions, nothingIsOpenedBeforeTheFirstUse) {
    const std::string path = std::string(AIRFLOW_HID_LIBRARIES) + "/hidlibrary_opened_late.so";
    const HIDFunctions functions(path);
    EXPECT_EQ(dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD), nullptr);

    EXPECT_TRUE(functions.isAvailable());

    void* const handle = dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(handle, nullptr);
    dlclose(handle);
}

TEST(HIDFunctions, theLibraryIsNeverClosed) {
    const std::string path = std::string(AIRFLOW_HID_LIBRARIES) + "/hidlibrary_kept_open.so";
    {
        const HIDFunctions functions(path);
        EXPECT_TRUE(functions.isAvailable());
    }
    void* const handle = dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(handle, nullptr);
    dlclose(handle);
}

TEST(HIDFunctions, withoutTheLibraryThereIsNone) {
    const HIDFunctions functions(hidLibraryPath("everything"));

    EXPECT_FALSE(functions.isAvailable());
    EXPECT_FALSE(functions.clientCreate.isResolved());
    EXPECT_FALSE(functions.clientSetMatching.isResolved());
    EXPECT_FALSE(functions.clientCopyServices.isResolved());
    EXPECT_FALSE(functions.serviceCopyProperty.isResolved());
    EXPECT_FALSE(functions.serviceCopyEvent.isResolved());
    EXPECT_FALSE(functions.eventGetFloatValue.isResolved());
}

TEST(HIDFunctions, aLibraryThatLacksAllOfThemHasNone) {
    EXPECT_FALSE(HIDFunctions("libm.so.6").isAvailable());
}

TEST(HIDFunctions, theDefaultLibraryIsTheIOKitFramework) {
    EXPECT_STREQ(HIDFunctions::frameworkPath, "/System/Library/Frameworks/IOKit.framework/IOKit");
}

class HIDFunctionsWithoutOne : public testing::TestWithParam<const char*> {};

TEST_P(HIDFunctionsWithoutOne, lookUpStopsAtTheMissingOne) {
    const auto& library = loadHIDLibrary(hidLibraryPath(GetParam()), {});
    const HIDFunctions functions(hidLibraryPath(GetParam()));

    EXPECT_FALSE(functions.isAvailable());

    const auto missing = std::ranges::find(inOrder, std::string(GetParam()));
    EXPECT_THAT(library.record().lookUps,
                ElementsAreArray(std::vector<std::string>(inOrder.begin(), missing)));
    EXPECT_THAT(library.record().calls, IsEmpty());
}

TEST_P(HIDFunctionsWithoutOne, theOtherFiveAreStillThere) {
    loadHIDLibrary(hidLibraryPath(GetParam()), {});
    const HIDFunctions functions(hidLibraryPath(GetParam()));
    const std::array resolved{
        functions.clientCreate.isResolved(),       functions.clientSetMatching.isResolved(),
        functions.clientCopyServices.isResolved(), functions.serviceCopyProperty.isResolved(),
        functions.serviceCopyEvent.isResolved(),   functions.eventGetFloatValue.isResolved()};
    for (std::size_t i = 0; i < inOrder.size(); ++i) {
        EXPECT_EQ(resolved[i], inOrder[i] != std::string(GetParam())) << inOrder[i];
    }
}

INSTANTIATE_TEST_SUITE_P(EachFunction, HIDFunctionsWithoutOne, testing::ValuesIn(inOrder),
                         [](const auto& info) { return std::string(info.param); });

}  // namespace
}  // namespace airflow::sensors
