// The main function of every test program.
//
// Properties are tried 10,000 times instead of RapidCheck's 100. A failing one prints the line
// RC_PARAMS="reproduce=..." with which that very case runs again; what stands in RC_PARAMS wins.
#include <gmock/gmock.h>

#include <cstdlib>
#include <string>

int main(int argc, char** argv) {
    const char* const given = std::getenv("RC_PARAMS");
    const std::string parameters = std::string("max_success=10000 ") + (given ? given : "");
    setenv("RC_PARAMS", parameters.c_str(), 1);
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
