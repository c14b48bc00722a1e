// The main function of every test program.
//
// Properties are tried 1,000 times instead of RapidCheck's 100; scripts/verify tries them 10,000
// times. A failing one prints the line RC_PARAMS="reproduce=..." with which that very case runs
// again; what stands in RC_PARAMS wins.
#include <gmock/gmock.h>

#include <csignal>
#include <cstdlib>
#include <string>

/// Of the coverage build only: writes what was counted so far.
extern "C" [[gnu::weak]] int __llvm_profile_write_file();

namespace {

/// What a death test reached before the process was stopped counts as covered, too.
void keepCountsOnAbort() {
    if (!__llvm_profile_write_file) return;
    std::signal(SIGABRT, [](int) {
        __llvm_profile_write_file();
        std::signal(SIGABRT, SIG_DFL);
    });
}

}  // namespace

int main(int argc, char** argv) {
    const char* const given = std::getenv("RC_PARAMS");
    const std::string parameters = std::string("max_success=1000 ") + (given ? given : "");
    setenv("RC_PARAMS", parameters.c_str(), 1);
    keepCountsOnAbort();
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
