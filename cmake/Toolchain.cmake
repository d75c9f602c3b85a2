# The one compiler, its warnings, and the sanitizers of a preset.
if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang" OR CMAKE_CXX_COMPILER_VERSION VERSION_LESS 19)
  message(FATAL_ERROR
    "Vark builds with Clang 19 or newer only (found ${CMAKE_CXX_COMPILER_ID} ${CMAKE_CXX_COMPILER_VERSION}). "
    "GCC 12 compiles legal coroutine code into double frees without a warning. "
    "Run Scripts/install-dependencies, then configure with a preset: cmake --preset dev")
endif()

set(CMAKE_CXX_STANDARD 23)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_SCAN_FOR_MODULES OFF)

find_program(VARK_CCACHE ccache)
if(VARK_CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_SOURCE_DIR}/cmake/compile ${CMAKE_SOURCE_DIR})
endif()

set(VARK_SANITIZE "" CACHE STRING "Sanitizers of this build, as clang's -fsanitize takes them")

add_library(VarkOptions INTERFACE)
target_compile_options(VarkOptions INTERFACE
  -Werror -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wnon-virtual-dtor -Wold-style-cast
  -Woverloaded-virtual -Wthread-safety
  "SHELL:-Xclang -fno-pch-timestamp" -fdebug-compilation-dir=.)
target_include_directories(VarkOptions INTERFACE ${CMAKE_SOURCE_DIR}/Sources)
target_link_options(VarkOptions INTERFACE -fuse-ld=lld-19)
find_package(Threads REQUIRED)
target_link_libraries(VarkOptions INTERFACE Threads::Threads)
if(VARK_SANITIZE)
  # A report of a sanitizer needs the lines alone; whole debug information takes a third of the compiler's time, and
  # optimising what the sanitizers have put in takes half of the rest, for tests that mostly wait.
  target_compile_options(VarkOptions INTERFACE
    -fsanitize=${VARK_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer -O0 -gline-tables-only)
  target_link_options(VarkOptions INTERFACE -fsanitize=${VARK_SANITIZE})
endif()

option(VARK_COVERAGE "Let programs note which of their lines run" OFF)
if(VARK_COVERAGE)
  target_compile_options(VarkOptions INTERFACE -fprofile-instr-generate -fcoverage-mapping -O0 -g0)
  target_link_options(VarkOptions INTERFACE -fprofile-instr-generate)
endif()

# vark_uses_bus(PROGRAM): a program that talks to a bus through libraries that no sanitizer has seen.
function(vark_uses_bus name)
  if(VARK_SANITIZE MATCHES thread)
    target_sources(${name} PRIVATE ${CMAKE_SOURCE_DIR}/cmake/ThreadSanitizerRules.cpp)
  endif()
endfunction()

# vark_library(NAME): a static library of ours with the house's options. Sources come from target_sources.
function(vark_library name)
  add_library(${name} STATIC)
  target_link_libraries(${name} PUBLIC VarkOptions)
endfunction()

# vark_precompile(TARGET): the headers that nearly every file of ours takes in. None of our own: a precompiled header
# from the cache remembers where they lay in another clone, and they would be taken in twice.
function(vark_precompile name)
  target_precompile_headers(${name} PRIVATE
    <algorithm> <chrono> <coroutine> <cstdint> <exception> <filesystem> <functional> <map> <memory> <mutex>
    <optional> <set> <span> <stop_token> <string> <string_view> <unordered_map> <utility> <variant> <vector>
    <fmt/format.h>)
endfunction()
