#include <iostream>

#include "platform/posix/StandardDescriptors.h"
#include "tool/Tool.h"

int main(int argc, char** argv) {
    airflow::platform::openStandardDescriptors();
    std::ios::sync_with_stdio(false);
    std::cin.tie(nullptr);
    return airflow::tool::runTool({argv + (argc > 0 ? 1 : 0), argv + argc},
                                  {std::cin, std::cout, std::cerr});
}
