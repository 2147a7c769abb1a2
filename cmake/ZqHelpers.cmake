# Shared target settings for every library, test and tool of the project.

find_package(Threads REQUIRED)

# Warnings (and -Werror under ZQ_WERROR) for one target.
function(zq_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra)
  if(ZQ_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()

# zq_add_library(name SOURCES ... [DEPS ...])
# A static framework library with public headers in <dir>/include, hidden visibility (so nothing
# leaks out of libzq_plugin.so), the alias zq::name, and install rules into the zq package.
function(zq_add_library name)
  cmake_parse_arguments(A "" "" "SOURCES;DEPS" ${ARGN})
  add_library(${name} STATIC ${A_SOURCES})
  add_library(zq::${name} ALIAS ${name})
  target_include_directories(${name} PUBLIC
    $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}/include>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  target_link_libraries(${name} PUBLIC ${A_DEPS})
  set_target_properties(${name} PROPERTIES
    CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON C_VISIBILITY_PRESET hidden
    EXPORT_NAME ${name})
  zq_warnings(${name})
  # Library code is held to a stricter set: shadowed names, functions without a prior
  # declaration (a missing `static`) and undefined macros in #if.
  target_compile_options(${name} PRIVATE -Wshadow -Wmissing-declarations -Wundef)
  install(TARGETS ${name} EXPORT zqTargets ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
  install(DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
endfunction()

# zq_add_gtest(name SOURCES ... [LIBS ...])
# A GoogleTest program; each test case runs as its own ctest entry (its own process).
function(zq_add_gtest name)
  if(NOT ZQ_BUILD_TESTS)
    return()
  endif()
  cmake_parse_arguments(A "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${A_SOURCES})
  target_link_libraries(${name} PRIVATE ${A_LIBS} GTest::gtest GTest::gtest_main Threads::Threads)
  zq_warnings(${name})
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
    PROPERTIES TIMEOUT 300)
endfunction()

# zq_add_benchmark(name SOURCES ... [LIBS ...])
# A Google Benchmark program, plus a short smoke run under ctest (label "bench").
function(zq_add_benchmark name)
  if(NOT ZQ_BUILD_BENCH OR ZQ_SANITIZE)
    return()
  endif()
  cmake_parse_arguments(A "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${A_SOURCES})
  target_link_libraries(${name} PRIVATE ${A_LIBS} benchmark::benchmark Threads::Threads)
  zq_warnings(${name})
  if(ZQ_BUILD_TESTS)
    add_test(NAME ${name}.smoke COMMAND ${name} --benchmark_min_time=0.001)
    set_tests_properties(${name}.smoke PROPERTIES LABELS bench TIMEOUT 300)
  endif()
endfunction()

# zq_instrument_flags(<kind> <out_var>)
# The one place that knows instrumentation flags. Kinds:
#   sanitize    AddressSanitizer + UndefinedBehaviorSanitizer for a whole test build
#   fuzz        a libFuzzer program (clang): fuzzer runtime plus the sanitizers
#   fuzz-cover  libraries linked into a libFuzzer program: coverage feedback, no fuzzer main
function(zq_instrument_flags kind out_var)
  if(kind STREQUAL "sanitize")
    set(flags -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  elseif(kind STREQUAL "fuzz")
    set(flags -fsanitize=fuzzer,address,undefined -fno-sanitize-recover=all)
  elseif(kind STREQUAL "fuzz-cover")
    set(flags -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all)
  else()
    message(FATAL_ERROR "zq_instrument_flags: unknown kind ${kind}")
  endif()
  set(${out_var} ${flags} PARENT_SCOPE)
endfunction()

# zq_fuzz_cover(<target>...): under ZQ_BUILD_FUZZ, libraries whose code a fuzz target exercises
# report coverage to libFuzzer. Every program linking them (a build tool such as vixgen too)
# then needs the sanitizer runtime, which their link interface brings.
function(zq_fuzz_cover)
  if(ZQ_BUILD_FUZZ)
    zq_instrument_flags(fuzz-cover flags)
    zq_instrument_flags(sanitize runtime)
    foreach(t ${ARGN})
      target_compile_options(${t} PRIVATE ${flags})
      target_link_options(${t} INTERFACE ${runtime})
    endforeach()
  endif()
endfunction()

# zq_add_fuzz(name SOURCES ... LIBS ... CORPUS <dir>)
# One fuzz harness (defines LLVMFuzzerTestOneInput). Under ZQ_BUILD_FUZZ it becomes the libFuzzer
# program <name>_fuzz (built by the target fuzz_all); in test builds it is linked with
# fuzz/replay_main.cc into <name>_replay, which replays the committed corpus under ctest.
function(zq_add_fuzz name)
  cmake_parse_arguments(A "" "CORPUS" "SOURCES;LIBS" ${ARGN})
  if(ZQ_BUILD_FUZZ)
    zq_instrument_flags(fuzz flags)
    add_executable(${name}_fuzz ${A_SOURCES})
    # All libFuzzer programs land in one folder, where scripts/build.sh fuzz finds them.
    set_target_properties(${name}_fuzz PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/fuzz)
    target_compile_options(${name}_fuzz PRIVATE ${flags})
    target_link_options(${name}_fuzz PRIVATE ${flags})
    target_link_libraries(${name}_fuzz PRIVATE ${A_LIBS})
    zq_warnings(${name}_fuzz)
    add_dependencies(fuzz_all ${name}_fuzz)
  elseif(ZQ_BUILD_TESTS)
    add_executable(${name}_replay ${A_SOURCES} ${PROJECT_SOURCE_DIR}/fuzz/replay_main.cc)
    target_link_libraries(${name}_replay PRIVATE ${A_LIBS})
    zq_warnings(${name}_replay)
    add_test(NAME fuzz.${name}_replay COMMAND ${name}_replay ${A_CORPUS})
    set_tests_properties(fuzz.${name}_replay PROPERTIES TIMEOUT 600)
  endif()
endfunction()
