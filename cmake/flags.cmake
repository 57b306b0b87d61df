# Warnings and sanitizers as one interface target that everything links.
add_library(paddock_flags INTERFACE)
target_compile_features(paddock_flags INTERFACE cxx_std_20)
target_compile_definitions(paddock_flags INTERFACE _GNU_SOURCE _FILE_OFFSET_BITS=64)
target_compile_options(paddock_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wnon-virtual-dtor
  -Woverloaded-virtual -Wold-style-cast -Wcast-align -Wunused -Wformat=2
  -fstack-protector-strong -fvisibility-inlines-hidden)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # When it optimises, g++ 12 sees overlaps in std::string's own code and uninitialised members in
  # std::variant's that are none (its bugs 105651 and 105562).
  target_compile_options(paddock_flags INTERFACE -Wno-restrict -Wno-maybe-uninitialized)
endif()
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  # That what a lock guards is used with the lock held: src/base/mutex.h.
  target_compile_options(paddock_flags INTERFACE -Wthread-safety -Werror=thread-safety)
endif()
option(PADDOCK_WERROR "Treat warnings as errors" ON)
if(PADDOCK_WERROR)
  target_compile_options(paddock_flags INTERFACE -Werror)
endif()
target_link_options(paddock_flags INTERFACE -Wl,-z,relro,-z,now -Wl,--as-needed)
find_package(Threads REQUIRED)
target_link_libraries(paddock_flags INTERFACE Threads::Threads)

set(PADDOCK_SANITIZE "" CACHE STRING "Sanitizers to build with, as -fsanitize= takes them")
if(PADDOCK_SANITIZE)
  target_compile_options(paddock_flags INTERFACE -fsanitize=${PADDOCK_SANITIZE} -fno-omit-frame-pointer
    -fno-sanitize-recover=all)
  target_link_options(paddock_flags INTERFACE -fsanitize=${PADDOCK_SANITIZE})
endif()

option(PADDOCK_FUZZ "Build the fuzz targets with libFuzzer (clang only)" OFF)
if(PADDOCK_FUZZ)
  target_compile_options(paddock_flags INTERFACE -fsanitize=fuzzer-no-link)
endif()

# glibc's fortified functions need optimisation.
if(CMAKE_BUILD_TYPE MATCHES "Rel" AND NOT PADDOCK_SANITIZE)
  target_compile_definitions(paddock_flags INTERFACE _FORTIFY_SOURCE=2)
endif()
