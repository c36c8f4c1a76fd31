# SPDX-License-Identifier: Apache-2.0
# Options of the build, the compiler's settings for every target (kf_options), and the packages that are needed.

option(KFA_BENCHMARKS "Build the benchmarks" OFF)
option(KFA_FUZZERS "Build the fuzz targets with libFuzzer (clang only)" OFF)
option(KFA_COVERAGE "Count which lines and branches run, in profiles/ of the build (clang only)" OFF)
option(KFA_WERROR "Take warnings for errors" OFF)
set(KFA_SANITIZE "" CACHE STRING "Sanitizers to build with: address;undefined or thread")

get_property(KFA_MULTI_CONFIG GLOBAL PROPERTY GENERATOR_IS_MULTI_CONFIG)
if(NOT CMAKE_BUILD_TYPE AND NOT KFA_MULTI_CONFIG)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "Build type" FORCE)
endif()

set(KFA_CLANG FALSE)
if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
  set(KFA_CLANG TRUE)
endif()
if((KFA_FUZZERS OR KFA_COVERAGE) AND NOT KFA_CLANG)
  message(FATAL_ERROR "KFA_FUZZERS and KFA_COVERAGE need clang: set CMAKE_CXX_COMPILER=clang++-14")
endif()

# The clang run-time libraries stand in the program alone, so a shared library leaves their symbols undefined.
set(KFA_ALLOW_UNDEFINED_DEFAULT OFF)
if(KFA_CLANG AND (KFA_SANITIZE OR KFA_FUZZERS))
  set(KFA_ALLOW_UNDEFINED_DEFAULT ON)
endif()
option(KFA_ALLOW_UNDEFINED "Let shared libraries have undefined symbols" ${KFA_ALLOW_UNDEFINED_DEFAULT})

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -g0 -DNDEBUG")

add_library(kf_options INTERFACE)
target_compile_options(kf_options INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion
  $<$<BOOL:${KFA_WERROR}>:-Werror>
  # What __FILE__ and debug information say of the place where this was built: nothing.
  -ffile-prefix-map=${PROJECT_SOURCE_DIR}/= -ffile-prefix-map=${PROJECT_BINARY_DIR}=.)
if(KFA_CLANG)
  # clang counts changes of sign as conversions, the compiler that ships does not.
  target_compile_options(kf_options INTERFACE -Wthread-safety -Wno-sign-conversion)
endif()
target_link_options(kf_options INTERFACE -Wl,-z,relro,-z,now -Wl,--hash-style=gnu -Wl,-O1 -Wl,--as-needed)

if(KFA_SANITIZE)
  list(JOIN KFA_SANITIZE "," KFA_SANITIZERS)
  target_compile_options(kf_options INTERFACE -fsanitize=${KFA_SANITIZERS} -fno-sanitize-recover=all
                                              -fno-omit-frame-pointer
                                              # gcc misjudges instrumented code of its own headers.
                                              $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
  target_link_options(kf_options INTERFACE -fsanitize=${KFA_SANITIZERS})
endif()
if(KFA_FUZZERS)
  target_compile_options(kf_options INTERFACE -fsanitize=fuzzer-no-link)
endif()
if(KFA_COVERAGE)
  # The counters are the mapped file itself, one for all processes of a program: what a process that was killed ran counts.
  set(KFA_PROFILE -fprofile-instr-generate=${PROJECT_BINARY_DIR}/profiles/%m%c.profraw)
  target_compile_options(kf_options INTERFACE ${KFA_PROFILE} -fcoverage-mapping -fprofile-update=atomic
                                              "SHELL:-mllvm -runtime-counter-relocation")
  target_link_options(kf_options INTERFACE ${KFA_PROFILE})
endif()

find_package(Boost 1.74 REQUIRED)
find_package(EXPAT REQUIRED)
find_package(CLI11 REQUIRED)
find_package(nlohmann_json REQUIRED)
find_package(gRPC CONFIG QUIET)
option(KFA_REMOTE "Build the way to managers of other agents (needs gRPC)" ${gRPC_FOUND})
if(KFA_REMOTE)
  find_package(gRPC CONFIG REQUIRED)
  find_package(OpenSSL REQUIRED)
  find_package(PkgConfig REQUIRED)
  pkg_check_modules(SYSTEMD REQUIRED IMPORTED_TARGET libsystemd)
endif()
# The interpreter of the system, whatever stands first in the search path.
if(NOT Python_EXECUTABLE AND EXISTS /usr/bin/python3)
  set(Python_EXECUTABLE /usr/bin/python3 CACHE FILEPATH "The Python interpreter that the module is built for")
endif()
set(PYBIND11_FINDPYTHON ON)
find_package(Python 3.9 COMPONENTS Interpreter Development.Module QUIET)
if(Python_FOUND)
  find_package(pybind11 2.10 CONFIG QUIET)
endif()
# An interpreter that is not built with sanitizers cannot load what is.
set(KFA_PYTHON_DEFAULT OFF)
if(pybind11_FOUND AND NOT KFA_SANITIZE AND NOT KFA_FUZZERS AND NOT KFA_COVERAGE)
  set(KFA_PYTHON_DEFAULT ON)
endif()
option(KFA_PYTHON "Build the Python module (needs pybind11)" ${KFA_PYTHON_DEFAULT})
if(KFA_PYTHON)
  find_package(Python 3.9 COMPONENTS Interpreter Development.Module REQUIRED)
  find_package(pybind11 2.10 CONFIG REQUIRED)
endif()
if(BUILD_TESTING)
  find_package(GTest REQUIRED)
  include(GoogleTest)
endif()
if(KFA_BENCHMARKS)
  find_package(benchmark REQUIRED)
endif()
