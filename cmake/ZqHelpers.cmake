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
  if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/include)
    install(DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  endif()
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
