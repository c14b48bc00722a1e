# The packages that the project uses. For a Mac they are headers only, so that the daemon, which runs
# as root, loads no library that is not the system's; and they are seen through a folder that holds
# nothing else, so that no other header of the machine that builds can be found by mistake.
if(NOT APPLE)
  find_package(RapidJSON 1.1 REQUIRED)
  if(NOT TARGET RapidJSON::RapidJSON)  # its package says only where the headers are
    add_library(RapidJSON::RapidJSON INTERFACE IMPORTED)
    target_include_directories(RapidJSON::RapidJSON INTERFACE ${RAPIDJSON_INCLUDE_DIRS})
  endif()
  find_package(CLI11 2.1 REQUIRED)
  find_package(fmt 9 REQUIRED)
  find_path(AIRFLOW_ASIO_HEADERS asio/io_context.hpp REQUIRED)
  add_library(Asio::Asio INTERFACE IMPORTED)
  target_include_directories(Asio::Asio INTERFACE "${AIRFLOW_ASIO_HEADERS}")
  target_compile_definitions(Asio::Asio INTERFACE ASIO_STANDALONE ASIO_NO_DEPRECATED)
  if(AIRFLOW_LIBCXX)
    # The package's library is compiled for the other standard library.
    target_compile_definitions(fmt::fmt INTERFACE FMT_HEADER_ONLY)
  endif()
  if(TARGET airflow_precompiled)
    target_link_libraries(airflow_precompiled PRIVATE fmt::fmt)
  endif()
  return()
endif()

set(headers "${PROJECT_BINARY_DIR}/dependencies")
file(MAKE_DIRECTORY "${headers}")
function(airflow_headers target folder header)
  find_path(AIRFLOW_${folder}_HEADERS "${folder}/${header}" HINTS /opt/homebrew/include
            NO_CMAKE_FIND_ROOT_PATH REQUIRED)
  file(CREATE_LINK "${AIRFLOW_${folder}_HEADERS}/${folder}" "${headers}/${folder}" SYMBOLIC)
  add_library(${target} INTERFACE IMPORTED GLOBAL)
  target_include_directories(${target} INTERFACE "${headers}")
endfunction()
airflow_headers(RapidJSON::RapidJSON rapidjson reader.h)
airflow_headers(fmt::fmt fmt format.h)
target_compile_definitions(fmt::fmt INTERFACE FMT_HEADER_ONLY)
airflow_headers(CLI11::CLI11 CLI CLI.hpp)
