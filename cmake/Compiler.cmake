# What every translation unit of the project is compiled with.

if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  message(FATAL_ERROR
    "Airflow is compiled by clang 19 (this is ${CMAKE_CXX_COMPILER_ID} ${CMAKE_CXX_COMPILER_VERSION}). "
    "GCC destroys some temporaries twice in expressions with co_await, which no test can be trusted "
    "to catch. Use a preset, for example: cmake --preset debug")
endif()
# Clang 17 is the oldest that the code is written for; Apple's 16 is made from it.
if((CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 17)
   OR (CMAKE_CXX_COMPILER_ID STREQUAL "AppleClang" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 16))
  message(FATAL_ERROR "Airflow needs clang 17 (Apple's: 16) or newer; "
                      "this is ${CMAKE_CXX_COMPILER_ID} ${CMAKE_CXX_COMPILER_VERSION}.")
endif()

set(CMAKE_CXX_STANDARD 23)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# No fused multiply-add: the same plan and temperatures give the same bytes on every processor.
add_compile_options(-ffp-contract=off)

# On a Mac whatever is visible is looked up among all libraries at every start.
if(APPLE)
  set(CMAKE_CXX_VISIBILITY_PRESET hidden)
  set(CMAKE_OBJCXX_VISIBILITY_PRESET hidden)
  set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
endif()

set(AIRFLOW_SANITIZE "" CACHE STRING "Sanitizers, as for -fsanitize=: address,undefined or thread")
if(AIRFLOW_SANITIZE)
  add_compile_options(-fsanitize=${AIRFLOW_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${AIRFLOW_SANITIZE})
endif()

option(AIRFLOW_FUZZERS "Build the fuzzers, and everything so that they see where an input leads" OFF)
if(AIRFLOW_FUZZERS)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

option(AIRFLOW_COVERAGE "Instrument for source-based coverage, with MC/DC" OFF)
if(AIRFLOW_COVERAGE)
  add_compile_options(-fprofile-instr-generate -fcoverage-mapping -fcoverage-mcdc)
  add_link_options(-fprofile-instr-generate)
endif()

option(AIRFLOW_LIBCXX "Use libc++, as on a Mac" OFF)
if(AIRFLOW_LIBCXX)
  add_compile_options(-stdlib=libc++)
  add_link_options(-stdlib=libc++)
endif()

# Links the many test programs several times as fast.
if(NOT APPLE)
  add_link_options(-fuse-ld=lld)
endif()

# The project's own warnings; on targets, so that dependencies are not judged by them.
add_library(airflow_warnings INTERFACE)
target_compile_options(airflow_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
# Clang 17 takes a name in a lambda without `this` for a shadow of the class's field.
if(CMAKE_CXX_COMPILER_VERSION VERSION_LESS 18)
  target_compile_options(airflow_warnings INTERFACE -Wno-shadow)
endif()

# Headers that most files need and that take longest to read: read once. Not for a Mac, nor for
# scripts/lint, so that a header that a file forgets to include is noticed there.
if(NOT APPLE)
  file(WRITE "${CMAKE_BINARY_DIR}/precompiled.cpp" "")
  add_library(airflow_precompiled STATIC "${CMAKE_BINARY_DIR}/precompiled.cpp")
  target_precompile_headers(airflow_precompiled PRIVATE
    <algorithm> <atomic> <chrono> <coroutine> <cstdint> <expected> <functional> <map> <memory> <mutex>
    <optional> <set> <span> <string> <string_view> <utility> <variant> <vector> <fmt/format.h>)
  target_compile_options(airflow_precompiled PUBLIC -Xclang -fno-pch-timestamp)
endif()

# One library for each module (docs/architecture.md). `NEEDS` are the modules it may use; `LIBRARIES`
# the packages. What a module calls and none of its needs gives does not link; headers and what comes
# along with a need are for tests/architecture to check.
function(airflow_module name)
  cmake_parse_arguments(MODULE "" "" "SOURCES;NEEDS;LIBRARIES" ${ARGN})
  if(MODULE_SOURCES)
    add_library(airflow_${name} STATIC ${MODULE_SOURCES})
    set(scope PUBLIC)
    target_link_libraries(airflow_${name} PRIVATE airflow_warnings)
    if(TARGET airflow_precompiled)
      target_precompile_headers(airflow_${name} REUSE_FROM airflow_precompiled)
      target_link_libraries(airflow_${name} PRIVATE fmt::fmt)
    endif()
  else()
    add_library(airflow_${name} INTERFACE)
    set(scope INTERFACE)
  endif()
  target_include_directories(airflow_${name} ${scope} ${PROJECT_SOURCE_DIR}/src)
  foreach(need IN LISTS MODULE_NEEDS)
    target_link_libraries(airflow_${name} ${scope} airflow_${need})
  endforeach()
  target_link_libraries(airflow_${name} ${scope} ${MODULE_LIBRARIES})
endfunction()
