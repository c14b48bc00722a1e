# Builds for arm64 Macs on Linux, with Zig's C++ compiler (scripts/install-zig).
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_PROCESSOR arm64)
# 22 is macOS 13. Its value is read by nothing else than CMake's own platform files.
set(CMAKE_SYSTEM_VERSION 22)

set(CMAKE_CXX_COMPILER "${CMAKE_CURRENT_LIST_DIR}/zig-c++")
set(CMAKE_OBJCXX_COMPILER "${CMAKE_CURRENT_LIST_DIR}/zig-c++")
set(CMAKE_AR "${CMAKE_CURRENT_LIST_DIR}/zig-ar" CACHE FILEPATH "")
set(CMAKE_RANLIB "${CMAKE_CURRENT_LIST_DIR}/zig-ranlib" CACHE FILEPATH "")
find_program(CMAKE_INSTALL_NAME_TOOL NAMES llvm-install-name-tool-19 REQUIRED)
find_program(CMAKE_STRIP NAMES llvm-strip-19 REQUIRED)

# Nothing is looked for in the host's folders, except by those who say so.
set(CMAKE_FIND_ROOT_PATH "${CMAKE_CURRENT_LIST_DIR}")
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)

# CMake names the language of Objective-C++ files, which Zig already knows by their ending.
set(CMAKE_OBJCXX_FLAGS_INIT -Wno-unused-command-line-argument)
