# Precompiled headers: the standard library for every layer, GoogleTest besides for the tests. Most of
# what a source costs is reading these again.
#
# They are off with a compiler launcher (a compiler cache gains more without them) and wherever
# CMAKE_DISABLE_PRECOMPILE_HEADERS says so: a clean lint reads each source without them, and so sees an
# #include that is missing.
if(CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_DISABLE_PRECOMPILE_HEADERS ON)
endif()

# From a precompiled header g++ 12 reports what it keeps to itself about a system's header otherwise:
# overlaps and bounds in std::string's own code, as in its bug 105651.
if(NOT CMAKE_DISABLE_PRECOMPILE_HEADERS AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND
   CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  target_compile_options(paddock_flags INTERFACE -Wno-array-bounds -Wno-stringop-overflow -Wno-stringop-overread)
endif()

set(PADDOCK_PRECOMPILED
  <algorithm> <array> <atomic> <cerrno> <chrono> <condition_variable> <cstdint> <cstring> <exception>
  <functional> <limits> <map> <memory> <mutex> <optional> <set> <sstream> <stdexcept>
  <string> <string_view> <system_error> <thread> <unordered_map> <utility> <variant> <vector>)

# One program for each way of compiling: what is precompiled for a library is of no use to a program.
file(WRITE ${PROJECT_BINARY_DIR}/precompiled/library.cc "")
file(WRITE ${PROJECT_BINARY_DIR}/precompiled/program.cc "int main() {}\n")
add_library(paddock_precompiled STATIC EXCLUDE_FROM_ALL ${PROJECT_BINARY_DIR}/precompiled/library.cc)
target_link_libraries(paddock_precompiled PRIVATE paddock_flags)
target_precompile_headers(paddock_precompiled PRIVATE ${PADDOCK_PRECOMPILED})
if(BUILD_TESTING)
  add_executable(paddock_precompiled_tests EXCLUDE_FROM_ALL ${PROJECT_BINARY_DIR}/precompiled/program.cc)
  target_link_libraries(paddock_precompiled_tests PRIVATE paddock_flags GTest::gmock GTest::gtest_main)
  if(CMAKE_BUILD_TYPE STREQUAL Debug)
    target_compile_options(paddock_precompiled_tests PRIVATE -O0)
  endif()
  target_precompile_headers(paddock_precompiled_tests PRIVATE
    ${PADDOCK_PRECOMPILED} <filesystem> <gmock/gmock.h> <gtest/gtest.h>)
endif()
