# The two rules every folder uses: client_library() and client_test().

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
find_package(Threads REQUIRED)

# Flags for our own code, not for GoogleTest.
add_library(client_flags INTERFACE)
target_include_directories(client_flags INTERFACE "${CMAKE_SOURCE_DIR}/src")
target_link_libraries(client_flags INTERFACE Threads::Threads)
target_compile_options(client_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast -Wcast-qual
  -Wnon-virtual-dtor -Woverloaded-virtual -Wformat=2 -Wundef -Wextra-semi -Wsuggest-override -Werror)
if(CMAKE_UNITY_BUILD)
  # A local name may hide a constant of a file joined before it; the other presets still find real shadowing.
  target_compile_options(client_flags INTERFACE -Wno-shadow)
endif()
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  target_compile_options(client_flags INTERFACE -Wthread-safety)
endif()
if(WIN32)
  target_compile_definitions(client_flags INTERFACE
    UNICODE _UNICODE NOMINMAX WIN32_LEAN_AND_MEAN _WIN32_WINNT=0x0A00 WINVER=0x0A00)
  # Hardening: memory corruption ends the program instead of opening it to an attacker.
  target_compile_options(client_flags INTERFACE -fstack-protector-strong)
  target_link_options(client_flags INTERFACE -fstack-protector-strong
    -Wl,--dynamicbase -Wl,--nxcompat -Wl,--high-entropy-va)
  # Reproducible builds: the same sources give the same file at any time and in any folder.
  target_link_options(client_flags INTERFACE -Wl,--no-insert-timestamp)
  if(NOT VELMARINE_TESTS)
    target_compile_options(client_flags INTERFACE
      "-ffile-prefix-map=${CMAKE_SOURCE_DIR}=." "-ffile-prefix-map=${CMAKE_BINARY_DIR}=build")
  endif()
endif()

if(VELMARINE_SANITIZE)
  add_compile_options(-fsanitize=${VELMARINE_SANITIZE} -fno-omit-frame-pointer
                      -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${VELMARINE_SANITIZE})
endif()
if(VELMARINE_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# client_library(NAME PURE files... WIN files... POSIX files... DEPS libraries...)
# WIN files build only for Windows, POSIX files only natively; PURE files build for both.
function(client_library name)
  cmake_parse_arguments(ARG "" "" "PURE;WIN;POSIX;DEPS;WIN_DEPS" ${ARGN})
  set(sources ${ARG_PURE})
  if(WIN32)
    list(APPEND sources ${ARG_WIN})
    list(APPEND ARG_DEPS ${ARG_WIN_DEPS})
  else()
    list(APPEND sources ${ARG_POSIX})
  endif()
  if(sources)
    add_library(${name} STATIC ${sources})
    target_link_libraries(${name} PUBLIC client_flags ${ARG_DEPS})
    if(WIN32 AND NOT VELMARINE_TESTS)
      # Line numbers for the symbols kept with a release, to locate an address from a crash.
      target_compile_options(${name} PRIVATE -g1)
    elseif(WIN32)
      # tests/win32 identifies a call site by its return address: this needs line numbers, and no tail
      # call turned into a jump. Otherwise the code is what ships.
      target_compile_options(${name} PRIVATE $<$<NOT:$<CONFIG:Debug>>:-g1> -fno-optimize-sibling-calls)
    endif()
  else()
    add_library(${name} INTERFACE)
    target_link_libraries(${name} INTERFACE client_flags ${ARG_DEPS})
  endif()
endfunction()

# The headers that every test includes, precompiled: GoogleTest's headers are half of a test's compile time.
function(client_test_headers)
  file(WRITE "${CMAKE_BINARY_DIR}/tests/test_headers.cpp" "// Only its precompiled headers are used.\n")
  add_library(test_headers OBJECT "${CMAKE_BINARY_DIR}/tests/test_headers.cpp")
  client_test_options(test_headers)
  target_precompile_headers(test_headers PRIVATE
    <gtest/gtest.h> <algorithm> <array> <atomic> <chrono> <condition_variable> <deque> <functional>
    <future> <map> <memory> <mutex> <optional> <set> <stdexcept> <string> <thread> <vector>)
  if(WIN32)
    target_precompile_headers(test_headers PRIVATE "${CMAKE_SOURCE_DIR}/src/platform/windows_sdk.h")
  endif()
endfunction()

# The code under test is built as it ships; the tests themselves compile in half the time without optimisation.
function(client_test_options target)
  target_include_directories(${target} PRIVATE "${CMAKE_SOURCE_DIR}/tests")
  target_link_libraries(${target} PRIVATE client_flags GTest::gmock_main)
  # Debugging information triples the linking time, and under Wine only a debugger reads it.
  target_compile_options(${target} PRIVATE -O0 $<$<NOT:$<CONFIG:Debug>>:$<IF:$<BOOL:${WIN32}>,-g0,-g1>>)
endfunction()

# client_test(NAME SOURCES files... [WIN files...] [POSIX files...] [DEPS libraries...])
# One program, NAME_test, for the folder of that name; ctest runs it (through Wine for Windows).
function(client_test name)
  cmake_parse_arguments(ARG "" "" "SOURCES;WIN;POSIX;DEPS" ${ARGN})
  set(sources ${ARG_SOURCES})
  if(WIN32)
    list(APPEND sources ${ARG_WIN})
  else()
    list(APPEND sources ${ARG_POSIX})
  endif()
  if(NOT sources)
    return()
  endif()
  if(NOT TARGET test_headers)
    client_test_headers()
  endif()
  add_executable(${name}_test ${sources})
  client_test_options(${name}_test)
  target_link_libraries(${name}_test PRIVATE ${name} ${ARG_DEPS})
  if(WIN32)
    target_link_libraries(${name}_test PRIVATE win32_calls)
  endif()
  target_precompile_headers(${name}_test REUSE_FROM test_headers)
  set_target_properties(${name}_test PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/tests")
  set_property(GLOBAL APPEND PROPERTY client_tests ${name}_test)
  add_test(NAME ${name} COMMAND ${name}_test)
  # Limits a test that hangs, so the others still run.
  set_tests_properties(${name} PROPERTIES TIMEOUT 240)
endfunction()

# client_fuzz(NAME [SOURCES files...] [DEPS libraries...] [TESTS]): fuzz/NAME_fuzz.cpp as a libFuzzer program;
# with TESTS it uses the tests' fakes. The target `fuzzers` is all of them.
function(client_fuzz name)
  cmake_parse_arguments(ARG "TESTS" "" "SOURCES;DEPS" ${ARGN})
  add_executable(${name}_fuzz ${name}_fuzz.cpp ${ARG_SOURCES})
  target_link_libraries(${name}_fuzz PRIVATE ${ARG_DEPS} client_flags)
  target_link_options(${name}_fuzz PRIVATE -fsanitize=fuzzer)
  if(ARG_TESTS)
    target_include_directories(${name}_fuzz PRIVATE "${CMAKE_SOURCE_DIR}/tests")
  endif()
  if(NOT TARGET fuzzers)
    add_custom_target(fuzzers)
  endif()
  add_dependencies(fuzzers ${name}_fuzz)
endfunction()

# client_bench(NAME DEPS libraries...): benchmarks/NAME.cpp as a Google Benchmark program.
function(client_bench name)
  cmake_parse_arguments(ARG "" "" "DEPS" ${ARGN})
  add_executable(${name} ${name}.cpp)
  target_link_libraries(${name} PRIVATE ${ARG_DEPS} client_flags benchmark::benchmark_main)
endfunction()
